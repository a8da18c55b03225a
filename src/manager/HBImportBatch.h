#pragma once

#include "import/HBImportReport.h"
#include "platform/store/HBPredicate.h"

#include <QObject>
#include <QStringList>

#include <memory>

class HBFileImportOperation;
class HBGPSBabelImportOperation;
class HBGPSBabelImporterPreflight;
class HBImportLock;
class HBOperation;
class HBOperationQueue;
class HBTrackManager;
class QTimer;

// The import queue of the shared track manager and the progress of the
// batch it runs, on the main thread.
//
// One operation runs at a time; file imports and device downloads share
// the queue. Files queued together form a batch: progress is the sum of
// their character counts, ticked every 0.1 s. Processes importing into the
// same store files take turns through a lock in the support folder, held
// from a batch's start to its end.
class HBImportBatch : public QObject
{
    Q_OBJECT

public:
    explicit HBImportBatch(HBTrackManager &manager);
    ~HBImportBatch() override;

    HBOperationQueue *queue() const { return m_queue.get(); }

    // The file types the importers read ("gpx", "tcx", "nmea", "log",
    // "txt", "gps"), and a predicate on paths that ends in one of them.
    static QStringList validFileTypes();
    static HBPredicate validFileTypePredicate();
    // Whether any path, or any file below a folder among them, has a
    // valid type. Names only: no file is opened.
    static bool validateFilesAtPaths(const QStringList &paths);

    // Queues one import operation per file whose extension has an importer,
    // skipping files already queued and files imported before that have
    // not changed since; returns at once. A call while a batch runs joins it.
    // While another process's batch runs, the paths wait (the progress in
    // progress and indeterminate, "Waiting for another import to finish"),
    // and are looked at only once it has ended, so that what it imported is
    // skipped as unchanged.
    void importFilesAtPaths(const QStringList &paths);
    // Those already queued, and those imported before whose size and
    // modification date have not changed since.
    QStringList pathsToSkip(const QStringList &paths) const;
    // Cancels every queued operation, and paths waiting for their turn;
    // each operation still finishes, as cancelled.
    void cancelImport();
    // The progress tick.
    void updateImportOperation();
    // A new download sheet on the window, with the manager as its delegate;
    // it stays in gpsBabelImporter until the next one replaces it.
    void importWithGPSBabelForWindow(QObject *window);
    HBGPSBabelImporterPreflight *gpsBabelImporter() const { return m_gpsBabelImporter.get(); }
    // With success, queues the download the sheet describes: the progress
    // turns indeterminate with "Downloading from GPS…"; a download that
    // succeeds imports its file as a batch of its own, one that fails only
    // ends the progress.
    void gpsBabelImporterDidFinishSuccessfully(HBGPSBabelImporterPreflight *importer, bool success);
    // Shows one chunk of gpsbabel's output on the download's window.
    void handleGPSBabelOutputTextFromObject(HBGPSBabelImportOperation *operation, const QString &text);
    // Bookkeeping when an operation is done.
    void handleTrackOperationDidFinish(HBOperation *operation);

    struct Progress
    {
        bool inProgress = false;
        bool indeterminate = false;
        quint64 min = 0, max = 0, value = 0, lastFinished = 0;
        QString info;
    };
    const Progress &progress() const { return m_progress; }

signals:
    void inProgressChanged();
    void indeterminateChanged();
    void minChanged();
    void maxChanged();
    void valueChanged();
    void lastFinishedChanged();
    void infoChanged();
    void didFinishFileImport(const HBImportReport &report);
    void didFinishBatchImport();

private:
    void queueImportsOfPaths(const QStringList &paths);
    HBImportLock &importLock();
    void waitForImportTurn(const QStringList &paths);
    void retryImportTurn();
    void stopWaitingForImportTurn();
    void endImportTurnWhenIdle();
    void startBatch(qsizetype pathCount);
    void endProgress();
    void observeFinishOf(const std::shared_ptr<HBOperation> &operation);
    void queueGPSBabelImportOperation(std::shared_ptr<HBGPSBabelImportOperation> operation);
    void handleDownloadDidFinish(HBGPSBabelImportOperation *download);
    void handleFileImportDidFinish(HBFileImportOperation *operation);
    void showFileBeingImported();
    // Changes are announced only when the value really changes.
    template<class T> void change(T &field, const T &value, void (HBImportBatch::*changed)())
    {
        if (field == value)
            return;
        field = value;
        emit (this->*changed)();
    }

    HBTrackManager &m_manager;
    std::unique_ptr<HBOperationQueue> m_queue;
    Progress m_progress;
    QTimer *m_periodicUpdateTimer = nullptr;
    std::unique_ptr<HBImportLock> m_importLock;
    QStringList m_pathsAwaitingTurn;
    QTimer *m_importTurnTimer = nullptr;   // retries the lock while paths wait
    std::unique_ptr<HBGPSBabelImporterPreflight> m_gpsBabelImporter;
};
