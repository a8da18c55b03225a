#include "SqliteRows.h"
#include "TemporaryHome.h"

#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <sys/resource.h>

// Imports stopped the ways a user's import is stopped: killed, terminated,
// or on a disk that refuses to grow a file. Whatever stops it, the file is
// afterwards either wholly imported or not at all, and importing it again
// leaves it imported exactly once.
class tst_hbgpsTornImports : public QObject
{
    Q_OBJECT

    static constexpr int kPoints = 100000;
    QTemporaryDir m_files;
    QString m_gpx;
    qint64 m_importMs = 0;
    int m_kills = 0;
    int m_cutBetweenCommits = 0;

    struct Library
    {
        qint64 sources = 0, tracks = 0, claimedPoints = 0, storedPoints = 0;
    };

    static Library libraryIn(const QString &dataHome)
    {
        const QString support = dataHome + QStringLiteral("/Fernwick");
        const QString central = support + QStringLiteral("/TrackManagerDatabase.sql");
        Library l{rowsIn(central, QStringLiteral("HBImportSource")), rowsIn(central, QStringLiteral("HBTrack")),
                  integerIn(central, QStringLiteral("SELECT TOTAL(numberOfTrackPoints) FROM HBTrack")), 0};
        const QDir points(support + QStringLiteral("/PointDatabases"));
        for (const QString &file : points.entryList({QStringLiteral("*.sql")}, QDir::Files))
            l.storedPoints += rowsIn(points.filePath(file), QStringLiteral("HBGeoPoint"));
        return l;
    }

    static int unfinishedSaveNotes(const QString &dataHome)
    {
        return int(QDir(dataHome + QStringLiteral("/Fernwick")).entryList({QStringLiteral("UnfinishedSave-*")}, QDir::Files).size());
    }

    static QProcess *startImport(const QString &home, const QString &file, qint64 fileSizeLimit = 0)
    {
        auto *p = new QProcess;
        p->setProcessEnvironment(temporaryHomeEnvironment(home));
        p->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        if (fileSizeLimit > 0) {
            p->setChildProcessModifier([fileSizeLimit] {
                const rlimit limit{rlim_t(fileSizeLimit), rlim_t(fileSizeLimit)};
                setrlimit(RLIMIT_FSIZE, &limit);
                // a write past the limit then fails with EFBIG instead of ending the process
                std::signal(SIGXFSZ, SIG_IGN);
            });
        }
        p->start(QStringLiteral(HB_HBGPS_PATH), {QStringLiteral("import"), file});
        return p;
    }

    static int hbgps(const QString &home, const QStringList &arguments)
    {
        QProcess p;
        p.setProcessEnvironment(temporaryHomeEnvironment(home));
        p.setStandardOutputFile(QProcess::nullDevice());
        p.start(QStringLiteral(HB_HBGPS_PATH), arguments);
        const bool finished = p.waitForFinished(120000);
        const int code = finished && p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
        // what it said before it failed, to tell a crash from a hang from a refusal
        if (code != 0)
            qWarning("hbgps %s: %s, exit status %d, said: %s", qPrintable(arguments.join(u' ')),
                     finished ? (p.exitStatus() == QProcess::NormalExit ? "ended" : "crashed") : "hung", p.exitCode(),
                     p.readAllStandardError().constData());
        return code;
    }

