#pragma once

#include "kits/geometry/HBGeometryType.h"
#include "kits/geometry/HBWKB.h"

#include <QByteArray>
#include <QPointF>
#include <QtEndian>

#include <bit>

// Writes little-endian ISO well-known binary into a buffer sized once up
// front, so that the geometry of a track of a million points is written in
// one pass without reallocation. The caller announces the exact size.
// Inline: it runs once per point, and calls into the shared library would
// cost more than the writing.
class HBWKBWriter
{
public:
    explicit HBWKBWriter(qsizetype size)
        : m_data(size, Qt::Uninitialized)
        , m_next(m_data.data())
    {
    }

    void writeHeader(HBGeometryType type)
    {
        *m_next++ = char(HBWKB::LittleEndian);
        writeUInt32(type);
    }

    void writeUInt32(quint32 value)
    {
        qToLittleEndian(value, m_next);
        m_next += sizeof value;
    }

    // A whole Point geometry: header, x, y.
    void writePoint(QPointF point)
    {
        writeHeader(HBGeometryTypePoint);
        writeDouble(point.x());
        writeDouble(point.y());
    }

    QByteArray takeData()
    {
        Q_ASSERT(m_next == m_data.constData() + m_data.size());
        m_next = nullptr;
        return std::move(m_data);
    }

private:
    void writeDouble(double value)
    {
        // On little-endian hosts this is a plain copy of the eight bytes.
        qToLittleEndian(std::bit_cast<quint64>(value), m_next);
        m_next += sizeof value;
    }

    QByteArray m_data;
    char *m_next = nullptr;
};
