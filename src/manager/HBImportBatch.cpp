#include "manager/HBImportBatch.h"

#include "import/HBFileImportOperation.h"
#include "import/HBImportOperationFactory.h"
#include "import/gpsbabel/HBGPSBabelImportOperation.h"
#include "import/gpsbabel/HBGPSBabelImporterPreflight.h"
#include "manager/HBErrorPresentation.h"
#include "manager/HBImportLock.h"
#include "manager/HBTrackManager.h"
#include "manager/HBTrackStoreLayout.h"
#include "platform/HBFileName.h"
#include "platform/HBMainThread.h"
#include "platform/HBOperationQueue.h"
#include "platform/store/HBFetchRequest.h"
#include "platform/store/HBManagedObject.h"
#include "platform/store/HBManagedObjectContext.h"

#include <QDirIterator>
#include <QFileInfo>
#include <QTimer>

HBImportBatch::HBImportBatch(HBTrackManager &manager)
    : m_manager(manager)
    , m_queue(std::make_unique<HBOperationQueue>())
{
    m_queue->setMaxConcurrentOperationCount(1);
}

HBImportBatch::~HBImportBatch() = default;

QStringList HBImportBatch::pathsToSkip(const QStringList &paths) const
{
    QStringList skip;
    for (const auto &operation : m_queue->operations()) {
        if (const auto *file = dynamic_cast<const HBFileImportOperation *>(operation.get()))
            skip.append(file->filePath());
    }
    std::unique_ptr<HBManagedObjectContext> context = m_manager.newPrivateQueueContext();
    context->performBlockAndWait([&] {
        HBFetchRequest request(QStringLiteral("HBImportSource"));
        request.setPredicate(HBPredicate::format(QStringLiteral(" filePath IN %@"), {paths}));
        for (const HBManagedObject *source : context->executeFetchRequest(request)) {
            const QString path = source->valueForKey(QStringLiteral("filePath")).toString();
            const HBFileName::Status file = HBFileName::status(path);
            if (file.exists && file.size != 0 && file.modified.isValid()
                && file.size == source->valueForKey(QStringLiteral("fileSize")).toLongLong()
                && file.modified == source->valueForKey(QStringLiteral("fileModificationDate")).toDateTime())
                skip.append(path);
        }
    });
    return skip;
}

void HBImportBatch::startBatch(qsizetype pathCount)
{
    change(m_progress.indeterminate, true, &HBImportBatch::indeterminateChanged);
    change(m_progress.inProgress, true, &HBImportBatch::inProgressChanged);
    change(m_progress.min, quint64(0), &HBImportBatch::minChanged);
    change(m_progress.max, quint64(0), &HBImportBatch::maxChanged);
    change(m_progress.lastFinished, quint64(0), &HBImportBatch::lastFinishedChanged);
    if (!m_periodicUpdateTimer) {
        m_periodicUpdateTimer = new QTimer(this);
        m_periodicUpdateTimer->setInterval(100);
        connect(m_periodicUpdateTimer, &QTimer::timeout, this, &HBImportBatch::updateImportOperation);
    }
    m_periodicUpdateTimer->start();
    change(m_progress.info, HBTrackManager::tr("Determining file lengths for %1 files").arg(pathCount),
           &HBImportBatch::infoChanged);
}

void HBImportBatch::showFileBeingImported()
{
    const QList<std::shared_ptr<HBOperation>> queued = m_queue->operations();
    const auto *first = queued.isEmpty() ? nullptr : dynamic_cast<const HBFileImportOperation *>(queued.first().get());
    if (first)
        change(m_progress.info, HBTrackManager::tr("Importing from %1").arg(QFileInfo(first->filePath()).fileName()),
               &HBImportBatch::infoChanged);
}

void HBImportBatch::importFilesAtPaths(const QStringList &paths)
{
    if (!importLock().tryLock()) {
        waitForImportTurn(paths);
        return;
    }
    queueImportsOfPaths(paths);
    endImportTurnWhenIdle();
}

HBImportLock &HBImportBatch::importLock()
{
    if (!m_importLock)
        m_importLock = std::make_unique<HBImportLock>(HBTrackStoreLayout::shared().supportFolder() + QStringLiteral("/ImportBatch.lock"));
    return *m_importLock;
}

