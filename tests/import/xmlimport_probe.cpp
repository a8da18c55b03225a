// A small host that the importer and round-trip tests start as a separate
// process, so that every corpus file is imported into an empty home of its
// own (no waypoint of another file is stored there) and counted or exported
// after the stores are opened afresh, as the next run of a program would.
//
//   xmlimport_probe import FILE   imports FILE as the track manager would
//                                 choose by extension ("tcx", else GPX);
//                                 prints "parse error at line N: TEXT" when
//                                 the reader stopped before the end of the
//                                 file (what came before is still saved)
//   xmlimport_probe count         prints one line:
//       sources N linked T S P W saved T S P W E
//     linked: tracks of the import sources, their segments, the points of
//     those segments (through each segment's point list) and the sources'
//     waypoints; saved: every track, segment, track point, waypoint and
//     event record in the stores.
//   xmlimport_probe export FILE TARGET
//                                 writes the tracks and the waypoints of
//                                 FILE's import source, each in file order,
//                                 to TARGET with the GPX exporter

#include "export/HBGPXExporter.h"
#include "import/ExpatXMLParser.h"
#include "import/HBGPXFileImportOperation.h"
#include "import/HBTCXFileImportOperation.h"
#include "manager/HBTrackManager.h"
#include "model/HBImportSource.h"
#include "model/HBTrack.h"
#include "model/HBTrackSegment.h"
#include "model/HBWaypoint.h"
#include "platform/HBOperationQueue.h"
#include "platform/store/HBFetchRequest.h"
#include "platform/store/HBManagedObjectContext.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QTextStream>

namespace {

// The importers take no parse errors (a malformed file is saved up to the
// fault); this one also keeps the reader's, to tell whether the whole file
// was read.
template<class Import> class ParseErrorKeepingImport : public Import
{
public:
    ExpatXMLParserDelegate::Callbacks implementedCallbacks() const override
    {
        return Import::implementedCallbacks() | ExpatXMLParserDelegate::ParseErrorOccurred;
    }
    void parserParseErrorOccurred(ExpatXMLParser &parser, const HBError &error) override
    {
        parseError = QStringLiteral("parse error at line %1: %2").arg(parser.lineNumber()).arg(error.localizedDescription());
    }
    QString parseError;   // null when the whole file was read
};

template<class Import> int importWith(const QString &path, QTextStream &out)
{
    const auto operation = std::make_shared<ParseErrorKeepingImport<Import>>();
    operation->setFilePath(path);
    operation->setImportDate(QDateTime::currentDateTimeUtc());
    operation->setImportContexts(HBTrackManager::sharedTrackManager()->importContexts());
    HBOperationQueue queue;
    queue.addOperation(operation);
    queue.waitUntilAllOperationsAreFinished();
    if (!operation->parseError.isNull())
        out << operation->parseError << '\n';
    return operation->isFinished() ? 0 : 1;
}

int import(const QString &path, QTextStream &out)
{
    if (QFileInfo(path).suffix() == QLatin1String("tcx"))
        return importWith<HBTCXFileImportOperation>(path, out);
    return importWith<HBGPXFileImportOperation>(path, out);
}

template<class Record> QList<Record *> inFileOrder(HBManagedObjectContext *context, const QString &entity,
                                                    const QVariant &source)
{
    HBFetchRequest request(entity);
    request.setPredicate(HBPredicate::format(QStringLiteral("importSource == %@"), {source}));
    request.setSortDescriptors({{QStringLiteral("order"), true}});
    QList<Record *> records;
    for (HBManagedObject *object : context->executeFetchRequest(request))
        records.append(static_cast<Record *>(object));
    return records;
}

int exportSource(const QString &path, const QString &target)
{
    std::unique_ptr<HBManagedObjectContext> context = HBTrackManager::sharedTrackManager()->newManagedObjectContext();
    bool written = false;
    context->performBlockAndWait([&] {
        HBFetchRequest sources(QStringLiteral("HBImportSource"));
        sources.setPredicate(HBPredicate::format(QStringLiteral("filePath == %@"), {path}));
        const QList<HBManagedObject *> found = context->executeFetchRequest(sources);
        if (found.size() != 1)
            return;
        const QVariant source = QVariant::fromValue(found.first()->objectID());
        HBGPXExporter exporter;
        exporter.tracks() = inFileOrder<HBTrack>(context.get(), QStringLiteral("HBTrack"), source);
        exporter.waypoints() = inFileOrder<HBWaypoint>(context.get(), QStringLiteral("HBWaypoint"), source);
        written = exporter.exportToPath(target);
    });
    return written ? 0 : 1;
}

int count(QTextStream &out)
{
    std::unique_ptr<HBManagedObjectContext> context = HBTrackManager::sharedTrackManager()->newManagedObjectContext();
    context->performBlockAndWait([&] {
        const auto saved = [&](const char *entity) {
            return context->countForFetchRequest(HBFetchRequest(QLatin1String(entity)));
        };
        const QList<HBManagedObject *> sources = context->executeFetchRequest(HBFetchRequest(QStringLiteral("HBImportSource")));
        qsizetype tracks = 0, segments = 0, points = 0, waypoints = 0;
        for (const HBManagedObject *object : sources) {
            const auto *source = static_cast<const HBImportSource *>(object);
            waypoints += source->waypoints().size();
            for (HBManagedObject *track : source->tracks()) {
                ++tracks;
                for (HBTrackSegment *segment : static_cast<HBTrack *>(track)->segments()) {
                    ++segments;
                    points += segment->points().size();
                }
            }
        }
        out << "sources " << sources.size() << " linked " << tracks << ' ' << segments << ' ' << points << ' '
            << waypoints << " saved " << saved("HBTrack") << ' ' << saved("HBTrackSegment") << ' '
            << saved("HBTrackPoint") << ' ' << saved("HBWaypoint") << ' ' << saved("HBEvent") << '\n';
    });
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments().mid(1);
    QTextStream out(stdout);
    if (arguments.size() == 2 && arguments[0] == QLatin1String("import"))
        return import(arguments[1], out);
    if (arguments.size() == 1 && arguments[0] == QLatin1String("count"))
        return count(out);
    if (arguments.size() == 3 && arguments[0] == QLatin1String("export"))
        return exportSource(arguments[1], arguments[2]);
    QTextStream(stderr) << "usage: xmlimport_probe import FILE | count | export FILE TARGET\n";
    return 2;
}
