#include "HBGPSTool.h"

#include "HBGPSDownload.h"
#include "HBGPSImport.h"
#include "HBGPSSelection.h"
#include "HBGPSTree.h"
#include "HBGPSVolumeImport.h"

#include "export/HBGPXExporter.h"
#include "manager/HBTrackManager.h"
#include "model/HBTrack.h"
#include "model/HBTrackDataModel.h"
#include "model/HBWaypoint.h"
#include "platform/HBBackgroundWork.h"
#include "platform/HBFileName.h"
#include "platform/HBMainThread.h"
#include "platform/store/HBEntityDescription.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBManagedObjectModel.h"
#include "platform/store/HBPersistentStore.h"
#include "platform/store/HBPersistentStoreCoordinator.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QEventLoop>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>

#include <cerrno>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString kToolHelp = QStringLiteral(
    "Usage: hbgps COMMAND [OPTIONS]\n"
    "\n"
    "Commands:\n"
    "  import PATH...         import GPX, TCX and NMEA files (folders are searched)\n"
    "  download -o FILE       download from a GPS receiver through gpsbabel into\n"
    "                         a GPX file and import it; --list shows the\n"
    "                         receivers and ports, --from-volume PATH imports\n"
    "                         a receiver mounted as a drive\n"
    "  list                   list tracks and waypoints\n"
    "  export -o FILE         write tracks and waypoints to a GPX file (- for\n"
    "                         standard output)\n"
    "  delete --source NAME   delete the import sources of that file name with\n"
    "                         their tracks and waypoints\n"
    "  info                   show where the data lives and what the stores hold\n"
    "  tree                   show the smart lists, dates and files with their\n"
    "                         counts\n"
    "\n"
    "hbgps COMMAND --help shows the options of a command. The data lives under\n"
    "$XDG_DATA_HOME/Fernwick and $XDG_CACHE_HOME/Fernwick. Exit status: 0 done,\n"
    "1 failed, 2 bad usage.\n");

// One row of the listing.
struct Row
{
    QString kind, name;
    QDateTime startDate, endDate;
    std::optional<qint64> points;
    std::optional<double> distance;   // metres
    QString source;
};

QString sourceNameOf(const HBManagedObject *record)
{
    const HBManagedObject *source = record->objectForKey(QStringLiteral("importSource"));
    return source ? source->valueForKey(QStringLiteral("name")).toString() : QString();
}

// The selected tracks (by start) and waypoints (by date), fetched in the
// context; call on its queue.
struct Selected
{
    QList<HBTrack *> tracks;
    QList<HBWaypoint *> waypoints;
};

enum class Extras { Skip, Load };

// With Extras::Load the waypoints come with their extra attributes, which
// an export reads: otherwise each would be a fetch of its own.
Selected fetchSelected(HBManagedObjectContext *context, const HBGPSSelection::Predicates &predicates, Extras extras)
{
    Selected selected;
    HBFetchRequest tracks(QStringLiteral("HBTrack"));
    tracks.setPredicate(predicates.tracks);
    tracks.setSortDescriptors({{QStringLiteral("startDate"), true}});
    for (HBManagedObject *o : context->executeFetchRequest(tracks))
        selected.tracks.append(static_cast<HBTrack *>(o));
    HBFetchRequest waypoints(QStringLiteral("HBWaypoint"));
    waypoints.setPredicate(predicates.waypoints);
    waypoints.setSortDescriptors({{QStringLiteral("date"), true}});
    if (extras == Extras::Load)
        waypoints.setRelationshipKeyPathsForPrefetching({QStringLiteral("additionalAttributes")});
    for (HBManagedObject *o : context->executeFetchRequest(waypoints))
        selected.waypoints.append(static_cast<HBWaypoint *>(o));
    return selected;
}