// Polled rather than waited for: the main thread stays free, and a wait
// can be given up (cancelImport).
void HBImportBatch::waitForImportTurn(const QStringList &paths)
{
    m_pathsAwaitingTurn += paths;
    change(m_progress.indeterminate, true, &HBImportBatch::indeterminateChanged);
    change(m_progress.inProgress, true, &HBImportBatch::inProgressChanged);
    change(m_progress.info, HBTrackManager::tr("Waiting for another import to finish"), &HBImportBatch::infoChanged);
    if (!m_importTurnTimer) {
        m_importTurnTimer = new QTimer(this);
        m_importTurnTimer->setInterval(100);
        connect(m_importTurnTimer, &QTimer::timeout, this, &HBImportBatch::retryImportTurn);
    }
    m_importTurnTimer->start();
}

void HBImportBatch::retryImportTurn()
{
    if (!importLock().tryLock())
        return;
    queueImportsOfPaths(m_pathsAwaitingTurn);
    stopWaitingForImportTurn();
    endImportTurnWhenIdle();
}

// With nothing queued (all of it imported by the other process, or the
// wait cancelled) the wait was the whole batch, and its progress ends.
void HBImportBatch::stopWaitingForImportTurn()
{
    m_pathsAwaitingTurn.clear();
    m_importTurnTimer->stop();
    if (m_queue->operationCount() > 0)
        return;
    change(m_progress.indeterminate, false, &HBImportBatch::indeterminateChanged);
    change(m_progress.inProgress, false, &HBImportBatch::inProgressChanged);
}

void HBImportBatch::endImportTurnWhenIdle()
{
    if (m_queue->operationCount() == 0)
        importLock().unlock();
}

void HBImportBatch::queueImportsOfPaths(const QStringList &paths)
{
    m_manager.announceOwnSaves();
    const bool wasIndeterminate = m_progress.indeterminate;
    const QDateTime batchDate = QDateTime::currentDateTimeUtc();
    const QStringList skip = pathsToSkip(paths);
    const HBImportContexts contexts = m_manager.importContexts();
    bool first = true;
    for (const QString &path : paths) {
        if (skip.contains(path))
            continue;
        if (first && (!m_progress.inProgress || wasIndeterminate))
            startBatch(paths.size());
        first = false;
        std::shared_ptr<HBFileImportOperation> operation = HBImportOperationFactory::operationForPath(path, contexts);
        if (!operation)
            continue;
        operation->setFilePath(path);
        operation->setImportDate(batchDate);
        change(m_progress.max, m_progress.max + operation->numberOfCharacters(), &HBImportBatch::maxChanged);
        observeFinishOf(operation);
        m_queue->addOperation(operation);
    }
    if (m_queue->operationCount() > 0) {
        change(m_progress.indeterminate, false, &HBImportBatch::indeterminateChanged);
        showFileBeingImported();
    }
}

void HBImportBatch::cancelImport()
{
    m_queue->cancelAllOperations();
    if (!m_pathsAwaitingTurn.isEmpty())
        stopWaitingForImportTurn();
}

void HBImportBatch::updateImportOperation()
{
    const QList<std::shared_ptr<HBOperation>> queued = m_queue->operations();
    if (queued.isEmpty())
        return;
    const auto *first = dynamic_cast<const HBFileImportOperation *>(queued.first().get());
    change(m_progress.value, m_progress.lastFinished + (first ? first->currentCharacter() : 0), &HBImportBatch::valueChanged);
}

void HBImportBatch::importWithGPSBabelForWindow(QObject *window)
{
    m_gpsBabelImporter = std::make_unique<HBGPSBabelImporterPreflight>();
    m_gpsBabelImporter->prepareToDownloadWithDelegate(&m_manager, window);
}

void HBImportBatch::gpsBabelImporterDidFinishSuccessfully(HBGPSBabelImporterPreflight *importer, bool success)
{
    if (!success)
        return;
    auto operation = std::make_shared<HBGPSBabelImportOperation>();
    operation->setFileDestinationPath(importer->fileDestinationPath());
    operation->setGpsbabelArguments(importer->gpsbabelArguments());
    operation->setTargetWindow(importer->targetWindow());
    queueGPSBabelImportOperation(std::move(operation));
}

// The chunk travels with the signal: read from the operation later, two
// chunks that came in quick succession would show the second twice.
void HBImportBatch::handleGPSBabelOutputTextFromObject(HBGPSBabelImportOperation *operation, const QString &text)
{
    HBErrorPresentation::presentGPSBabelOutput(operation->targetWindow(), text);
}

