#include "HBGPSImport.h"

#include "HBGPSProgressBar.h"

#include "manager/HBTrackManager.h"
#include "platform/HBOperationQueue.h"

#include <QDirIterator>
#include <QEventLoop>
#include <QFileInfo>
#include <QLocale>
#include <QTimer>

#include <atomic>
#include <csignal>
#include <optional>
#include <unistd.h>

namespace {

std::atomic<bool> interrupted{false};

void noteInterrupt(int)
{
    interrupted = true;
}

// Ctrl-C, a terminal that goes away, and the polite end a system or a
// script sends all stop an import the same way.
constexpr int kStopSignals[] = {SIGINT, SIGTERM, SIGHUP};

// The files to consider: given files as they are, folders searched for
// files of a valid type, in a stable order.
QStringList filesBelow(const QStringList &paths)
{
    const HBPredicate valid = HBTrackManager::validFileTypePredicate();
    QStringList files;
    for (const QString &path : paths) {
        if (!QFileInfo(path).isDir()) {
            files.append(QFileInfo(path).absoluteFilePath());
            continue;
        }
        QStringList found;
        QDirIterator below(path, QDir::Files | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
        while (below.hasNext()) {
            const QString file = QFileInfo(below.next()).absoluteFilePath();
            if (valid.evaluateWithValue(file))
                found.append(file);
        }
        found.sort();
        files += found;
    }
    files.removeDuplicates();
    return files;
}

// "1 track", "10,412 points": the same digits whatever the locale, for
// whoever reads the output after a script.
QString counted(qint64 count, const char *one, const char *many)
{
    return QStringLiteral("%1 %2").arg(QLocale(QLocale::English).toString(count), QLatin1String(count == 1 ? one : many));
}

QString describe(const HBImportReport &report)
{
    if (!report.saved)
        return report.failure.isNull() ? QStringLiteral("cancelled") : QStringLiteral("not imported: ") + report.failure;
    QString text = QStringLiteral("imported: %1, %2, %3")
                       .arg(counted(report.tracks, "track", "tracks"), counted(report.points, "point", "points"),
                            counted(report.waypoints, "waypoint", "waypoints"));
    if (!report.problem.isNull())
        text += QStringLiteral("; ") + report.problem;
    return text;
}

} // namespace

HBGPSImport::HBGPSImport(QTextStream &out, QTextStream &err)
    : m_out(out)
    , m_err(err)
{
}

int HBGPSImport::run(const QStringList &paths)
{
    HBTrackManager *manager = HBTrackManager::sharedTrackManager();
    const QStringList files = filesBelow(paths);
    const HBPredicate valid = HBTrackManager::validFileTypePredicate();
    QStringList importable;
    for (const QString &file : files)
        (valid.evaluateWithValue(file) ? importable : m_unknown).append(file);
    const bool cancelled = !importable.isEmpty() && importBatch(manager, importable);
    // The manager passes over what was imported before and has not changed
    // since, without a word.
    QStringList unreported;
    for (const QString &file : std::as_const(importable)) {
        if (!m_reports.contains(file))
            unreported.append(file);
    }
    m_unchanged = manager->pathsToSkip(unreported);

    qsizetype imported = 0, failed = 0;
    for (const QString &file : files)
        m_out << file << ": " << statusOf(file) << '\n';
    for (const HBImportReport &report : std::as_const(m_reports)) {
        if (report.saved)
            ++imported;
        else if (!report.failure.isNull())
            ++failed;
    }
    m_out << QStringLiteral("%1 imported, %2 unchanged, %3 of unknown type").arg(imported).arg(m_unchanged.size()).arg(m_unknown.size());
    if (failed > 0)
        m_out << QStringLiteral(", %1 not imported").arg(failed);
    m_out << '\n';
    if (cancelled)
        m_err << "hbgps: import cancelled\n";
    return failed > 0 || cancelled ? 1 : 0;
}

bool HBGPSImport::importBatch(HBTrackManager *manager, const QStringList &files)
{
    QObject scope;
    QObject::connect(manager, &HBTrackManager::didFinishFileImport, &scope,
                     [this](const HBImportReport &report) { m_reports.insert(report.filePath, report); });
    std::optional<HBGPSProgressBar> bar;
    if (isatty(STDERR_FILENO))
        bar.emplace(m_err);
    const auto redraw = [&] {
        if (bar)
            bar->update(manager->trackImportProgressValue(), manager->trackImportProgressMax(), manager->trackImportProgressInfo());
    };
    QObject::connect(manager, &HBTrackManager::trackImportProgressValueChanged, &scope, redraw);
    QObject::connect(manager, &HBTrackManager::trackImportProgressInfoChanged, &scope, redraw);

    for (const int signal : kStopSignals)
        std::signal(signal, noteInterrupt);
    manager->importFilesAtPaths(files);
    bool cancelled = false;
    QEventLoop loop;
    QTimer watch;
    QObject::connect(&watch, &QTimer::timeout, &loop, [&] {
        if (interrupted && !cancelled) {
            cancelled = true;
            manager->cancelImport();
        }
        if (!manager->trackImportIsInProgress() && manager->trackImportQueue()->operationCount() == 0)
            loop.quit();
    });
    watch.start(50);
    loop.exec();
    for (const int signal : kStopSignals)
        std::signal(signal, SIG_DFL);
    if (bar)
        bar->finish();
    return cancelled;
}

QString HBGPSImport::statusOf(const QString &file) const
{
    if (m_unknown.contains(file))
        return QStringLiteral("skipped (unknown type)");
    if (m_reports.contains(file))
        return describe(m_reports.value(file));
    return m_unchanged.contains(file) ? QStringLiteral("skipped (unchanged)") : QStringLiteral("cancelled");
}
