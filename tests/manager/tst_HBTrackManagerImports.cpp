#include "TemporaryHome.h"

#include "manager/HBTrackManager.h"
#include "model/HBTrack.h"
#include "platform/HBOperationQueue.h"

#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

// Import batches on the shared manager: what is queued and what skipped,
// the progress figures and texts, the announcements, and the newest batch.
class tst_HBTrackManagerImports : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    HBTrackManager *m_manager = nullptr;

    QString file(const QString &name, qsizetype characters)
    {
        // An RMC sentence, then padding lines of dashes: the length is exact.
        QByteArray text = "$GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W,A*6A\n";
        while (text.size() < characters)
            text += QByteArray(std::min<qsizetype>(40, characters - text.size() - 1), '-') + '\n';
        text.truncate(characters);
        const QString path = m_home.filePath(QStringLiteral("files/") + name);
        QDir().mkpath(QFileInfo(path).path());
        QFile f(path);
        if (f.open(QIODevice::WriteOnly))
            f.write(text);
        return path;
    }

    void waitForIdle()
    {
        QTRY_VERIFY_WITH_TIMEOUT(!m_manager->trackImportIsInProgress() && m_manager->trackImportQueue()->operationCount() == 0,
                                 60000);
    }

    qsizetype sourcesNamed(const QString &name)
    {
        qsizetype n = 0;
        std::unique_ptr<HBManagedObjectContext> context = m_manager->newPrivateQueueContext();
        context->performBlockAndWait([&] {
            HBFetchRequest request(QStringLiteral("HBImportSource"));
            request.setPredicate(HBPredicate::format(QStringLiteral("name == %@"), {name}));
            n = context->countForFetchRequest(request);
        });
        return n;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        useTemporaryHome(m_home);
        m_manager = HBTrackManager::sharedTrackManager();
    }

    void validFileTypesAreFoundBelowFolders_data()
    {
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<bool>("valid");
        QTest::newRow("deep GPX, any case") << QStringList{QStringLiteral("a/b/c/a.GPX")} << true;
        QTest::newRow("only KML") << QStringList{QStringLiteral("x/one.kml"), QStringLiteral("x/y/two.kml")} << false;
        QTest::newRow("an NMEA log") << QStringList{QStringLiteral("trip.Log")} << true;
        QTest::newRow("type without its dot") << QStringList{QStringLiteral("mygpx")} << false;
        QTest::newRow("nothing") << QStringList{} << false;
    }

    void validFileTypesAreFoundBelowFolders()
    {
        QFETCH(QStringList, files);
        QFETCH(bool, valid);
        QTemporaryDir root;
        for (const QString &f : files) {
            QDir().mkpath(QFileInfo(root.filePath(f)).path());
            QFile(root.filePath(f)).open(QIODevice::WriteOnly);
        }
        QCOMPARE(HBTrackManager::validateFilesAtPaths(files.isEmpty() ? QStringList() : QStringList{root.path()}), valid);
        QCOMPARE(HBTrackManager::validFileTypes(), (QStringList{QStringLiteral("gpx"), QStringLiteral("tcx"), QStringLiteral("nmea"),
                                                               QStringLiteral("log"), QStringLiteral("txt"), QStringLiteral("gps")}));
    }

    void recentImportsStartEmpty()
    {
        QVERIFY(m_manager->recentImports().isEmpty());
    }

    void aBatchCountsItsCharactersAndAnnouncesEachFile()
    {
        const QStringList paths{file(QStringLiteral("a.nmea"), 100), file(QStringLiteral("b.log"), 200),
                                file(QStringLiteral("c.txt"), 300)};
        QSignalSpy finished(m_manager, &HBTrackManager::didFinishBatchImport);
        QSignalSpy added(m_manager, &HBTrackManager::didAddNewImportSource);
        QStringList texts;
        QObject scope;   // the connection ends with this test
        connect(m_manager, &HBTrackManager::trackImportProgressInfoChanged, &scope,
                [&] { texts.append(m_manager->trackImportProgressInfo()); });
        m_manager->importFilesAtPaths(paths);
        QVERIFY(m_manager->trackImportIsInProgress());
        QVERIFY(!m_manager->trackImportIsIndeterminateProgress());
        QCOMPARE(m_manager->trackImportProgressMax(), quint64(600));
        waitForIdle();
        QTRY_COMPARE(finished.count(), 3);
        QCOMPARE(m_manager->trackImportLastFinishedProgressValue(), quint64(600));
        QCOMPARE(m_manager->trackImportProgressMin(), quint64(0));
        // the later files are named only if they are still queued when the
        // one before them is done
        QCOMPARE(texts.value(0), QStringLiteral("Determining file lengths for 3 files"));
        QCOMPARE(texts.value(1), QStringLiteral("Importing from a.nmea"));
        for (const QString &later : texts.mid(2))
            QVERIFY2(later == QLatin1String("Importing from b.log") || later == QLatin1String("Importing from c.txt"),
                     qPrintable(later));
        QTRY_VERIFY(added.count() >= 3);

        // the newest batch: one track per log
        QTRY_COMPARE(m_manager->recentImports().size(), 3);
    }

    void unchangedFilesAreNotImportedAgain()
    {
        const QString path = file(QStringLiteral("again.gps"), 120);
        QSignalSpy finished(m_manager, &HBTrackManager::didFinishBatchImport);
        m_manager->importFilesAtPaths({path});
        m_manager->importFilesAtPaths({path});   // still queued or running: not queued twice
        waitForIdle();
        QTRY_COMPARE(finished.count(), 1);
        QCOMPARE(sourcesNamed(QStringLiteral("again.gps")), 1);

        m_manager->importFilesAtPaths({path});   // imported and unchanged
        waitForIdle();
        QCOMPARE(finished.count(), 1);
        QCOMPARE(sourcesNamed(QStringLiteral("again.gps")), 1);

        QFile touched(path);
        QVERIFY(touched.open(QIODevice::ReadWrite));
        QVERIFY(touched.setFileTime(QDateTime::currentDateTimeUtc().addSecs(60), QFileDevice::FileModificationTime));
        touched.close();
        m_manager->importFilesAtPaths({path});
        waitForIdle();
        QTRY_COMPARE(finished.count(), 2);
        QCOMPARE(sourcesNamed(QStringLiteral("again.gps")), 2);
        // the newest batch holds the one track of that file
        QTRY_COMPARE(m_manager->recentImports().size(), 1);
    }

    void cancelledOperationsStillFinish()
    {
        QStringList paths;
        for (int i = 0; i < 6; ++i)
            paths.append(file(QStringLiteral("cancel%1.nmea").arg(i), 5000));
        QSignalSpy finished(m_manager, &HBTrackManager::didFinishBatchImport);
        m_manager->importFilesAtPaths(paths);
        m_manager->cancelImport();
        waitForIdle();
        QTRY_COMPARE(finished.count(), 6);
        QCOMPARE(m_manager->trackImportLastFinishedProgressValue(), quint64(30000));
    }

    // An unknown type still opens a batch that nothing will end; the next
    // real batch ends it.
    void unknownTypeLeavesTheBatchDetermining()
    {
        const QString doc = file(QStringLiteral("notes.doc"), 50);
        m_manager->importFilesAtPaths({doc});
        QVERIFY(m_manager->trackImportIsInProgress());
        QVERIFY(m_manager->trackImportIsIndeterminateProgress());
        QCOMPARE(m_manager->trackImportProgressInfo(), QStringLiteral("Determining file lengths for 1 files"));
        QCOMPARE(m_manager->trackImportQueue()->operationCount(), 0);
        QTest::qWait(300);
        QVERIFY(m_manager->trackImportIsInProgress());

        m_manager->importFilesAtPaths({file(QStringLiteral("after.nmea"), 80)});
        waitForIdle();
        QVERIFY(!m_manager->trackImportIsInProgress());
        QCOMPARE(m_manager->trackImportProgressMax(), quint64(80));
    }
};

QTEST_GUILESS_MAIN(tst_HBTrackManagerImports)
#include "tst_HBTrackManagerImports.moc"