QList<Row> selectedRows(HBTrackManager *manager, const HBGPSSelection &selection)
{
    const HBGPSSelection::Predicates predicates = selection.predicates(manager);
    std::unique_ptr<HBManagedObjectContext> context = manager->newPrivateQueueContext();
    QList<Row> rows;
    context->performBlockAndWait([&] {
        const Selected selected = fetchSelected(context.get(), predicates, Extras::Skip);
        for (const HBTrack *t : selected.tracks)
            rows.append({QStringLiteral("Track"), t->name(), t->startDate(), t->endDate(), t->numberOfTrackPoints(),
                         t->distance(), sourceNameOf(t)});
        for (const HBWaypoint *w : selected.waypoints)
            rows.append({QStringLiteral("Waypoint"), w->name(), w->date(), w->date(), std::nullopt, std::nullopt, sourceNameOf(w)});
    });
    return rows;
}

QString localTime(const QDateTime &date)
{
    return date.isValid() ? date.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")) : QString();
}

// The columns a row may take: the terminal's width, or 80 off a terminal.
int outputWidth()
{
    winsize size{};
    return isatty(STDOUT_FILENO) && ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

// Cuts the name and source columns, the ones of any length, until a row
// fits `width`: the narrower of the two keeps its width up to half of
// what they share, the other takes the rest.
void fitNameAndSource(QList<qsizetype> &widths, qsizetype width)
{
    constexpr qsizetype kName = 1, kSource = 5, kSeparator = 2;
    qsizetype shared = width - kSeparator * (widths.size() - 1);
    for (qsizetype i = 0; i < widths.size(); ++i) {
        if (i != kName && i != kSource)
            shared -= widths[i];
    }
    shared = std::max<qsizetype>(shared, 2);
    if (widths[kName] + widths[kSource] <= shared)
        return;
    const qsizetype half = shared / 2;
    if (widths[kName] <= half) {
        widths[kSource] = shared - widths[kName];
    } else if (widths[kSource] <= half) {
        widths[kName] = shared - widths[kSource];
    } else {
        widths[kName] = half;
        widths[kSource] = shared - half;
    }
}

// The text in `width` characters at most, cut with an ellipsis.
QString cut(const QString &text, qsizetype width)
{
    return text.size() <= width ? text : text.left(width - 1) + u'\u2026';
}

void printTable(QTextStream &out, const QList<Row> &rows)
{
    const QStringList header{QStringLiteral("KIND"), QStringLiteral("NAME"), QStringLiteral("START"),
                             QStringLiteral("POINTS"), QStringLiteral("KM"), QStringLiteral("SOURCE")};
    QList<QStringList> cells{header};
    for (const Row &r : rows) {
        cells.append({r.kind, r.name, localTime(r.startDate), r.points ? QString::number(*r.points) : QString(),
                      r.distance ? QString::number(*r.distance / 1000.0, 'f', 2) : QString(), r.source});
    }
    QList<qsizetype> widths(header.size(), 0);
    for (const QStringList &line : cells) {
        for (qsizetype i = 0; i < line.size(); ++i)
            widths[i] = std::max(widths[i], line[i].size());
    }
    fitNameAndSource(widths, outputWidth());
    for (const QStringList &line : cells) {
        QStringList padded;
        for (qsizetype i = 0; i < line.size(); ++i) {
            const QString text = cut(line[i], widths[i]);
            padded.append(i == 3 || i == 4 ? text.rightJustified(widths[i]) : text.leftJustified(widths[i]));
        }
        out << padded.join(QStringLiteral("  ")).trimmed() << '\n';
    }
}

QJsonArray asJson(const QList<Row> &rows)
{
    QJsonArray array;
    for (const Row &r : rows) {
        QJsonObject o;
        o.insert(QStringLiteral("kind"), r.kind);
        o.insert(QStringLiteral("name"), r.name.isNull() ? QJsonValue() : QJsonValue(r.name));
        o.insert(QStringLiteral("startDate"), r.startDate.isValid() ? QJsonValue(r.startDate.toUTC().toString(Qt::ISODate)) : QJsonValue());
        o.insert(QStringLiteral("endDate"), r.endDate.isValid() ? QJsonValue(r.endDate.toUTC().toString(Qt::ISODate)) : QJsonValue());
        o.insert(QStringLiteral("numberOfTrackPoints"), r.points ? QJsonValue(double(*r.points)) : QJsonValue());
        o.insert(QStringLiteral("distance"), r.distance ? QJsonValue(*r.distance) : QJsonValue());
        o.insert(QStringLiteral("source"), r.source.isNull() ? QJsonValue() : QJsonValue(r.source));
        array.append(o);
    }
    return array;
}

// Sets up a command's parser; true when the command should go on (false
// with the exit code when it printed its help or the arguments are wrong).
bool parseCommand(QCommandLineParser &parser, const QStringList &arguments, QTextStream &out, QTextStream &err, int *exitCode)
{
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")}, QStringLiteral("Shows this help."));
    parser.addOption(help);
    if (!parser.parse(arguments)) {
        err << "hbgps: " << parser.errorText() << '\n';
        *exitCode = HBGPSTool::BadUsage;
        return false;
    }
    if (parser.isSet(help)) {
        // Qt names the program by its path; the usage line names the command
        QString text = parser.helpText();
        const QString usage = QStringLiteral("Usage: ") + QCoreApplication::arguments().constFirst();
        if (text.startsWith(usage))
            text.replace(0, usage.size(), QStringLiteral("Usage: ") + arguments.constFirst());
        out << text;
        *exitCode = HBGPSTool::Success;
        return false;
    }
    return true;
}

// What the log would tell line by line, the report tells once per file.
void quietenImportLog()
{
    QLoggingCategory::setFilterRules(QStringLiteral("hb.import=false"));
    HBTrackManager::setErrorPresenter([](const HBError &) {});
}

// Waits, serving the main thread, until the background work of the
// library (deletions, saves) is done.
void waitForBackgroundWork()
{
    HBMainThread::waitUntil(
        [](std::chrono::milliseconds slice) { return HBBackgroundWork::waitForDone(slice); });
}

// "-", or a path that leads to standard output (/dev/stdout, say, when it
// goes to a file, which a rename over the path would not reach).
bool isStandardOutput(const QString &path)
{
    struct stat target, output;
    return path == QLatin1String("-")
        || (::stat(HBFileName::encode(path).constData(), &target) == 0 && ::fstat(STDOUT_FILENO, &output) == 0
            && target.st_dev == output.st_dev && target.st_ino == output.st_ino);
}

// Missing, as opposed to there but out of reach, which the import reports
// with the file's line.
bool isMissing(const QString &path)
{
    struct stat info;
    return ::lstat(HBFileName::encode(path).constData(), &info) != 0 && errno == ENOENT;
}

} // namespace

