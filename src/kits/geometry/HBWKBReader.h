#pragma once

#include "kits/geometry/HBGeometryType.h"
#include "kits/geometry/HBWKB.h"

#include <QByteArrayView>
#include <QPointF>
#include <QString>
#include <QtEndian>

#include <bit>
#include <cmath>
#include <optional>

// A bounds-checked cursor over ISO well-known binary in either byte order.
// Every read checks the bytes left first, so damaged data stops the reader
// with a reason instead of running past the end; the first failure is kept
// in errorString(). The per-point path is inline: it runs once per point of
// a million-point track, and calls into the shared library would cost more
// than the reading; the failure paths are not.
class HBWKBReader
{
public:
    explicit HBWKBReader(QByteArrayView data)
        : m_begin(data.data())
        , m_next(data.data())
        , m_end(data.data() + data.size())
    {
    }

    // Reads a byte order (used for what follows, up to the next header) and
    // a geometry type, which must be the expected one.
    bool readHeader(HBGeometryType expected) { return hasBytes(HBWKB::headerSize) && takeHeader(expected); }

    std::optional<quint32> readUInt32()
    {
        if (!hasBytes(HBWKB::uint32Size))
            return std::nullopt;
        return takeUInt32();
    }

    // A whole Point geometry in its own byte order, with finite coordinates.
    std::optional<QPointF> readPoint()
    {
        if (!hasBytes(HBWKB::pointSize) || !takeHeader(HBGeometryTypePoint))
            return std::nullopt;
        const char *coordinates = m_next;
        const double x = takeDouble();
        const double y = takeDouble();
        // ISO writes an empty point as NaN, NaN; a track has no use for a
        // fix that can be neither drawn nor measured, and garbage often
        // decodes so.
        if (!std::isfinite(x) || !std::isfinite(y))
            return failNotFinite(coordinates);
        return QPointF(x, y);
    }

    qsizetype bytesLeft() const { return m_end - m_next; }
    bool fail(const QString &reason);
    QString errorString() const { return m_errorString; }

private:
    // The take functions decode bytes whose presence hasBytes confirmed, so
    // that a point costs one bounds check.
    bool hasBytes(qsizetype count) { return bytesLeft() >= count || failTruncated(count); }

    bool takeHeader(HBGeometryType expected)
    {
        const auto byteOrder = quint8(*m_next);
        if (byteOrder != HBWKB::BigEndian && byteOrder != HBWKB::LittleEndian)
            return failByteOrder();
        m_littleEndian = byteOrder == HBWKB::LittleEndian;
        ++m_next;
        const quint32 type = takeUInt32();
        return type == expected || failType(type, expected);
    }

    quint32 takeUInt32()
    {
        const quint32 value = m_littleEndian ? qFromLittleEndian<quint32>(m_next) : qFromBigEndian<quint32>(m_next);
        m_next += sizeof value;
        return value;
    }

    double takeDouble()
    {
        // On little-endian hosts reading little-endian data this is a plain
        // copy of the eight bytes.
        const quint64 bits = m_littleEndian ? qFromLittleEndian<quint64>(m_next) : qFromBigEndian<quint64>(m_next);
        m_next += sizeof bits;
        return std::bit_cast<double>(bits);
    }

    qsizetype offsetOf(const char *at) const { return at - m_begin; }
    bool failTruncated(qsizetype wanted);
    bool failByteOrder();
    bool failType(quint32 type, HBGeometryType expected);
    std::nullopt_t failNotFinite(const char *coordinates);

    const char *m_begin;
    const char *m_next;
    const char *m_end;
    bool m_littleEndian = true;
    QString m_errorString;
};
