#include "platform/HBUserDefaults.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <atomic>
#include <memory>
#include <vector>

namespace {

// Each test uses keys of its own: the defaults are one object per process.
constexpr int kThreads = 4;
constexpr int kKeysPerThread = 100;

} // namespace

class tst_HBUserDefaults : public QObject
{
    Q_OBJECT

    QTemporaryDir m_configHome;

    QString settingsFileText() const
    {
        QFile file(m_configHome.filePath(QStringLiteral("Fernwick/Fernwick.conf")));
        if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
            return {};
        return QString::fromUtf8(file.readAll());
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_configHome.isValid());
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_configHome.path()));

        // The file an earlier run (or the user with an editor) left behind.
        QVERIFY(QDir(m_configHome.path()).mkpath(QStringLiteral("Fernwick")));
        QFile file(m_configHome.filePath(QStringLiteral("Fernwick/Fernwick.conf")));
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Text));
        file.write("[General]\n"
                   "flagTrue=true\n"
                   "flagYes=YES\n"
                   "flagNo=no\n"
                   "flagFalse=false\n"
                   "count=42\n"
                   "negative=-7\n"
                   "decimal=3.75\n"
                   "negativeDecimal=-3.75\n"
                   "beyondDoubles=9007199254740993\n"
                   "zero=0\n"
                   "title=Recent Imports\n"
                   "\n"
                   "[Import]\n"
                   "lastFolder=/home/user/tracks\n");
    }

    void readsWhatAnEarlierRunStored_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("text");
        QTest::addColumn<qint64>("integer");
        QTest::addColumn<bool>("flag");

        QTest::newRow("true") << "flagTrue" << "true" << qint64(1) << true;
        QTest::newRow("YES") << "flagYes" << "YES" << qint64(1) << true;
        QTest::newRow("no is false") << "flagNo" << "no" << qint64(0) << false;
        QTest::newRow("false") << "flagFalse" << "false" << qint64(0) << false;
        QTest::newRow("integer") << "count" << "42" << qint64(42) << true;
        QTest::newRow("negative integer") << "negative" << "-7" << qint64(-7) << true;
        QTest::newRow("decimal truncated") << "decimal" << "3.75" << qint64(3) << true;
        QTest::newRow("negative decimal truncated") << "negativeDecimal" << "-3.75" << qint64(-3) << true;
        QTest::newRow("integer beyond doubles") << "beyondDoubles" << "9007199254740993"
                                                << qint64(9007199254740993) << true;
        QTest::newRow("zero") << "zero" << "0" << qint64(0) << false;
        QTest::newRow("text") << "title" << "Recent Imports" << qint64(0) << false;
        QTest::newRow("in a group") << "Import/lastFolder" << "/home/user/tracks" << qint64(0) << false;
        QTest::newRow("missing") << "neverStored" << "" << qint64(0) << false;
    }

    void readsWhatAnEarlierRunStored()
    {
        QFETCH(QString, key);
        QFETCH(QString, text);
        QFETCH(qint64, integer);
        QFETCH(bool, flag);

        const HBUserDefaults &defaults = HBUserDefaults::standardUserDefaults();
        QCOMPARE(defaults.stringForKey(key), text);
        QCOMPARE(defaults.integerForKey(key), integer);
        QCOMPARE(defaults.boolForKey(key), flag);
    }

    void typedReadsAgreeWithTheTextTheFileKeeps_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QString>("text");
        QTest::addColumn<qint64>("integer");
        QTest::addColumn<bool>("flag");

        QTest::newRow("bool true") << QVariant(true) << "true" << qint64(1) << true;
        QTest::newRow("bool false") << QVariant(false) << "false" << qint64(0) << false;
        QTest::newRow("int") << QVariant(42) << "42" << qint64(42) << true;
        QTest::newRow("large qint64") << QVariant(qint64(9007199254740993)) << "9007199254740993"
                                      << qint64(9007199254740993) << true;
        QTest::newRow("double") << QVariant(3.75) << "3.75" << qint64(3) << true;
        QTest::newRow("small double") << QVariant(0.5) << "0.5" << qint64(0) << true;
        QTest::newRow("word no") << QVariant(QStringLiteral("no")) << "no" << qint64(0) << false;
    }

    void typedReadsAgreeWithTheTextTheFileKeeps()
    {
        QFETCH(QVariant, value);
        QFETCH(QString, text);
        QFETCH(qint64, integer);
        QFETCH(bool, flag);

        // The typed value as this run sets it, and the text a later run reads
        // back from the file, must answer alike.
        HBUserDefaults &defaults = HBUserDefaults::standardUserDefaults();
        const QString typedKey = QStringLiteral("typed/%1").arg(QTest::currentDataTag());
        const QString textKey = QStringLiteral("text/%1").arg(QTest::currentDataTag());
        defaults.setObject(value, typedKey);
        defaults.setObject(text, textKey);
        for (const QString &key : {typedKey, textKey}) {
            QCOMPARE(defaults.stringForKey(key), text);
            QCOMPARE(defaults.integerForKey(key), integer);
            QCOMPARE(defaults.boolForKey(key), flag);
        }
    }

    void registeredDefaultsAnswerButAreNeverWritten()
    {
        HBUserDefaults &defaults = HBUserDefaults::standardUserDefaults();
        defaults.registerDefaults({{QStringLiteral("showWaypoints"), true},
                                   {QStringLiteral("recentCount"), 10},
                                   {QStringLiteral("windowTitle"), QStringLiteral("Tracks")}});
        defaults.registerDefaults({{QStringLiteral("windowTitle"), QStringLiteral("Recent Imports")}});

        QCOMPARE(defaults.objectForKey(QStringLiteral("recentCount")), QVariant(10));
        QCOMPARE(defaults.stringForKey(QStringLiteral("windowTitle")), QStringLiteral("Recent Imports"));
        QVERIFY(!defaults.objectForKey(QStringLiteral("neverRegistered")).isValid());

        // A stored value wins over the default, also when it is false or zero.
        defaults.setObject(false, QStringLiteral("showWaypoints"));
        defaults.setObject(0, QStringLiteral("recentCount"));
        QCOMPARE(defaults.boolForKey(QStringLiteral("showWaypoints")), false);
        QCOMPARE(defaults.integerForKey(QStringLiteral("recentCount")), qint64(0));
        defaults.synchronize();
        QVERIFY(settingsFileText().contains(QStringLiteral("showWaypoints=false")));

        // Removing the stored value, either way, brings the default back.
        defaults.removeObjectForKey(QStringLiteral("showWaypoints"));
        defaults.setObject(QVariant(), QStringLiteral("recentCount"));
        QCOMPARE(defaults.boolForKey(QStringLiteral("showWaypoints")), true);
        QCOMPARE(defaults.integerForKey(QStringLiteral("recentCount")), qint64(10));

        defaults.synchronize();
        const QString file = settingsFileText();
        QVERIFY(file.contains(QStringLiteral("title=Recent Imports"))); // the earlier run's values stay
        QVERIFY(!file.contains(QStringLiteral("showWaypoints")));
        QVERIFY(!file.contains(QStringLiteral("recentCount")));
        QVERIFY(!file.contains(QStringLiteral("windowTitle")));
    }

    void concurrentWritersLoseNothing()
    {
        HBUserDefaults &defaults = HBUserDefaults::standardUserDefaults();
        std::atomic<int> misreads = 0;
        std::vector<std::unique_ptr<QThread>> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back(QThread::create([&defaults, &misreads, t] {
                for (int k = 0; k < kKeysPerThread; ++k) {
                    const QString key = QStringLiteral("concurrent/t%1k%2").arg(t).arg(k);
                    defaults.setObject(t * kKeysPerThread + k, key);
                    if (defaults.integerForKey(key) != t * kKeysPerThread + k)
                        ++misreads;
                }
                defaults.synchronize();
            }));
            threads.back()->start();
        }
        for (const auto &thread : threads)
            QVERIFY(thread->wait());
        QCOMPARE(misreads.load(), 0);

        for (int t = 0; t < kThreads; ++t) {
            for (int k = 0; k < kKeysPerThread; ++k) {
                const QString key = QStringLiteral("concurrent/t%1k%2").arg(t).arg(k);
                QCOMPARE(defaults.integerForKey(key), qint64(t * kKeysPerThread + k));
            }
        }
    }
};

QTEST_GUILESS_MAIN(tst_HBUserDefaults)
#include "tst_HBUserDefaults.moc"