HBGPSTool::HBGPSTool()
    : m_out(stdout)
    , m_err(stderr)
{
}

int HBGPSTool::usageError(const QString &message)
{
    m_err << "hbgps: " << message << "\nTry 'hbgps --help'.\n";
    return BadUsage;
}

int HBGPSTool::run(const QStringList &arguments)
{
    const QString command = arguments.value(1);
    const QStringList rest = QStringList{QStringLiteral("hbgps ") + command} + arguments.mid(2);
    if (command == QLatin1String("--help") || command == QLatin1String("-h") || command == QLatin1String("help")) {
        m_out << kToolHelp;
        return Success;
    }
    if (command == QLatin1String("import"))
        return importFiles(rest);
    if (command == QLatin1String("download"))
        return download(rest);
    if (command == QLatin1String("list"))
        return list(rest);
    if (command == QLatin1String("export"))
        return exportFile(rest);
    if (command == QLatin1String("delete"))
        return deleteSource(rest);
    if (command == QLatin1String("info"))
        return info(rest);
    if (command == QLatin1String("tree"))
        return tree(rest);
    return usageError(command.isEmpty() ? QStringLiteral("no command given") : QStringLiteral("unknown command %1").arg(command));
}

int HBGPSTool::importFiles(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Imports GPX, TCX and NMEA files; folders are searched for them. Files imported before and unchanged since "
        "are skipped. One line per file tells what came in, or why nothing did, and what was wrong with a file "
        "that is not what it claims to be; then the totals. Ctrl-C (or SIGTERM, SIGHUP) cancels the files not yet "
        "imported. Exit status 1 when a file or folder could not be read, a file could not be saved, or the import "
        "was cancelled."));
    parser.addPositionalArgument(QStringLiteral("PATH"), QStringLiteral("Files or folders."), QStringLiteral("PATH..."));
    const QCommandLineOption verbose(QStringLiteral("verbose"), QStringLiteral("Also log every problem of every file on standard error."));
    parser.addOption(verbose);
    int exitCode = Success;
    if (!parseCommand(parser, arguments, m_out, m_err, &exitCode))
        return exitCode;
    if (parser.positionalArguments().isEmpty())
        return usageError(QStringLiteral("import needs at least one PATH"));
    for (const QString &path : parser.positionalArguments()) {
        if (isMissing(path)) {
            m_err << "hbgps: no such file or folder: " << path << '\n';
            return Failure;
        }
    }

    if (!parser.isSet(verbose))
        quietenImportLog();
    return HBGPSImport(m_out, m_err).run(parser.positionalArguments());
}

