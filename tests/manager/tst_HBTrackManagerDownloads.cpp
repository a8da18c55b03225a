#include "TemporaryHome.h"

#include "import/gpsbabel/HBGPSBabelImportOperation.h"
#include "import/gpsbabel/HBGPSBabelImporterPreflight.h"
#include "manager/HBErrorPresentation.h"
#include "manager/HBTrackManager.h"
#include "model/HBImportSource.h"
#include "model/HBTrackPoint.h"
#include "platform/HBOperationQueue.h"
#include "platform/HBUserDefaults.h"
#include "platform/store/HBFetchRequest.h"
#include "platform/store/HBManagedObjectContext.h"

#include <QFile>
#include <QMutex>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QXmlStreamReader>

#include <sys/stat.h>

// Device downloads made as the sheet makes them, queued on the shared
// manager, with the real gpsbabel reading files in place of a receiver: a
// quiet download is imported as a batch of its own, one in which gpsbabel
// speaks or that is cancelled imports nothing.
class tst_HBTrackManagerDownloads : public QObject
{
    Q_OBJECT

    // (tracks, waypoints) of each import source of a file
    using Sources = QList<QPair<qsizetype, qsizetype>>;

    QTemporaryDir m_home;
    HBTrackManager *m_manager = nullptr;
    QObject m_window;   // where the sheet was shown
    QList<std::pair<QObject *, QString>> m_alerts;

    static QString corpus(const QString &name) { return QStringLiteral(HB_CORPUS_DIR "/") + name; }

    // The "Custom" receiver of `format` on `port`, saved to `destination`.
    void download(const QString &format, const QString &port, const QString &destination)
    {
        HBGPSBabelImporterPreflight preflight;
        preflight.setGpsTypesSelectionIndex(preflight.gpsTypes().size() - 1);
        preflight.setCustomInput(format);
        preflight.setInputSources({{{QStringLiteral("path"), port}, {QStringLiteral("name"), port}}});
        preflight.setTargetWindow(&m_window);
        preflight.setDelegate(m_manager);
        preflight.downloadToPath(destination);
    }

    void waitForIdle()
    {
        QTRY_VERIFY_WITH_TIMEOUT(!m_manager->trackImportIsInProgress() && m_manager->trackImportQueue()->operationCount() == 0,
                                 60000);
    }

