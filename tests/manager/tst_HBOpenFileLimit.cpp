#include "ProbeProcess.h"
#include "SqliteRows.h"

#include <QDateTime>
#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>

#include <sys/resource.h>

// Every period file stays open in both coordinators with its write-ahead
// log, so a hundred periods take some five hundred descriptors. The probe
// starts under tight limits of open files and saves one point into each of
// a hundred consecutive ten-day periods.
class tst_HBOpenFileLimit : public QObject
{
    Q_OBJECT

    static constexpr int kPeriods = 100;
    static constexpr qint64 kFirstPeriod = 328;   // 2010-01-01 is day 3287 after 2001-01-01

    QTemporaryDir m_home;

    QString points() const { return m_home.filePath(QStringLiteral("data/Fernwick/PointDatabases")); }
    QString periodFile(int i) const { return points() + QStringLiteral("/%1.sql").arg(kFirstPeriod + i); }

    // The point of period kFirstPeriod + i, named after its date.
    static QString pointName(int i)
    {
        const QDateTime first(QDate(2010, 1, 1), QTime(12, 0), Qt::UTC);
        return first.addDays(10 * i).toString(Qt::ISODate);
    }

    static qint64 rowsNamed(const QString &file, const QString &name)
    {
        // a file that was never made, or made without its tables, holds nothing
        return std::max<qint64>(0, rowsIn(file, QStringLiteral("HBGeoPoint"), QStringLiteral("name = '%1'").arg(name)));
    }

    ProbeRun insertUnderLimits(quint64 soft, quint64 hard) const
    {
        QStringList arguments{QStringLiteral("nofile"), QString::number(soft), QString::number(hard), QStringLiteral("insert")};
        for (int i = 0; i < kPeriods; ++i)
            arguments.append(pointName(i));
        QProcessEnvironment environment = temporaryHomeEnvironment(m_home.path());
        // what the limit was and became is a debug line: a program's every start would show it
        environment.insert(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("hb.manager.debug=true"));
        return runProbe(QStringLiteral(HB_PROBE_PATH), arguments, environment);
    }

private slots:
    void init()
    {
        QDir(m_home.path()).removeRecursively();
        QDir().mkpath(m_home.path());
    }

    // Regression: with the soft limit left low, most period files failed to
    // open and their points were saved, but not in their period files.
    void lowSoftLimitIsRaisedSoEveryPeriodKeepsItsPoints()
    {
        constexpr quint64 hard = 4096;
        rlimit own{};
        QVERIFY(getrlimit(RLIMIT_NOFILE, &own) == 0);
        if (own.rlim_max != RLIM_INFINITY && own.rlim_max < hard)
            QSKIP("the test's own hard limit of open files is below 4096");

        const ProbeRun run = insertUnderLimits(64, hard);
        QCOMPARE(run.exitCode, 0);
        for (int i = 0; i < kPeriods; ++i) {
            QCOMPARE(rowsIn(periodFile(i), QStringLiteral("HBGeoPoint")), qint64(1));
            QCOMPARE(rowsNamed(periodFile(i), pointName(i)), qint64(1));
        }
        QCOMPARE(rowsIn(points() + QStringLiteral("/DatelessPoints.sql"), QStringLiteral("HBGeoPoint")), qint64(0));
        QVERIFY2(run.err.contains(QStringLiteral("The open-file limit was raised from 64 to 4096 descriptors.\n")),
                 qPrintable(run.err));
        QVERIFY2(!run.err.contains(QStringLiteral("could not be opened")), qPrintable(run.err));
    }

    // A hard limit cannot be raised. The periods opened while descriptors
    // last keep their points; after that each point stays in the dateless
    // file it was given when it was inserted, before its date was set, and
    // each file that failed is named in the log with the reason.
    void hardLimitThatCannotBeRaisedIsWarnedOfAndLosesNoPoint()
    {
        const ProbeRun run = insertUnderLimits(64, 64);
        QCOMPARE(run.exitCode, 0);
        QVERIFY2(run.err.contains(QStringLiteral("The open-file limit stays at 64 descriptors.\n")), qPrintable(run.err));
        QVERIFY2(run.err.contains(QStringLiteral("The open-file limit of 64 descriptors leaves room for about 6 point files "
                                                 "of ten-day periods open at once; the points of further periods cannot be "
                                                 "kept in their own files.\n")),
                 qPrintable(run.err));

        const QString dateless = points() + QStringLiteral("/DatelessPoints.sql");
        int opened = 0;   // the periods before the first that failed
        while (opened < kPeriods && rowsNamed(periodFile(opened), pointName(opened)) == 1)
            ++opened;
        QVERIFY2(opened > 0 && opened < kPeriods, qPrintable(QString::number(opened)));
        for (int i = 0; i < kPeriods; ++i) {
            const bool own = i < opened;
            QCOMPARE(rowsNamed(periodFile(i), pointName(i)), qint64(own ? 1 : 0));
            QCOMPARE(rowsNamed(dateless, pointName(i)), qint64(own ? 0 : 1));
        }
        QCOMPARE(rowsIn(dateless, QStringLiteral("HBGeoPoint")), qint64(kPeriods - opened));
        QCOMPARE(rowsIn(m_home.filePath(QStringLiteral("data/Fernwick/TrackManagerDatabase.sql")), QStringLiteral("HBGeoPoint")),
                 qint64(0));
        const QString failed = QStringLiteral("The store file %1 could not be opened.\n"
                                              "hb.manager: unable to open database file (Too many open files)\n"
                                              "hb.manager: Error occurred in addPersistentStoreForCoordinator:forDate:.\n")
                                   .arg(periodFile(opened));
        QVERIFY2(run.err.contains(failed), qPrintable(run.err));
    }
};

QTEST_GUILESS_MAIN(tst_HBOpenFileLimit)
#include "tst_HBOpenFileLimit.moc"