int HBGPSTool::download(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Downloads the tracks and waypoints of a GPS receiver through gpsbabel into a GPX file and imports it; "
        "a second download into the same unchanged file is skipped. The receiver and port are those the "
        "download sheet would preselect unless given. Anything gpsbabel says is printed as \"GPSBabel error: "
        "...\" and fails the download (status 1). --from-volume imports a receiver mounted as a drive instead: "
        "its GPX, TCX and NMEA files, and its FIT files converted to GPX by gpsbabel under the cache folder."));
    const QCommandLineOption type(QStringLiteral("type"), QStringLiteral("The receiver's type (see --list)."), QStringLiteral("TYPE"));
    const QCommandLineOption custom(QStringLiteral("custom"), QStringLiteral("A receiver of this gpsbabel format."),
                                    QStringLiteral("FORMAT"));
    const QCommandLineOption port(QStringLiteral("port"), QStringLiteral("What gpsbabel reads from: a port, usb:, or a file."),
                                  QStringLiteral("PATH"));
    const QCommandLineOption noTracks(QStringLiteral("no-tracks"), QStringLiteral("Leave the tracks."));
    const QCommandLineOption noWaypoints(QStringLiteral("no-waypoints"), QStringLiteral("Leave the waypoints."));
    const QCommandLineOption output({QStringLiteral("o"), QStringLiteral("output")}, QStringLiteral("The GPX file to write."),
                                    QStringLiteral("FILE"));
    const QCommandLineOption list(QStringLiteral("list"), QStringLiteral("List the receivers and ports."));
    const QCommandLineOption volume(QStringLiteral("from-volume"), QStringLiteral("Import a receiver mounted at PATH."),
                                    QStringLiteral("PATH"));
    parser.addOptions({type, custom, port, noTracks, noWaypoints, output, list, volume});
    int exitCode = Success;
    if (!parseCommand(parser, arguments, m_out, m_err, &exitCode))
        return exitCode;
    if (!parser.positionalArguments().isEmpty())
        return usageError(QStringLiteral("download takes no arguments"));
    if (parser.isSet(volume)) {
        if (parser.optionNames().size() > 1)
            return usageError(QStringLiteral("--from-volume takes no other option"));
        quietenImportLog();
        return HBGPSVolumeImport(m_out, m_err).run(parser.value(volume));
    }
    HBGPSDownload receiver(m_out, m_err);
    if (parser.isSet(list)) {
        receiver.list();
        return Success;
    }
    if (parser.isSet(type) && parser.isSet(custom))
        return usageError(QStringLiteral("download takes --type or --custom, not both"));
    const QString file = parser.value(output);
    // the file is imported by its extension, as the save panel's always is
    if (!file.endsWith(QLatin1String(".gpx"), Qt::CaseInsensitive))
        return usageError(QStringLiteral("download needs -o FILE.gpx"));
    HBGPSDownload::Request request;
    const auto given = [&](const QCommandLineOption &option) {
        return parser.isSet(option) ? std::optional(parser.value(option)) : std::nullopt;
    };
    request.type = given(type);
    request.custom = given(custom);
    request.port = given(port);
    request.tracks = !parser.isSet(noTracks);
    request.waypoints = !parser.isSet(noWaypoints);
    QString error;
    if (!receiver.select(request, &error))
        return usageError(error);
    quietenImportLog();
    return receiver.run(QFileInfo(file).absoluteFilePath());
}