    // Opening the stores repairs what a cut-off save left; then the file
    // is there whole or not at all, and a second import makes it whole once.
    void verifyWholeOrNothingThenReimport(const QString &home)
    {
        QCOMPARE(hbgps(home, {QStringLiteral("list")}), 0);
        const Library after = libraryIn(home + QStringLiteral("/data"));
        QVERIFY2(after.claimedPoints == after.storedPoints,
                 qPrintable(QStringLiteral("tracks claim %1 points, %2 stored").arg(after.claimedPoints).arg(after.storedPoints)));
        QVERIFY(after.sources == 0 || after.sources == 1);
        QCOMPARE(after.storedPoints, after.sources * kPoints);
        QCOMPARE(after.tracks, after.sources);
        QCOMPARE(unfinishedSaveNotes(home + QStringLiteral("/data")), 0);

        QCOMPARE(hbgps(home, {QStringLiteral("import"), m_gpx}), 0);
        const Library again = libraryIn(home + QStringLiteral("/data"));
        QCOMPARE(again.sources, qint64(1));
        QCOMPARE(again.tracks, qint64(1));
        QCOMPARE(again.claimedPoints, qint64(kPoints));
        QCOMPARE(again.storedPoints, qint64(kPoints));
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_files.isValid());
        // one point every 30 s from 1 March 2021: about 35 days, so the
        // points fill several ten-day files besides the central store
        m_gpx = m_files.filePath(QStringLiteral("long-ride.gpx"));
        QFile f(m_gpx);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<gpx version=\"1.1\" creator=\"test\" "
                "xmlns=\"http://www.topografix.com/GPX/1/1\">\n"
                "<wpt lat=\"46.5\" lon=\"7.5\"><name>Start</name></wpt>\n<trk><name>Long ride</name><trkseg>\n");
        const QDateTime start(QDate(2021, 3, 1), QTime(0, 0), Qt::UTC);
        for (int i = 0; i < kPoints; ++i) {
            f.write(QStringLiteral("<trkpt lat=\"%1\" lon=\"%2\"><ele>%3</ele><time>%4</time></trkpt>\n")
                        .arg(46.0 + i * 1e-6, 0, 'f', 6)
                        .arg(7.0 + i * 1e-6, 0, 'f', 6)
                        .arg(500 + i % 100)
                        .arg(start.addSecs(qint64(i) * 30).toString(Qt::ISODate))
                        .toUtf8());
        }
        f.write("</trkseg></trk>\n</gpx>\n");
        f.close();

        QTemporaryDir home;
        QElapsedTimer timer;
        timer.start();
        std::unique_ptr<QProcess> clean(startImport(home.path(), m_gpx));
        QVERIFY(clean->waitForFinished(120000));
        m_importMs = timer.elapsed();
        QCOMPARE(clean->exitCode(), 0);
        QCOMPARE(libraryIn(home.filePath(QStringLiteral("data"))).storedPoints, qint64(kPoints));
    }

    void cleanupTestCase()
    {
        qInfo("%d imports stopped, %d of them between the commits of their save; none left torn", m_kills,
              m_cutBetweenCommits);
    }

    // Moments spread over the last part of an import, where its save
    // runs, as fractions of a whole import's time.
    void stoppedBySignal_data()
    {
        QTest::addColumn<int>("signal");
        QTest::addColumn<double>("moment");
        for (int i = 0; i < 32; ++i) {
            const double moment = 0.6 + 0.45 * i / 31;
            QTest::addRow("SIGKILL at %.2f", moment) << int(SIGKILL) << moment;
        }
        for (const double moment : {0.5, 0.7, 0.85, 0.95})
            QTest::addRow("SIGTERM at %.2f", moment) << int(SIGTERM) << moment;
    }

    void stoppedBySignal()
    {
        QFETCH(int, signal);
        QFETCH(double, moment);
        QTemporaryDir home;
        std::unique_ptr<QProcess> import(startImport(home.path(), m_gpx));
        QVERIFY(import->waitForStarted());
        QTest::qSleep(int(moment * double(m_importMs)));
        ::kill(pid_t(import->processId()), signal);
        QVERIFY(import->waitForFinished(120000));
        ++m_kills;
        m_cutBetweenCommits += unfinishedSaveNotes(home.filePath(QStringLiteral("data")));
        verifyWholeOrNothingThenReimport(home.path());
    }

    // Two imports of one file at once, as a user starts a second before the
    // first is done: they take turns, and the second, once it is its turn,
    // finds the file imported and skips it.
    void twoImportsOfOneFileAtOnceImportItOnce()
    {
        QTemporaryDir home;
        std::unique_ptr<QProcess> first(startImport(home.path(), m_gpx));
        std::unique_ptr<QProcess> second(startImport(home.path(), m_gpx));
        QVERIFY(first->waitForFinished(120000) && second->waitForFinished(120000));
        QStringList lines{QString::fromUtf8(first->readAllStandardOutput()), QString::fromUtf8(second->readAllStandardOutput())};
        QVERIFY2(first->exitCode() == 0 && second->exitCode() == 0, qPrintable(lines.join(u'\n')));
        for (QString &line : lines)
            line = line.section(u'\n', 0, 0);
        lines.sort();
        QCOMPARE(lines, QStringList({m_gpx + QStringLiteral(": imported: 1 track, 100,000 points, 1 waypoint"),
                                     m_gpx + QStringLiteral(": skipped (unchanged)")}));
        const Library library = libraryIn(home.filePath(QStringLiteral("data")));
        QCOMPARE(library.sources, qint64(1));
        QCOMPARE(library.storedPoints, qint64(kPoints));
    }

    // A file may grow only so far: a full disk, without needing one.
    void refusedWrites_data()
    {
        QTest::addColumn<qint64>("fileSizeLimit");
        for (const qint64 kib : {64, 256, 1024, 2048})
            QTest::addRow("files up to %lld KiB", kib) << kib * 1024;
    }

    void refusedWrites()
    {
        QFETCH(qint64, fileSizeLimit);
        QTemporaryDir home;
        std::unique_ptr<QProcess> import(startImport(home.path(), m_gpx, fileSizeLimit));
        QVERIFY(import->waitForFinished(120000));
        QCOMPARE(import->exitStatus(), QProcess::NormalExit);
        QCOMPARE(import->exitCode(), 1);
        // a refusal while the stores open is reported as they fail; one in
        // the file's save, in the file's line
        const QString out = QString::fromUtf8(import->readAllStandardOutput());
        if (!out.isEmpty())
            QVERIFY2(out.startsWith(m_gpx + QStringLiteral(": not imported: ")), qPrintable(out));
        QVERIFY(libraryIn(home.filePath(QStringLiteral("data"))).sources <= 0);
        verifyWholeOrNothingThenReimport(home.path());
    }
};

QTEST_GUILESS_MAIN(tst_hbgpsTornImports)
#include "tst_hbgpsTornImports.moc"
