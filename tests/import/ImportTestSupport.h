#pragma once

// What the importer tests share: files written into a test folder, one
// import run to its end on a serial queue, the records of an imported file
// as a fresh context reads them back (as text lines, so that a test compares
// everything at once), the log lines of the import subsystem, and the
// import probe, a separate process that imports one file into a home of its
// own or counts what a home holds.

#include "import/HBXMLFileImportOperation.h"
#include "manager/HBTrackManager.h"
#include "model/HBEvent.h"
#include "model/HBGeoPointSymbol.h"
#include "model/HBImportSource.h"
#include "model/HBTrack.h"
#include "model/HBTrackPoint.h"
#include "model/HBTrackSegment.h"
#include "model/HBWaypoint.h"
#include "platform/HBOperationQueue.h"
#include "platform/store/HBFetchRequest.h"
#include "platform/store/HBManagedObjectContext.h"

#include <QDir>
#include <QFile>
#include <QMutex>
#include <QProcess>
#include <QProcessEnvironment>
#include <QSet>
#include <QStringList>
#include <QTemporaryDir>
#include <QTest>

#include "TemporaryHome.h"

#include <algorithm>
#include <memory>

namespace importtest {

inline bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

// In the track manager's stores, as an import the manager queues.
inline void runToEnd(const std::shared_ptr<HBFileImportOperation> &operation)
{
    operation->setImportContexts(HBTrackManager::sharedTrackManager()->importContexts());
    HBOperationQueue queue;
    queue.setMaxConcurrentOperationCount(1);
    queue.addOperation(operation);
    queue.waitUntilAllOperationsAreFinished();
}

// "<data tag>.<extension>", the file name of a data row's document.
inline QString dataTagFileName(const char *extension)
{
    return QString::fromUtf8(QTest::currentDataTag()) + u'.' + QLatin1String(extension);
}

// A test's home: the XDG folders of the stores, and a folder for the files
// it imports.
class ImportTestHome
{
public:
    // For initTestCase: points the XDG folders here and opens the stores.
    bool setUp()
    {
        if (!m_dir.isValid() || !QDir().mkpath(filePath({})))
            return false;
        useTemporaryHome(m_dir);
        return HBTrackManager::sharedTrackManager() != nullptr;
    }
    QString filePath(const QString &name) const { return m_dir.filePath(QStringLiteral("files/") + name); }