int HBGPSTool::list(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Lists tracks and waypoints: kind, name, start, points, distance in km, "
                                                    "source file; then the totals. Names and sources too long for a row "
                                                    "are cut (…) to the terminal's width, or 80 columns off a terminal. "
                                                    "--json prints one JSON array with the keys kind, name, startDate, "
                                                    "endDate (UTC), numberOfTrackPoints, distance (metres) and source, "
                                                    "names whole."));
    HBGPSSelection::addOptions(parser);
    parser.addOption({QStringLiteral("json"), QStringLiteral("Print JSON.")});
    int exitCode = Success;
    if (!parseCommand(parser, arguments, m_out, m_err, &exitCode))
        return exitCode;
    QString error;
    const std::optional<HBGPSSelection> selection = HBGPSSelection::fromParser(parser, &error);
    if (!selection)
        return usageError(error);
    const QList<Row> rows = selectedRows(HBTrackManager::sharedTrackManager(), *selection);
    if (parser.isSet(QStringLiteral("json"))) {
        m_out << QJsonDocument(asJson(rows)).toJson(QJsonDocument::Indented);
        return Success;
    }
    printTable(m_out, rows);
    qint64 tracks = 0, points = 0, waypoints = 0;
    for (const Row &r : rows) {
        if (r.points) {
            ++tracks;
            points += *r.points;
        } else {
            ++waypoints;
        }
    }
    m_out << QStringLiteral("%1 Tracks (%2 points), %3 Waypoints").arg(tracks).arg(points).arg(waypoints) << '\n';
    return Success;
}

int HBGPSTool::exportFile(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Writes the selected tracks and waypoints (all by default) to a GPX 1.1 file. A regular file is replaced "
        "only by a complete one; a device, a FIFO or standard output is written into."));
    parser.addOption({{QStringLiteral("o"), QStringLiteral("output")},
                      QStringLiteral("The GPX file to write; - for standard output."), QStringLiteral("FILE")});
    HBGPSSelection::addOptions(parser);
    int exitCode = Success;
    if (!parseCommand(parser, arguments, m_out, m_err, &exitCode))
        return exitCode;
    if (!parser.isSet(QStringLiteral("output")))
        return usageError(QStringLiteral("export needs -o FILE"));
    QString error;
    const std::optional<HBGPSSelection> selection = HBGPSSelection::fromParser(parser, &error);
    if (!selection)
        return usageError(error);

    HBTrackManager *manager = HBTrackManager::sharedTrackManager();
    const HBGPSSelection::Predicates predicates = selection->predicates(manager);
    // Straight on the store files: the export only reads what is saved, and
    // a child context would load every point twice, once in its parent.
    std::unique_ptr<HBManagedObjectContext> context = manager->newManagedObjectContext();
    const QString path = parser.value(QStringLiteral("output"));
    const bool toStandardOutput = isStandardOutput(path);
    bool written = false;
    HBGPXExporter exporter;
    context->performBlockAndWait([&] {
        const Selected selected = fetchSelected(context.get(), predicates, Extras::Load);
        exporter.tracks() = selected.tracks;
        exporter.waypoints() = selected.waypoints;
        QFile output;
        written = toStandardOutput ? output.open(STDOUT_FILENO, QIODevice::WriteOnly | QIODevice::Unbuffered)
                                         && exporter.exportToDevice(output)
                                   : exporter.exportToPath(path);
    });
    if (!written) {
        m_err << "hbgps: cannot write " << path << ": " << exporter.errorString() << '\n';
        return Failure;
    }
    // the document alone goes to standard output
    (toStandardOutput ? m_err : m_out)
        << QStringLiteral("Wrote %1 Tracks and %2 Waypoints to %3").arg(exporter.tracks().size()).arg(exporter.waypoints().size()).arg(path)
        << '\n';
    return Success;
}

