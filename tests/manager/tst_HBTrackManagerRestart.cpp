#include "ProbeProcess.h"
#include "SqliteRows.h"

#include <QDir>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

// What the stores look like to a program that starts again: every run of
// the probe is a new process over the same home folder.
class tst_HBTrackManagerRestart : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;

    QString support() const { return m_home.filePath(QStringLiteral("data/Fernwick")); }
    QString points() const { return support() + QStringLiteral("/PointDatabases"); }

    void setUpProbe(QProcess &probe) const
    {
        probe.setProcessEnvironment(temporaryHomeEnvironment(m_home.path()));
        probe.setProgram(QStringLiteral(HB_PROBE_PATH));
    }

    ProbeRun probe(const QStringList &arguments, const QString &dataHome = {}) const
    {
        return runProbe(QStringLiteral(HB_PROBE_PATH), arguments, temporaryHomeEnvironment(m_home.path(), dataHome));
    }

    void clearHome()
    {
        QDir(m_home.path()).removeRecursively();
        QDir().mkpath(m_home.path());
    }

private slots:
    void init() { clearHome(); }

    // Period 0 reads like a name without a number, so its file is skipped
    // at start; its points come back once a point of that period is
    // inserted again in the running program.
    void periodZeroIsNotReopenedAtStart()
    {
        const ProbeRun first = probe({QStringLiteral("insert"), QStringLiteral("2001-01-05T00:00:00Z"),
                                      QStringLiteral("2001-01-15T00:00:00Z"), QStringLiteral("2000-12-25T00:00:00Z"),
                                      QStringLiteral("none")});
        QCOMPARE(first.exitCode, 0);
        for (const char *file : {"0.sql", "1.sql", "-1.sql", "DatelessPoints.sql"})
            QCOMPARE(rowsIn(points() + u'/' + QLatin1String(file), QStringLiteral("HBGeoPoint")), qint64(1));

        const ProbeRun second = probe({QStringLiteral("list")});
        QCOMPARE(second.exitCode, 0);
        QCOMPARE(second.out, (QStringList{QStringLiteral("2000-12-25T00:00:00Z"), QStringLiteral("2001-01-15T00:00:00Z"),
                                          QStringLiteral("none"), QStringLiteral("store -1.sql"),
                                          QStringLiteral("store 1.sql"), QStringLiteral("store DatelessPoints.sql"),
                                          QStringLiteral("store TrackManagerDatabase.sql")}));

        QCOMPARE(probe({QStringLiteral("insert"), QStringLiteral("2001-01-06T00:00:00Z")}).exitCode, 0);
        QCOMPARE(rowsIn(points() + QStringLiteral("/0.sql"), QStringLiteral("HBGeoPoint")), qint64(2));
    }

    void companionFilesAndStrangersAreSkipped()
    {
        QCOMPARE(probe({QStringLiteral("insert"), QStringLiteral("2001-01-15T00:00:00Z")}).exitCode, 0);
        QDir().mkpath(points() + QStringLiteral("/old"));
        for (const char *stranger : {"notes.txt", "1.sql-journal", "README"}) {
            QFile f(points() + u'/' + QLatin1String(stranger));
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write("not a store");
        }
        const ProbeRun run = probe({QStringLiteral("list")});
        QCOMPARE(run.exitCode, 0);
        QVERIFY(run.out.contains(QStringLiteral("store 1.sql")));
        QCOMPARE(run.out.filter(QStringLiteral("store ")).size(), 3);
    }

    void unreadableStoreEndsStartWithTheReport_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("logLine");
        QTest::newRow("central") << QStringLiteral("TrackManagerDatabase.sql")
                                 << QStringLiteral("Error occurred while adding TrackManagerDatabase.sql to the central store during init.");
        QTest::newRow("dateless") << QStringLiteral("PointDatabases/DatelessPoints.sql")
                                  << QStringLiteral("Error occurred while adding DatelessPoints.sql to the central store during init.");
        QTest::newRow("period") << QStringLiteral("PointDatabases/-7.sql")
                                << QStringLiteral("Error occurred while adding a point database -7.sql to the central store during init.");
    }

    void unreadableStoreEndsStartWithTheReport()
    {
        QFETCH(QString, file);
        QFETCH(QString, logLine);
        QDir().mkpath(points());
        QFile garbage(support() + u'/' + file);
        QVERIFY(garbage.open(QIODevice::WriteOnly));
        garbage.write(QByteArray(4096, 'x'));
        garbage.close();

        const ProbeRun run = probe({QStringLiteral("list")});
        QCOMPARE(run.exitCode, 1);
        QVERIFY(run.out.isEmpty());
        const QStringList lines = run.err.split(u'\n', Qt::SkipEmptyParts);
        QVERIFY2(run.err.contains(logLine + u'\n'), qPrintable(run.err));
        const qsizetype message = lines.indexOf(QStringLiteral("An Error was encountered trying to load the track manager database."));
        QVERIFY2(message >= 0, qPrintable(run.err));
        // "<description>. <failure reason>", the description naming the file
        QVERIFY(message + 1 < lines.size());
        static const QRegularExpression informative(QStringLiteral("^.+\\. .+$"));
        QVERIFY2(informative.match(lines[message + 1]).hasMatch(), qPrintable(lines[message + 1]));
        QVERIFY2(lines[message + 1].contains(QFileInfo(file).fileName()), qPrintable(lines[message + 1]));
        // nothing was repaired or moved aside
        QCOMPARE(QFileInfo(support() + u'/' + file).size(), qint64(4096));
    }

    void supportFolderThatCannotBeMadeIsReported()
    {
        QFile blocker(m_home.filePath(QStringLiteral("blocker")));
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();
        const QString dataHome = m_home.filePath(QStringLiteral("blocker/data"));
        const ProbeRun run = probe({QStringLiteral("list")}, dataHome);
        QCOMPARE(run.exitCode, 1);
        QVERIFY2(run.err.contains(QStringLiteral("The folder %1/Fernwick could not be made.").arg(dataHome)),
                 qPrintable(run.err));
        QVERIFY2(run.err.contains(QStringLiteral("An Error was encountered trying to load the track manager database.\n")),
                 qPrintable(run.err));
    }

    // A save is one transaction per file: a process killed in the middle of
    // saving leaves every earlier batch and nothing of the one under way.
    void killedDuringSaveLosesNoSavedBatch()
    {
        constexpr int batchSize = 20000;
        QProcess p;
        setUpProbe(p);
        p.setArguments({QStringLiteral("fill"), QStringLiteral("1000"), QString::number(batchSize)});
        p.start();
        int saved = 0;
        while (saved < 3 && p.waitForReadyRead(120000)) {
            while (p.canReadLine()) {
                const QString line = QString::fromUtf8(p.readLine()).trimmed();
                if (line.startsWith(QLatin1String("saved ")))
                    saved = line.mid(6).toInt();
            }
        }
        QVERIFY(saved >= 3);
        ::kill(pid_t(p.processId()), SIGKILL);
        QVERIFY(p.waitForFinished(30000));

        const QDir folder(points(), QStringLiteral("*.sql"));
        const QStringList files = folder.entryList();
        QCOMPARE(files, (QStringList{QStringLiteral("815.sql"), QStringLiteral("DatelessPoints.sql")}));
        const qint64 rows = rowsIn(points() + QStringLiteral("/815.sql"), QStringLiteral("HBGeoPoint"));
        QVERIFY2(rows >= qint64(saved) * batchSize, qPrintable(QString::number(rows)));
        QCOMPARE(rows % batchSize, qint64(0));

        const ProbeRun after = probe({QStringLiteral("list")});
        QCOMPARE(after.exitCode, 0);
        QCOMPARE(after.out.size(), int(rows) + 3);   // the points, then three stores
    }
};

QTEST_GUILESS_MAIN(tst_HBTrackManagerRestart)
#include "tst_HBTrackManagerRestart.moc"
