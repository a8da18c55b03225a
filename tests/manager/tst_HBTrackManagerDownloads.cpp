#include "TemporaryHome.h"

#include "import/gpsbabel/HBGPSBabelImportOperation.h"
#include "manager/HBTrackManager.h"
#include "model/HBImportSource.h"
#include "platform/HBOperationQueue.h"
#include "platform/store/HBFetchRequest.h"
#include "platform/store/HBManagedObjectContext.h"

#include <QFile>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

// Device downloads queued on the shared manager, with the real gpsbabel
// reading files in place of a receiver: a quiet download is imported as a
// batch of its own, a failed or cancelled one imports nothing.
class tst_HBTrackManagerDownloads : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    HBTrackManager *m_manager = nullptr;

    static QString corpus(const QString &name) { return QStringLiteral(HB_CORPUS_DIR "/") + name; }

    static std::shared_ptr<HBGPSBabelImportOperation> download(const QString &destination, const QStringList &input)
    {
        auto operation = std::make_shared<HBGPSBabelImportOperation>();
        operation->setFileDestinationPath(destination);
        operation->setGpsbabelArguments(input + QStringList{QStringLiteral("-o"), QStringLiteral("gpx"),
                                                            QStringLiteral("-F"), destination});
        return operation;
    }

    void waitForIdle()
    {
        QTRY_VERIFY_WITH_TIMEOUT(!m_manager->trackImportIsInProgress() && m_manager->trackImportQueue()->operationCount() == 0,
                                 60000);
    }

    // The import sources of the file: (tracks, waypoints) of each.
    QList<QPair<qsizetype, qsizetype>> importedFrom(const QString &path)
    {
        QList<QPair<qsizetype, qsizetype>> found;
        std::unique_ptr<HBManagedObjectContext> context = m_manager->newPrivateQueueContext();
        context->performBlockAndWait([&] {
            HBFetchRequest request(QStringLiteral("HBImportSource"));
            request.setPredicate(HBPredicate::format(QStringLiteral("filePath == %@"), {path}));
            for (const HBManagedObject *object : context->executeFetchRequest(request)) {
                const auto *source = static_cast<const HBImportSource *>(object);
                found.append({source->tracks().size(), source->waypoints().size()});
            }
        });
        return found;
    }

    qsizetype trackPointCount()
    {
        qsizetype n = 0;
        std::unique_ptr<HBManagedObjectContext> context = m_manager->newPrivateQueueContext();
        context->performBlockAndWait(
            [&] { n = context->countForFetchRequest(HBFetchRequest(QStringLiteral("HBTrackPoint"))); });
        return n;
    }

    // The changes of the batch state, in order, while the scope lives.
    QStringList m_states;
    void recordStates(QObject *scope)
    {
        m_states.clear();
        connect(m_manager, &HBTrackManager::trackImportIsInProgressChanged, scope, [this] {
            m_states.append(QStringLiteral("in progress: %1").arg(m_manager->trackImportIsInProgress()));
        });
        connect(m_manager, &HBTrackManager::trackImportIsIndeterminateProgressChanged, scope, [this] {
            m_states.append(QStringLiteral("indeterminate: %1").arg(m_manager->trackImportIsIndeterminateProgress()));
        });
        connect(m_manager, &HBTrackManager::trackImportProgressInfoChanged, scope,
                [this] { m_states.append(m_manager->trackImportProgressInfo()); });
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        useTemporaryHome(m_home);
        m_manager = HBTrackManager::sharedTrackManager();
    }

    void aQuietDownloadIsImported()
    {
        const QString destination = m_home.filePath(QStringLiteral("Tracks_2024_03_07.gpx"));
        QSignalSpy finished(m_manager, &HBTrackManager::didFinishBatchImport);
        QObject scope;
        recordStates(&scope);

        m_manager->queueGPSBabelImportOperation(
            download(destination, {QStringLiteral("-i"), QStringLiteral("gpx"), QStringLiteral("-f"),
                                   corpus(QStringLiteral("gpx/gpsbabel-fitwrite-mavi.gpx"))}));
        QCOMPARE(m_manager->trackImportProgressMax(), quint64(0));
        waitForIdle();

        QCOMPARE(m_states, (QStringList{QStringLiteral("indeterminate: 1"), QStringLiteral("in progress: 1"),
                                         QStringLiteral("Downloading from GPS\u2026"),
                                         QStringLiteral("Determining file lengths for 1 files"),
                                         QStringLiteral("indeterminate: 0"),
                                         QStringLiteral("Importing from Tracks_2024_03_07.gpx"),
                                         QStringLiteral("in progress: 0")}));
        // the file import is announced; the download itself is not
        QTRY_COMPARE(finished.count(), 1);
        QCOMPARE(importedFrom(destination), (QList<QPair<qsizetype, qsizetype>>{{1, 12}}));
        QCOMPARE(trackPointCount(), 64);
    }

    void aFailedDownloadImportsNothing_data()
    {
        QTest::addColumn<QStringList>("input");
        QTest::addColumn<bool>("cancel");
        QTest::addColumn<QString>("logged");   // a pattern; empty: nothing logged

        QTest::newRow("warning beside a written file")
            << QStringList{QStringLiteral("-i"), QStringLiteral("nmea"), QStringLiteral("-f"),
                           corpus(QStringLiteral("nmea/gpsd-com-1289.log"))}
            << false << QStringLiteral("^GPSBabel error: Invalid NMEA checksum");
        QTest::newRow("unknown receiver type")
            << QStringList{QStringLiteral("-i"), QStringLiteral("nosuchformat"), QStringLiteral("-f"), QStringLiteral("usb:")}
            << false << QStringLiteral("^GPSBabel error: .*nosuchformat");
        QTest::newRow("cancelled while the receiver stays silent")
            << QStringList{QStringLiteral("-i"), QStringLiteral("gpx"), QStringLiteral("-f"),
                           m_home.filePath(QStringLiteral("receiver"))}
            << true << QString();
    }

    void aFailedDownloadImportsNothing()
    {
        QFETCH(QStringList, input);
        QFETCH(bool, cancel);
        QFETCH(QString, logged);
        // an earlier download in the same place must not be imported either
        const QString destination = m_home.filePath(QStringLiteral("failed/%1.gpx").arg(QTest::currentDataTag()));
        QVERIFY(QDir().mkpath(QFileInfo(destination).path()));
        QFile::remove(destination);
        QVERIFY(QFile::copy(corpus(QStringLiteral("gpx/gpxgo-etrex10.gpx")), destination));
        const QString receiver = m_home.filePath(QStringLiteral("receiver"));
        if (cancel && !QFileInfo::exists(receiver))
            QCOMPARE(::mkfifo(QFile::encodeName(receiver).constData(), 0600), 0);
        if (logged.isEmpty())
            QTest::failOnWarning(QRegularExpression(QStringLiteral("GPSBabel error")));
        else
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression(logged));
        QSignalSpy finished(m_manager, &HBTrackManager::didFinishBatchImport);

        const std::shared_ptr<HBGPSBabelImportOperation> operation = download(destination, input);
        m_manager->queueGPSBabelImportOperation(operation);
        if (cancel) {
            QTRY_VERIFY(operation->isExecuting());
            m_manager->cancelImport();
        }
        waitForIdle();

        QVERIFY(importedFrom(destination).isEmpty());
        QCOMPARE(m_manager->trackImportProgressInfo(), QStringLiteral("Downloading from GPS\u2026"));
        QCoreApplication::processEvents();
        QCOMPARE(finished.count(), 0);
    }
};

QTEST_GUILESS_MAIN(tst_HBTrackManagerDownloads)
#include "tst_HBTrackManagerDownloads.moc"
