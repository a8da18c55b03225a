#pragma once

#include <QDateTime>
#include <QString>

// The track the probe writes: three segments of 40 points, each segment in
// another ten-day period, with decimals of 6 to 9 digits.
namespace TrackProbeData {

constexpr int segments = 3;
constexpr int pointsPerSegment = 40;

inline QString latitude(int segment, int i)
{
    return QStringLiteral("47.%1").arg(300000 + segment * 10000 + i * 37, 0, 10) + QString(i % 4, u'7');
}

inline QString longitude(int segment, int i)
{
    return QStringLiteral("8.%1").arg(500000 + segment * 9000 + i * 41, 0, 10) + QString((i + 1) % 4, u'3');
}

inline QDateTime date(int segment, int i)
{
    return QDateTime(QDate(2021, 3, 1 + 11 * segment), QTime(9, 0), Qt::UTC).addSecs(i * 15);
}

} // namespace TrackProbeData
