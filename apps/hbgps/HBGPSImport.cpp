#include "HBGPSImport.h"

#include "HBGPSProgressBar.h"

#include "manager/HBTrackManager.h"
#include "platform/HBFileName.h"
#include "platform/HBOperationQueue.h"

#include <QEventLoop>
#include <QFileInfo>
#include <QLocale>
#include <QTimer>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <memory>
#include <optional>

#include <dirent.h>
#include <sys/stat.h>
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

bool isDotOrDotDot(const char *name)
{
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
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
    const QStringList importable = readableFilesOfValidType(files);
    const bool cancelled =
        !importable.isEmpty() && importBatch(manager, [&] { manager->importFilesAtPaths(importable); });
    return report(manager, files, importable, cancelled);
}

int HBGPSImport::report(HBTrackManager *manager, const QStringList &files, const QStringList &importable, bool cancelled)
{
    // The manager passes over what was imported before and has not changed
    // since, without a word.
    QStringList unreported;
    for (const QString &file : importable) {
        if (!m_reports.contains(file))
            unreported.append(file);
    }
    m_unchanged = manager->pathsToSkip(unreported);

    qsizetype imported = 0, failed = 0;
    for (const QString &file : files)
        printLine(m_shownPath.value(file, file), statusOf(file));
    for (const HBImportReport &report : std::as_const(m_reports)) {
        if (report.saved)
            ++imported;
        else if (!report.failure.isNull())
            ++failed;
    }
    m_out << QStringLiteral("%1 imported, %2 unchanged, %3 of unknown type").arg(imported).arg(m_unchanged.size()).arg(m_unknown.size());
    if (!m_unreadable.isEmpty())
        m_out << QStringLiteral(", %1 unreadable").arg(m_unreadable.size());
    if (failed > 0)
        m_out << QStringLiteral(", %1 not imported").arg(failed);
    m_out << '\n';
    if (cancelled)
        m_err << "hbgps: import cancelled\n";
    return !m_unreadable.isEmpty() || failed > 0 || cancelled ? 1 : 0;
}

// Given files as they are; folders searched for files of a valid type (and
// for folders that cannot be read), in name order. Qt would leave out names
// that are not UTF-8, so the folders are read as bytes.
QStringList HBGPSImport::filesBelow(const QStringList &paths)
{
    QStringList files;
    for (const QString &path : paths) {
        const QString absolute = QFileInfo(path).absoluteFilePath();
        if (!HBFileName::status(absolute).isDirectory) {
            files.append(absolute);
            continue;
        }
        QStringList found;
        addFolder(absolute, &found);
        found.sort();
        files += found;
    }
    files.removeDuplicates();
    return files;
}

// Links to folders are not followed, so that a link to a folder above
// cannot lead round in circles.
void HBGPSImport::addFolder(const QString &folder, QStringList *found)
{
    const std::unique_ptr<DIR, int (*)(DIR *)> listing(::opendir(HBFileName::encode(folder).constData()), ::closedir);
    if (!listing) {
        m_unreadable.insert(folder, qt_error_string(errno));
        found->append(folder);
        return;
    }
    const HBPredicate valid = HBTrackManager::validFileTypePredicate();
    while (const dirent *entry = ::readdir(listing.get())) {
        if (isDotOrDotDot(entry->d_name))
            continue;
        const QString path = folder + u'/' + HBFileName::decode(entry->d_name);
        struct stat link;
        const bool isFolder = ::lstat(HBFileName::encode(path).constData(), &link) == 0 && S_ISDIR(link.st_mode);
        if (isFolder)
            addFolder(path, found);
        else if (valid.evaluateWithValue(path) && !HBFileName::status(path).isDirectory)
            found->append(path);
    }
}

// A file that cannot be read is not handed over: the import would record
// it as imported, empty, and skip it as unchanged once it can be read.
QStringList HBGPSImport::readableFilesOfValidType(const QStringList &files)
{
    const HBPredicate valid = HBTrackManager::validFileTypePredicate();
    QStringList readable;
    for (const QString &file : files) {
        if (m_unreadable.contains(file))
            continue;
        if (!valid.evaluateWithValue(file)) {
            m_unknown.append(file);
            continue;
        }
        QFile probe;
        QString error;
        if (HBFileName::openForReading(probe, file, &error))
            readable.append(file);
        else
            m_unreadable.insert(file, error);
    }
    return readable;
}

// The path as its bytes, so that a name that is not UTF-8 can be used again.
void HBGPSImport::printLine(const QString &path, const QString &status)
{
    m_out.flush();
    m_out.device()->write(HBFileName::encode(path) + ": " + status.toUtf8() + '\n');
}

bool HBGPSImport::importBatch(HBTrackManager *manager, const std::function<void()> &start)
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
    start();
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
    if (m_unreadable.contains(file))
        return QStringLiteral("skipped (unreadable: %1)").arg(m_unreadable.value(file));
    if (m_reports.contains(file))
        return describe(m_reports.value(file));
    return m_unchanged.contains(file) ? QStringLiteral("skipped (unchanged)") : QStringLiteral("cancelled");
}
