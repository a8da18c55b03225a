#pragma once

#include <QtGlobal>

// Sizes in bytes of the pieces of ISO well-known binary (two-dimensional
// geometries only) that the reader and the writer share.
namespace HBWKB {

enum ByteOrder : quint8 {
    BigEndian = 0,
    LittleEndian = 1,
};

inline constexpr qsizetype byteOrderSize = 1;
inline constexpr qsizetype uint32Size = 4;
inline constexpr qsizetype headerSize = byteOrderSize + uint32Size; // byte order, geometry type
inline constexpr qsizetype pointSize = headerSize + 2 * 8;          // header, x, y as doubles
inline constexpr qsizetype multiPointHeaderSize = headerSize + uint32Size; // header, point count

} // namespace HBWKB