int HBGPSTool::deleteSource(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Deletes the import sources of that file name with their tracks, "
                                                    "segments, points and waypoints."));
    parser.addOption({QStringLiteral("source"), QStringLiteral("The file name of the import source."), QStringLiteral("NAME")});
    int exitCode = Success;
    if (!parseCommand(parser, arguments, m_out, m_err, &exitCode))
        return exitCode;
    if (!parser.isSet(QStringLiteral("source")))
        return usageError(QStringLiteral("delete needs --source NAME"));
    const QString name = parser.value(QStringLiteral("source"));

    HBTrackManager *manager = HBTrackManager::sharedTrackManager();
    std::unique_ptr<HBManagedObjectContext> context = manager->newPrivateQueueContext();
    QList<HBManagedObject *> sources;
    context->performBlockAndWait([&] { sources = HBGPSSelection::importSourcesNamed(context.get(), name); });
    if (sources.isEmpty()) {
        m_err << "hbgps: no import source named " << name << '\n';
        return Failure;
    }
    QEventLoop loop;
    QObject::connect(manager, &HBTrackManager::didDeleteObjects, &loop, &QEventLoop::quit, Qt::QueuedConnection);
    manager->deleteObjects(sources);
    loop.exec();
    // the deletion was saved into the root context; now into the files,
    // and the points of the deleted segments after it
    manager->save();
    waitForBackgroundWork();
    m_out << QStringLiteral("Deleted %1 import source%2 named %3").arg(sources.size()).arg(sources.size() == 1 ? "" : "s").arg(name)
          << '\n';
    return Success;
}

int HBGPSTool::info(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Shows the support, point and cache folders and every store file "
                                                    "with its size and its rows per entity."));
    int exitCode = Success;
    if (!parseCommand(parser, arguments, m_out, m_err, &exitCode))
        return exitCode;
    HBTrackManager *manager = HBTrackManager::sharedTrackManager();
    m_out << "Support folder: " << HBTrackManager::supportFolder() << '\n'
          << "Point folder:   " << HBTrackManager::pointFolder() << '\n'
          << "Cache folder:   " << HBTrackManager::cacheFolder() << '\n';
    for (HBPersistentStore *store : manager->persistentStoreCoordinator()->persistentStores()) {
        // what is not yet checkpointed sits in the write-ahead file beside it
        const qint64 bytes = QFileInfo(store->path()).size() + QFileInfo(store->path() + QStringLiteral("-wal")).size();
        m_out << store->path() << "  " << bytes << " bytes\n";
        for (const HBEntityDescription *entity : HBTrackDataModel::model()->entities()) {
            const qint64 rows = entity->isAbstract() || !store->holdsEntity(entity) ? 0 : store->countRows(entity);
            if (rows > 0)
                m_out << "  " << entity->name() << ": " << rows << '\n';
        }
    }
    return Success;
}

int HBGPSTool::tree(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Shows the smart lists, the date tree (years, months and days in local time and the user's language) and the "
        "file tree as the track picker's source list does, headers upper-cased, one line per node with what selecting "
        "it lists: \"N Tracks (N points), N Waypoints\". --json prints one object {\"smart\": [...], \"dates\": [...], "
        "\"files\": [...]} whose nodes have name, tracks, points and waypoints; years also year and months, months "
        "month and days, days day."));
    parser.addOption({QStringLiteral("json"), QStringLiteral("Print JSON.")});
    int exitCode = Success;
    if (!parseCommand(parser, arguments, m_out, m_err, &exitCode))
        return exitCode;
    if (!parser.positionalArguments().isEmpty())
        return usageError(QStringLiteral("tree takes no arguments"));
    HBGPSTree tree(m_out);
    if (parser.isSet(QStringLiteral("json")))
        tree.printJson();
    else
        tree.printText();
    return Success;
}
