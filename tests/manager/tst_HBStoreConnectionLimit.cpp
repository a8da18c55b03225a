#include "ProbeProcess.h"
#include "SqliteRows.h"

#include <QDateTime>
#include <QDir>
#include <QTemporaryDir>
#include <QTest>

// Points are kept in one file per ten-day period, and a library holds many
// more files than a process may keep open. The probe saves one point into
// each of a hundred periods, then lists them in a second run, both under
// a limit of 64 open files: every point must reach its own period's file
// and be read back, without a file that failed to open.
class tst_HBStoreConnectionLimit : public QObject
{
    Q_OBJECT

    static constexpr int kPeriods = 100;
    static constexpr qint64 kFirstPeriod = 328;   // 2010-01-01 is day 3287 after 2001-01-01

    static QString pointName(int i)
    {
        const QDateTime first(QDate(2010, 1, 1), QTime(12, 0), Qt::UTC);
        return first.addDays(10 * i).toString(Qt::ISODate);
    }

private slots:
    void everyPeriodKeepsItsPointsUnderATightLimit()
    {
        QTemporaryDir home;
        QStringList insert{QStringLiteral("nofile"), QStringLiteral("64"), QStringLiteral("64"), QStringLiteral("insert")};
        QStringList names;
        for (int i = 0; i < kPeriods; ++i)
            names.append(pointName(i));
        const ProbeRun saved = runProbe(QStringLiteral(HB_PROBE_PATH), insert + names, temporaryHomeEnvironment(home.path()));
        QCOMPARE(saved.exitCode, 0);
        QVERIFY2(saved.err.isEmpty(), qPrintable(saved.err));
        const QString points = home.filePath(QStringLiteral("data/Fernwick/PointDatabases"));
        for (int i = 0; i < kPeriods; ++i) {
            const QString file = points + QStringLiteral("/%1.sql").arg(kFirstPeriod + i);
            QCOMPARE(rowsIn(file, QStringLiteral("HBGeoPoint"), QStringLiteral("name = '%1'").arg(pointName(i))), qint64(1));
        }

        const ProbeRun listed = runProbe(QStringLiteral(HB_PROBE_PATH),
                                         {QStringLiteral("nofile"), QStringLiteral("64"), QStringLiteral("64"), QStringLiteral("list")},
                                         temporaryHomeEnvironment(home.path()));
        QCOMPARE(listed.exitCode, 0);
        QVERIFY2(listed.err.isEmpty(), qPrintable(listed.err));
        const QStringList &lines = listed.out;
        QCOMPARE(lines.mid(0, kPeriods), names);
        // the central and dateless stores, and every period, stay addressable
        QCOMPARE(lines.size(), kPeriods + 2 + kPeriods);
    }
};

QTEST_GUILESS_MAIN(tst_HBStoreConnectionLimit)
#include "tst_HBStoreConnectionLimit.moc"
