#pragma once

#include "import/HBImportContexts.h"
#include "import/HBImportReport.h"
#include "platform/HBOperation.h"

#include <QDateTime>
#include <QString>

#include <atomic>
#include <memory>

class HBError;
class HBImportSource;
class HBManagedObjectContext;

// The common base of the operations that read one file into the track
// database. It parses nothing and has no main(): each importer supplies
// main() and there (1) takes a context from its importContexts() and hands
// it to setManagedObjectContext, (2) does all its record work inside
// that context's performBlock / performBlockAndWait, (3) makes the file's
// import source with insertImportSource, and (4) saves the context before
// main() returns, noting in its report what it kept, the first problem of
// the file and how the save went.
//
// Life cycle:
//   1. configured, on the thread that queues the import: setImportContexts,
//      setFilePath (which measures the file), then setImportDate; the
//      manager then reads
//      numberOfCharacters for its progress total and queues the operation;
//   2. running, on an import-queue thread: main() as above, moving
//      currentCharacter forward as the file is read (optional);
//   3. finished: main() has returned; the manager adds numberOfCharacters
//      to its finished progress.
// filePath and importDate do not change after step 1, so only the two
// progress counters, read by the main thread while the import runs, need
// to be atomic.
class HBFileImportOperation : public HBOperation
{
    Q_OBJECT

public:
    // The file is read this many bytes at a time to count its characters.
    static constexpr qint64 kCharacterCountChunkBytes = 64 * 1024;

    ~HBFileImportOperation() override;

    // The context the records are made in; null until main() sets it.
    HBManagedObjectContext *managedObjectContext() const { return m_context; }
    // Where main() finds its context; without them it imports nothing.
    const HBImportContexts &importContexts() const { return m_contexts; }
    void setImportContexts(HBImportContexts contexts) { m_contexts = std::move(contexts); }

    QString filePath() const { return m_filePath; }
    // Also measures the file at once, on the caller's thread.
    void setFilePath(const QString &path);
    // The file's length in UTF-16 code units when read as UTF-8, the unit of
    // import progress; 0 for a file that is missing, unreadable, empty or
    // not valid UTF-8. A byte order mark counts as one unit (U+FEFF).
    quint64 numberOfCharacters() const { return m_numberOfCharacters; }
    // Progress within the file; the XML importers store the reader's byte
    // index here, so for a file that is not ASCII it may run ahead of or
    // behind numberOfCharacters until the import finishes.
    quint64 currentCharacter() const { return m_currentCharacter; }
    void setCurrentCharacter(quint64 character) { m_currentCharacter = character; }

    // The moment of the import batch, shared by all files queued together.
    QDateTime importDate() const { return m_importDate; }
    void setImportDate(const QDateTime &date) { m_importDate = date; }

    // What numberOfCharacters becomes for the file at path. The file is
    // decoded a chunk at a time and only the count is kept, so a file of
    // any size needs no more memory than one chunk.
    static quint64 numberOfCharactersInFile(const QString &path);

    // What the import brought in and what went wrong; read it once the
    // operation has finished (one that never ran reports nothing saved).
    HBImportReport report() const;

protected:
    HBFileImportOperation();

    // A context that the operation owns from now on, such as a fresh one
    // from importContexts().newContext; it goes with the operation.
    void setManagedObjectContext(std::unique_ptr<HBManagedObjectContext> context);
    // A context that stays its owner's and outlives the operation, such as
    // importContexts().sharedContext.
    void setSharedManagedObjectContext(HBManagedObjectContext *context);
    // False, logged, for an operation queued without contexts.
    bool hasImportContexts() const;

    // Inserts the record of this file into the context (on the context's
    // queue): source type 1, the file path, its last path component as the
    // name, the import date, and, as the file system reports them now, the
    // file's size in bytes (only when not 0) and its modification date
    // (only when known).
    HBImportSource *insertImportSource(HBManagedObjectContext *context) const;

    // What the import source is about to hold.
    void noteKept(qint64 tracks, qint64 points, qint64 waypoints);
    // Only the first problem is kept: what follows a fault is often its echo.
    void noteProblem(const QString &problem);
    void noteSaved();
    void noteSaveFailure(const HBError &error);

private:
    HBImportContexts m_contexts;
    std::unique_ptr<HBManagedObjectContext> m_ownedContext;
    HBManagedObjectContext *m_context = nullptr;
    QString m_filePath;
    std::atomic<quint64> m_numberOfCharacters = 0;
    std::atomic<quint64> m_currentCharacter = 0;
    QDateTime m_importDate;
    // written by main() on the import thread, read after it finished
    HBImportReport m_report;
};