    Sources importedFrom(const QString &path)
    {
        Sources found;
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

    // "latitude longitude" of every stored track point, sorted.
    QStringList storedPoints()
    {
        QStringList points;
        std::unique_ptr<HBManagedObjectContext> context = m_manager->newPrivateQueueContext();
        context->performBlockAndWait([&] {
            for (const HBManagedObject *object : context->executeFetchRequest(HBFetchRequest(QStringLiteral("HBTrackPoint")))) {
                const auto *point = static_cast<const HBTrackPoint *>(object);
                points.append(point->latitude()->toString() + u' ' + point->longitude()->toString());
            }
        });
        points.sort();
        return points;
    }

    static QStringList trackPointsIn(const QString &gpx)
    {
        QFile file(gpx);
        file.open(QIODevice::ReadOnly);
        QXmlStreamReader reader(&file);
        QStringList points;
        while (!reader.atEnd()) {
            if (reader.readNext() == QXmlStreamReader::StartElement && reader.name() == u"trkpt")
                points.append(QStringLiteral("%1 %2").arg(reader.attributes().value(QStringLiteral("lat")),
                                                          reader.attributes().value(QStringLiteral("lon"))));
        }
        points.sort();
        return points;
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
        HBErrorPresentation::setGPSBabelOutputPresenter(
            [this](QObject *window, const QString &text) { m_alerts.append({window, text}); });
    }

    void init()
    {
        m_alerts.clear();
        HBUserDefaults::standardUserDefaults().removeObjectForKey(kHBDefaultGPSBabelProgramPath);
    }

    // Runs first: the store holds this download's points only.
    void aCustomDownloadImportsThePointsGPSBabelWrote()
    {
        const QString destination = m_home.filePath(QStringLiteral("Tracks_2024_03_07.gpx"));
        QSignalSpy finished(m_manager, &HBTrackManager::didFinishBatchImport);
        QObject scope;
        recordStates(&scope);

        download(QStringLiteral("nmea"), corpus(QStringLiteral("nmea/gpsbabel-track.nmea")), destination);
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
        QCOMPARE(importedFrom(destination), (Sources{{1, 0}}));
        const QStringList written = trackPointsIn(destination);
        QCOMPARE(written.size(), 154);
        QCOMPARE(storedPoints(), written);
        QVERIFY(m_alerts.isEmpty());
    }

    void aDownloadInWhichGPSBabelSpeaksImportsNothing_data()
    {
        QTest::addColumn<QString>("format");
        QTest::addColumn<QString>("port");
        QTest::addColumn<bool>("cancel");
        QTest::addColumn<QString>("said");   // in the first alert; empty: no alert

        QTest::newRow("warning beside a written file")
            << "nmea" << corpus(QStringLiteral("nmea/gpsd-com-1289.log")) << false << "Invalid NMEA checksum";
        QTest::newRow("unknown receiver type") << "nosuchformat" << "usb:" << false << "nosuchformat";
        QTest::newRow("empty custom format: -f taken for the format") << "" << "usb:" << false << "Input type '-f'";
        QTest::newRow("cancelled while the receiver stays silent")
            << "gpx" << m_home.filePath(QStringLiteral("receiver")) << true << QString();
    }

    void aDownloadInWhichGPSBabelSpeaksImportsNothing()
    {
        QFETCH(QString, format);
        QFETCH(QString, port);
        QFETCH(bool, cancel);
        QFETCH(QString, said);
        // an earlier download in the same place must not be imported either
        const QString destination = m_home.filePath(QStringLiteral("failed/%1.gpx").arg(QTest::currentDataTag()));
        QVERIFY(QDir().mkpath(QFileInfo(destination).path()));
        QFile::remove(destination);
        QVERIFY(QFile::copy(corpus(QStringLiteral("gpx/gpxgo-etrex10.gpx")), destination));
        if (cancel && !QFileInfo::exists(port))
            QCOMPARE(::mkfifo(QFile::encodeName(port).constData(), 0600), 0);
        QSignalSpy finished(m_manager, &HBTrackManager::didFinishBatchImport);

        download(format, port, destination);
        const std::shared_ptr<HBOperation> operation = m_manager->trackImportQueue()->operations().value(0);
        QVERIFY(operation);
        QStringList chunks;
        QMutex chunksLock;
        connect(static_cast<HBGPSBabelImportOperation *>(operation.get()), &HBGPSBabelImportOperation::babelOutputTextChanged,
                this, [&](const QString &text) { QMutexLocker lock(&chunksLock); chunks.append(text); }, Qt::DirectConnection);
        if (cancel) {
            QTRY_VERIFY(operation->isExecuting());
            m_manager->cancelImport();
        }
        waitForIdle();

        QVERIFY(importedFrom(destination).isEmpty());
        QCOMPARE(m_manager->trackImportProgressInfo(), QStringLiteral("Downloading from GPS\u2026"));
        QCoreApplication::processEvents();
        QCOMPARE(finished.count(), 0);
        // one alert per chunk, on the sheet's window, in order
        QStringList alerted;
        for (const auto &[window, text] : std::as_const(m_alerts)) {
            QCOMPARE(window, &m_window);
            alerted.append(text);
        }
        QCOMPARE(alerted, chunks);
        QVERIFY(said.isEmpty() ? alerted.isEmpty() : alerted.value(0).contains(said));
    }

    // gpsbabel wrote nothing and said nothing: the file there is imported,
    // or skipped when it is unchanged since its import.
    void aProgramThatCannotStartImportsWhatIsThere_data()
    {
        QTest::addColumn<bool>("earlierDownload");
        QTest::addColumn<Sources>("sources");
        QTest::newRow("no file there") << false << Sources{{0, 0}};
        QTest::newRow("an imported file there") << true << Sources{{1, 2}};
    }

    void aProgramThatCannotStartImportsWhatIsThere()
    {
        QFETCH(bool, earlierDownload);
        QFETCH(Sources, sources);
        const QString destination = m_home.filePath(QStringLiteral("unstarted/%1.gpx").arg(QTest::currentDataTag()));
        QVERIFY(QDir().mkpath(QFileInfo(destination).path()));
        if (earlierDownload) {
            QVERIFY(QFile::copy(corpus(QStringLiteral("gpx/gpxgo-etrex10.gpx")), destination));
            m_manager->importFilesAtPaths({destination});
            waitForIdle();
        }
        HBUserDefaults::standardUserDefaults().setObject(m_home.filePath(QStringLiteral("no/gpsbabel")),
                                                         kHBDefaultGPSBabelProgramPath);
        QSignalSpy files(m_manager, &HBTrackManager::didFinishFileImport);

        download(QStringLiteral("nmea"), corpus(QStringLiteral("nmea/gpsbabel-track.nmea")), destination);
        waitForIdle();

        QCOMPARE(importedFrom(destination), sources);
        QCOMPARE(files.count(), earlierDownload ? 0 : 1);
        QVERIFY(m_alerts.isEmpty());
    }

    void aDownloadWaitsForTheFileImportQueuedBeforeIt()
    {
        QStringList finishedInOrder;
        QMutex lock;
        const auto noteEnd = [&](const QString &what) {
            return [&, what] { QMutexLocker locked(&lock); finishedInOrder.append(what); };
        };
        const QString large = m_home.filePath(QStringLiteral("edge-800.gpx"));
        QVERIFY(QFile::copy(corpus(QStringLiteral("gpx/gpsbabel-garmin-edge-800-output.gpx")), large));
        m_manager->importFilesAtPaths({large});
        const std::shared_ptr<HBOperation> fileImport = m_manager->trackImportQueue()->operations().value(0);
        download(QStringLiteral("gpx"), corpus(QStringLiteral("gpx/gpsbabel-gpx_subsecond-sample.gpx")),
                 m_home.filePath(QStringLiteral("small.gpx")));
        const std::shared_ptr<HBOperation> download = m_manager->trackImportQueue()->operations().value(1);
        QVERIFY(fileImport && download);
        connect(fileImport.get(), &HBOperation::finished, this, noteEnd(QStringLiteral("file")), Qt::DirectConnection);
        connect(download.get(), &HBOperation::finished, this, noteEnd(QStringLiteral("download")), Qt::DirectConnection);
        waitForIdle();
        QCOMPARE(finishedInOrder, (QStringList{QStringLiteral("file"), QStringLiteral("download")}));
        QCOMPARE(importedFrom(m_home.filePath(QStringLiteral("small.gpx"))), (Sources{{1, 0}}));
    }
};

QTEST_GUILESS_MAIN(tst_HBTrackManagerDownloads)
#include "tst_HBTrackManagerDownloads.moc"