void HBImportBatch::queueGPSBabelImportOperation(std::shared_ptr<HBGPSBabelImportOperation> operation)
{
    HBGPSBabelImportOperation *download = operation.get();
    // queued before the operation's end, so it runs while the operation lives
    connect(download, &HBGPSBabelImportOperation::babelOutputTextChanged, this,
            [this, download](const QString &text) { handleGPSBabelOutputTextFromObject(download, text); },
            Qt::QueuedConnection);
    observeFinishOf(operation);
    // A download starts no progress timer: it has no progress to show.
    change(m_progress.indeterminate, true, &HBImportBatch::indeterminateChanged);
    change(m_progress.inProgress, true, &HBImportBatch::inProgressChanged);
    change(m_progress.min, quint64(0), &HBImportBatch::minChanged);
    change(m_progress.max, quint64(0), &HBImportBatch::maxChanged);
    change(m_progress.value, quint64(0), &HBImportBatch::valueChanged);
    change(m_progress.info, HBTrackManager::tr("Downloading from GPS\u2026"), &HBImportBatch::infoChanged);
    m_queue->addOperation(std::move(operation));
}

// The connection keeps the operation alive until its bookkeeping is done.
void HBImportBatch::observeFinishOf(const std::shared_ptr<HBOperation> &operation)
{
    connect(operation.get(), &HBOperation::finished, this,
            [this, operation] {
                // disconnecting drops the captured pointer
                const std::shared_ptr<HBOperation> finished = operation;
                handleTrackOperationDidFinish(finished.get());
            },
            Qt::QueuedConnection);
}

void HBImportBatch::handleTrackOperationDidFinish(HBOperation *operation)
{
    disconnect(operation, &HBOperation::finished, this, nullptr);
    if (auto *download = qobject_cast<HBGPSBabelImportOperation *>(operation))
        handleDownloadDidFinish(download);
    else if (auto *file = qobject_cast<HBFileImportOperation *>(operation))
        handleFileImportDidFinish(file);
}

// The downloaded file goes through the file import like a dropped file; a
// failed download leaves the progress figures and text as they were.
void HBImportBatch::handleDownloadDidFinish(HBGPSBabelImportOperation *download)
{
    disconnect(download, &HBGPSBabelImportOperation::babelOutputTextChanged, this, nullptr);
    // A download cancelled before it started wrote nothing; the destination
    // may hold an older file that the user did not ask for now.
    const bool downloaded = !download->errorOccurredDuringDownload() && !download->isCancelled();
    if (downloaded)
        importFilesAtPaths({download->fileDestinationPath()});
    // A file unchanged since its last import queues nothing: without this
    // the download's progress would spin on with nothing left to end it.
    const bool nothingQueued = m_queue->operationCount() == 0 && m_pathsAwaitingTurn.isEmpty();
    if (!downloaded || nothingQueued)
        change(m_progress.inProgress, false, &HBImportBatch::inProgressChanged);
    // The turn of a file batch that the download waited behind ends here.
    endImportTurnWhenIdle();
}

void HBImportBatch::handleFileImportDidFinish(HBFileImportOperation *operation)
{
    emit didFinishFileImport(operation->report());
    change(m_progress.lastFinished, m_progress.lastFinished + operation->numberOfCharacters(),
           &HBImportBatch::lastFinishedChanged);
    HBMainThread::post([this] { emit didFinishBatchImport(); });
    if (m_queue->operationCount() > 0) {
        showFileBeingImported();
        return;
    }
    endProgress();
}

void HBImportBatch::endProgress()
{
    change(m_progress.inProgress, false, &HBImportBatch::inProgressChanged);
    if (m_periodicUpdateTimer)
        m_periodicUpdateTimer->stop();
    endImportTurnWhenIdle();
}

QStringList HBImportBatch::validFileTypes()
{
    return {QStringLiteral("gpx"), QStringLiteral("tcx"), QStringLiteral("nmea"),
            QStringLiteral("log"), QStringLiteral("txt"),  QStringLiteral("gps")};
}

HBPredicate HBImportBatch::validFileTypePredicate()
{
    static const HBPredicate predicate = [] {
        QList<HBPredicate> suffixes;
        for (const QString &type : validFileTypes())
            suffixes.append(HBPredicate::format(QStringLiteral("SELF endswith[cd] %@"), {u'.' + type}));
        return HBPredicate::orPredicate(suffixes);
    }();
    return predicate;
}

bool HBImportBatch::validateFilesAtPaths(const QStringList &paths)
{
    const HBPredicate valid = validFileTypePredicate();
    for (const QString &path : paths) {
        if (valid.evaluateWithValue(path))
            return true;
        if (!QFileInfo(path).isDir())
            continue;
        QDirIterator below(path, QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
        while (below.hasNext()) {
            if (valid.evaluateWithValue(below.next()))
                return true;
        }
    }
    return false;
}