    // Writes the bytes under the name, imports the file to the end of its
    // save and returns its path; empty when the file was not written or the
    // operation did not finish.
    template<class Operation>
    QString import(const QByteArray &bytes, const QString &name,
                   std::shared_ptr<Operation> operation = std::make_shared<Operation>())
    {
        const QString path = filePath(name);
        if (!writeFile(path, bytes))
            return {};
        operation->setFilePath(path);
        operation->setImportDate(QDateTime(QDate(2024, 5, 6), QTime(7, 8, 9), Qt::UTC));
        runToEnd(operation);
        return operation->isFinished() ? path : QString();
    }

private:
    QTemporaryDir m_dir;
};

inline HBImportSource *importSourceWithPath(HBManagedObjectContext *context, const QString &path)
{
    HBFetchRequest request(QStringLiteral("HBImportSource"));
    request.setPredicate(HBPredicate::format(QStringLiteral("filePath == %@"), {path}));
    const QList<HBManagedObject *> found = context->executeFetchRequest(request);
    return found.size() == 1 ? static_cast<HBImportSource *>(found.first()) : nullptr;
}

inline QString decimalText(const std::optional<HBDecimal> &value)
{
    return value ? value->toString() : QStringLiteral("-");
}

// "<lat> <lon>" and then only the values that are set, in a fixed order.
inline QString describePoint(const HBGeoPoint *point)
{
    QString line = decimalText(point->latitude()) + u' ' + decimalText(point->longitude());
    const auto add = [&line](const char *key, const QString &value) {
        if (!value.isNull())
            line += u' ' + QLatin1String(key) + u'=' + value;
    };
    if (point->elevation())
        add("ele", point->elevation()->toString());
    if (point->date().isValid())
        add("time", point->date().toString(Qt::ISODateWithMs));
    add("name", point->name());
    add("cmt", point->gpsComment());
    add("desc", point->notes());
    add("sym", point->symbolName());
    return line;
}

inline QString describeTrack(const HBTrack *track)
{
    QString line = QStringLiteral("track %1").arg(track->order());
    const auto add = [&line](const char *key, const QString &value) {
        if (!value.isNull())
            line += u' ' + QLatin1String(key) + u'=' + value;
    };
    add("name", track->name());
    add("cmt", track->gpsComment());
    add("desc", track->notes());
    return line;
}

template<class Record> QList<Record *> byOrder(const QList<HBManagedObject *> &objects)
{
    QList<Record *> records;
    for (HBManagedObject *object : objects)
        records.append(static_cast<Record *>(object));
    std::stable_sort(records.begin(), records.end(),
                     [](const Record *a, const Record *b) { return a->order() < b->order(); });
    return records;
}

// The tracks (with their segments and points) and then the waypoints that
// the import source of the file holds, each by order, as a fresh context of
// the shared manager reads them from the files; kNoImportSource when no
// import source has that path.
inline const QStringList kNoImportSource{QStringLiteral("no import source")};

inline QStringList describeImport(const QString &path)
{
    std::unique_ptr<HBManagedObjectContext> context = HBTrackManager::sharedTrackManager()->newManagedObjectContext();
    QStringList lines = kNoImportSource;
    context->performBlockAndWait([&] {
        const HBImportSource *source = importSourceWithPath(context.get(), path);
        if (!source)
            return;
        lines.clear();
        for (const HBTrack *track : byOrder<HBTrack>(source->tracks())) {
            lines << describeTrack(track);
            for (HBTrackSegment *segment : track->segments()) {
                lines << QStringLiteral("  segment %1").arg(segment->order().value_or(-1));
                for (const HBTrackPoint *point : segment->points())
                    lines << QStringLiteral("    ") + describePoint(point);
            }
        }
        for (const HBWaypoint *waypoint : byOrder<HBWaypoint>(source->waypoints()))
            lines << QStringLiteral("waypoint %1 ").arg(waypoint->order()) + describePoint(waypoint);
    });
    return lines;
}

// The IDs of every saved record of the entity, to tell new records from old.
inline QSet<HBManagedObjectID> savedIDs(const QString &entity)
{
    std::unique_ptr<HBManagedObjectContext> context = HBTrackManager::sharedTrackManager()->newManagedObjectContext();
    QSet<HBManagedObjectID> ids;
    context->performBlockAndWait([&] {
        HBFetchRequest request(entity);
        const QList<HBManagedObjectID> found = context->executeFetchRequestForObjectIDs(request);
        ids = QSet<HBManagedObjectID>(found.cbegin(), found.cend());
    });
    return ids;
}

// Counts of the records saved between two looks at the stores.
class SavedRecords
{
public:
    SavedRecords() { m_before = look(); }
    // "tracks segments points waypoints events", new since construction.
    QString added() const
    {
        const QList<qsizetype> now = look();
        QStringList counts;
        for (qsizetype i = 0; i < now.size(); ++i)
            counts << QString::number(now[i] - m_before[i]);
        return counts.join(u' ');
    }

private:
    static QList<qsizetype> look()
    {
        QList<qsizetype> counts;
        for (const char *entity : {"HBTrack", "HBTrackSegment", "HBTrackPoint", "HBWaypoint", "HBEvent"})
            counts << savedIDs(QLatin1String(entity)).size();
        return counts;
    }
    QList<qsizetype> m_before;
};

// Collects the messages of the import subsystem ("hb.import") logged from
// any thread while it exists.
class ImportLog
{
public:
    ImportLog()
    {
        current() = this;
        m_previous = qInstallMessageHandler(&ImportLog::handle);
    }
    ~ImportLog()
    {
        qInstallMessageHandler(m_previous);
        current() = nullptr;
    }
    QStringList lines() const
    {
        QMutexLocker lock(&m_mutex);
        return m_lines;
    }

private:
    static ImportLog *&current()
    {
        static ImportLog *log = nullptr;
        return log;
    }
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &message)
    {
        ImportLog *log = current();
        if (log && qstrcmp(context.category, "hb.import") == 0) {
            QMutexLocker lock(&log->m_mutex);
            log->m_lines << message;
            return;
        }
        if (log && log->m_previous)
            log->m_previous(type, context, message);
    }
    mutable QMutex m_mutex;
    QStringList m_lines;
    QtMessageHandler m_previous = nullptr;
};

// The import probe, run with its XDG folders in `home`.
struct ProbeRun
{
    int exitCode = -1;
    bool finished = false;
    QString output;
};

inline ProbeRun runProbe(const QString &home, const QStringList &arguments)
{
    QProcess probe;
    probe.setProcessEnvironment(temporaryHomeEnvironment(home));
    probe.setProgram(QStringLiteral(HB_IMPORT_PROBE_PATH));
    probe.setArguments(arguments);
    probe.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    probe.start();
    ProbeRun run;
    // a hanging import is a failure, not a stuck test
    run.finished = probe.waitForFinished(120000);
    if (!run.finished)
        probe.kill();
    run.exitCode = probe.exitStatus() == QProcess::NormalExit ? probe.exitCode() : -1;
    run.output = QString::fromUtf8(probe.readAllStandardOutput()).trimmed();
    return run;
}

// A row of the corpus tests: the file (relative to the corpus folder) and
// the probe's count line for it.
inline void addCorpusRow(const char *file, const char *linked, const char *saved)
{
    QTest::newRow(file) << QString::fromLatin1(file)
                        << QStringLiteral("sources 1 linked %1 saved %2").arg(QLatin1String(linked), QLatin1String(saved));
}

// Imports the corpus file in a process of its own over an empty home, then
// counts in a second process, which opens the stores afresh.
inline QString importAndCountInFreshHome(const QString &corpusFile)
{
    const QTemporaryDir freshHome;
    const QString home = freshHome.path();
    const QString file = QStringLiteral(HB_CORPUS_DIR "/") + corpusFile;
    const ProbeRun import = runProbe(home, {QStringLiteral("import"), file});
    if (!import.finished || import.exitCode != 0)
        return QStringLiteral("import failed: finished %1, exit code %2").arg(import.finished).arg(import.exitCode);
    const ProbeRun count = runProbe(home, {QStringLiteral("count")});
    if (!count.finished || count.exitCode != 0)
        return QStringLiteral("count failed: finished %1, exit code %2").arg(count.finished).arg(count.exitCode);
    return count.output;
}

} // namespace importtest
