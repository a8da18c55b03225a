#include "SqliteRows.h"
#include "TemporaryHome.h"

#include <QDateTime>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <sys/resource.h>

// Thirty years of points are over a thousand period files, many more than
// a process may keep open; every command must still work under a small
// limit of open files, and find each point where it belongs.
class tst_hbgpsLargeLibrary : public QObject
{
    Q_OBJECT

    static constexpr int kPeriods = 1096;   // thirty years of ten-day periods
    static constexpr rlim_t kOpenFiles = 128;

    QTemporaryDir m_home;
    QString m_gpx;

    QString points() const { return m_home.filePath(QStringLiteral("data/Fernwick/PointDatabases")); }

    struct Run
    {
        int exitCode = -1;
        QByteArray out, err;
    };

    Run hbgps(const QStringList &arguments) const
    {
        QProcess p;
        p.setProcessEnvironment(temporaryHomeEnvironment(m_home.path()));
        p.setChildProcessModifier([] {
            const rlimit limit{kOpenFiles, kOpenFiles};
            setrlimit(RLIMIT_NOFILE, &limit);
        });
        p.start(QStringLiteral(HB_HBGPS_PATH), arguments);
        Run run;
        if (p.waitForFinished(300000) && p.exitStatus() == QProcess::NormalExit)
            run.exitCode = p.exitCode();
        run.out = p.readAllStandardOutput();
        run.err = p.readAllStandardError();
        return run;
    }

    // Point rows per period file, read past the library.
    QHash<QString, qint64> pointsPerFile() const
    {
        QHash<QString, qint64> rows;
        for (const QString &file : QDir(points()).entryList({QStringLiteral("*.sql")}, QDir::Files))
            rows.insert(file, rowsIn(points() + u'/' + file, QStringLiteral("HBGeoPoint")));
        return rows;
    }

private slots:
    void initTestCase()
    {
        // one point in every ten-day period from 2002 on, and a waypoint
        // (the period of early 2001 is left out: its file is not reopened
        // at start, on purpose)
        m_gpx = m_home.filePath(QStringLiteral("thirty-years.gpx"));
        QFile f(m_gpx);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write("<?xml version=\"1.0\"?>\n<gpx version=\"1.1\" creator=\"test\" xmlns=\"http://www.topografix.com/GPX/1/1\">\n"
                "<wpt lat=\"46.5\" lon=\"7.5\"><name>Home</name></wpt>\n<trk><name>Thirty years</name><trkseg>\n");
        const QDateTime first(QDate(2002, 1, 1), QTime(12, 0), Qt::UTC);
        for (int i = 0; i < kPeriods; ++i)
            f.write(QStringLiteral("<trkpt lat=\"%1\" lon=\"7.0\"><time>%2</time></trkpt>\n")
                        .arg(46.0 + i * 1e-4, 0, 'f', 4)
                        .arg(first.addDays(10 * i).toString(Qt::ISODate))
                        .toUtf8());
        f.write("</trkseg></trk>\n</gpx>\n");
    }

    void everyCommandWorksUnderASmallLimitOfOpenFiles()
    {
        const Run imported = hbgps({QStringLiteral("import"), m_gpx});
        QVERIFY2(imported.exitCode == 0, imported.err.constData());
        QHash<QString, qint64> rows = pointsPerFile();
        QCOMPARE(rows.take(QStringLiteral("DatelessPoints.sql")), qint64(0));
        QCOMPARE(rows.size(), kPeriods);
        for (auto it = rows.cbegin(); it != rows.cend(); ++it)
            QVERIFY2(it.value() == 1, qPrintable(it.key()));

        const Run listed = hbgps({QStringLiteral("list"), QStringLiteral("--json")});
        QCOMPARE(listed.exitCode, 0);
        const QJsonArray list = QJsonDocument::fromJson(listed.out).array();
        QCOMPARE(list.size(), 2);
        QCOMPARE(list.at(0).toObject().value(QStringLiteral("numberOfTrackPoints")).toInt(), kPeriods);
        QCOMPARE(hbgps({QStringLiteral("list"), QStringLiteral("--date"), QStringLiteral("2020-06-01")}).exitCode, 0);

        const QString exported = m_home.filePath(QStringLiteral("out.gpx"));
        QCOMPARE(hbgps({QStringLiteral("export"), QStringLiteral("-o"), exported}).exitCode, 0);
        QFile out(exported);
        QVERIFY(out.open(QIODevice::ReadOnly));
        QCOMPARE(out.readAll().count("<trkpt "), qsizetype(kPeriods));

        const Run deleted = hbgps({QStringLiteral("delete"), QStringLiteral("--source"), QStringLiteral("thirty-years.gpx")});
        QVERIFY2(deleted.exitCode == 0, deleted.err.constData());
        // closed at exit: no write-ahead log is left beside any file (this
        // test's own reading below leaves some)
        QCOMPARE(QDir(points()).entryList({QStringLiteral("*-wal")}, QDir::Files), QStringList());
        for (const qint64 left : pointsPerFile())
            QCOMPARE(left, qint64(0));
        QCOMPARE(rowsIn(m_home.filePath(QStringLiteral("data/Fernwick/TrackManagerDatabase.sql")), QStringLiteral("HBTrack")),
                 qint64(0));
    }
};

QTEST_GUILESS_MAIN(tst_hbgpsLargeLibrary)
#include "tst_hbgpsLargeLibrary.moc"
