#include "kits/geometry/HBWKBReader.h"

bool HBWKBReader::fail(const QString &reason)
{
    if (m_errorString.isEmpty())
        m_errorString = reason;
    return false;
}

bool HBWKBReader::failTruncated(qsizetype wanted)
{
    return fail(QStringLiteral("data truncated at offset %1 (%2 bytes wanted, %3 left)")
                    .arg(offsetOf(m_next)).arg(wanted).arg(bytesLeft()));
}

bool HBWKBReader::failByteOrder()
{
    return fail(QStringLiteral("unknown byte order %1 at offset %2").arg(quint8(*m_next)).arg(offsetOf(m_next)));
}

// Called with the type read, so the type began four bytes back.
bool HBWKBReader::failType(quint32 type, HBGeometryType expected)
{
    return fail(QStringLiteral("geometry type %1 at offset %2 where %3 was expected")
                    .arg(type).arg(offsetOf(m_next) - HBWKB::uint32Size).arg(quint32(expected)));
}

std::nullopt_t HBWKBReader::failNotFinite(const char *coordinates)
{
    fail(QStringLiteral("coordinate that is not a finite number at offset %1").arg(offsetOf(coordinates)));
    return std::nullopt;
}
