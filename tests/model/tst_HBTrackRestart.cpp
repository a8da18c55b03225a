#include "TemporaryHome.h"
#include "TrackProbeData.h"

#include "kits/geometry/HBEarthDistance.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

// A track of three segments, built as the importers build one and saved by
// one process, read back by the next: points in order through the URI
// list, statistics as computed by hand, the geometry from its cache file.
class tst_HBTrackRestart : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;

    QStringList probe(const QString &command) const
    {
        QProcess p;
        p.setProcessEnvironment(temporaryHomeEnvironment(m_home.path()));
        p.start(QStringLiteral(HB_TRACK_PROBE_PATH), {command});
        if (!p.waitForFinished(120000) || p.exitCode() != 0)
            return {QStringLiteral("probe failed: ") + QString::fromUtf8(p.readAllStandardError())};
        return QString::fromUtf8(p.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
    }

private slots:
    void trackComesBackAfterARestart()
    {
        QVERIFY(probe(QStringLiteral("write")).isEmpty());
        const QStringList lines = probe(QStringLiteral("read"));

        QStringList expected{QStringLiteral("geometry 1 0 %1").arg(TrackProbeData::segments * TrackProbeData::pointsPerSegment)};
        double trackDistance = 0;
        for (int s = 0; s < TrackProbeData::segments; ++s) {
            double distance = 0;
            QStringList latitudes;
            for (int i = 0; i < TrackProbeData::pointsPerSegment; ++i) {
                latitudes.append(TrackProbeData::latitude(s, i));
                if (i > 0)
                    distance += HBEarthDistance(TrackProbeData::longitude(s, i - 1).toDouble(),
                                                TrackProbeData::latitude(s, i - 1).toDouble(),
                                                TrackProbeData::longitude(s, i).toDouble(),
                                                TrackProbeData::latitude(s, i).toDouble());
            }
            trackDistance += distance;
            expected << QStringLiteral("segment %1 %2 %3 %4 %5")
                            .arg(s)
                            .arg(TrackProbeData::pointsPerSegment)
                            .arg(QString::number(distance, 'f', 6), TrackProbeData::date(s, 0).toString(Qt::ISODate),
                                 TrackProbeData::date(s, TrackProbeData::pointsPerSegment - 1).toString(Qt::ISODate));
            expected << QStringLiteral("latitudes ") + latitudes.join(u',');
        }
        const qint64 duration = TrackProbeData::date(0, 0).secsTo(
            TrackProbeData::date(TrackProbeData::segments - 1, TrackProbeData::pointsPerSegment - 1));
        expected << QStringLiteral("track %1 %2 %3")
                        .arg(TrackProbeData::segments * TrackProbeData::pointsPerSegment)
                        .arg(QString::number(trackDistance, 'f', 6))
                        .arg(duration);
        QCOMPARE(lines, expected);
    }
};

QTEST_GUILESS_MAIN(tst_HBTrackRestart)
#include "tst_HBTrackRestart.moc"
