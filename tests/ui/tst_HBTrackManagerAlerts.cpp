#include "TemporaryHome.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

// A desktop host whose central store is not a database: the alert says so
// with the store's reason, offers only "Quit", and the program ends.
class tst_HBTrackManagerAlerts : public QObject
{
    Q_OBJECT

private slots:
    void unreadableStoreShowsTheQuitAlert()
    {
        QTemporaryDir home;
        const QString support = home.filePath(QStringLiteral("data/Fernwick"));
        QVERIFY(QDir().mkpath(support));
        QFile garbage(support + QStringLiteral("/TrackManagerDatabase.sql"));
        QVERIFY(garbage.open(QIODevice::WriteOnly));
        garbage.write(QByteArray(2048, 'z'));
        garbage.close();

        QProcess probe;
        QProcessEnvironment env = temporaryHomeEnvironment(home.path());
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        probe.setProcessEnvironment(env);
        probe.start(QStringLiteral(HB_ALERTS_PROBE_PATH), {});
        QVERIFY(probe.waitForFinished(60000));
        QCOMPARE(probe.exitStatus(), QProcess::NormalExit);
        QCOMPARE(probe.exitCode(), 1);
        const QStringList lines = QString::fromUtf8(probe.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 4);
        QCOMPARE(lines[0], QStringLiteral("text: An Error was encountered trying to load the track manager database."));
        QVERIFY2(lines[1].startsWith(QStringLiteral("informative: The store file ")), qPrintable(lines[1]));
        QVERIFY2(lines[1].contains(QStringLiteral("TrackManagerDatabase.sql")), qPrintable(lines[1]));
        QVERIFY2(lines[1].endsWith(QStringLiteral(". file is not a database")), qPrintable(lines[1]));
        QCOMPARE(lines[2], QStringLiteral("button: Quit"));
        QCOMPARE(lines[3], QStringLiteral("icon: warning"));
        // and the program did not go on past the alert
    }
};

QTEST_GUILESS_MAIN(tst_HBTrackManagerAlerts)
#include "tst_HBTrackManagerAlerts.moc"
