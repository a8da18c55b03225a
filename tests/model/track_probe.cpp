// Writes a track the way the importers build one, or reads it back in a
// later run, printing what it finds:
//
//   track_probe write
//   track_probe read      "geometry <from cache 0|1> <points loaded 0|1> <count>",
//                         then per segment "segment <order> <count> <distance> <start> <end>"
//                         and "latitudes <list order, comma-separated>",
//                         then "track <points> <distance> <duration>"

#include "TrackProbeData.h"

#include "manager/HBTrackManager.h"
#include "model/HBTrack.h"
#include "model/HBTrackGeometry.h"
#include "model/HBTrackPoint.h"
#include "model/HBTrackSegment.h"
#include "platform/store/HBManagedObjectContext.h"

#include <QCoreApplication>
#include <QTextStream>

namespace {

void write()
{
    HBTrackManager *manager = HBTrackManager::sharedTrackManager();
    HBManagedObjectContext *context = manager->managedObjectContext();
    context->performBlockAndWait([&] {
        auto *track = context->insertNewObject<HBTrack>(QStringLiteral("HBTrack"));
        track->setName(QStringLiteral("probe"));
        QList<HBTrackSegment *> segments;
        for (int s = 0; s < TrackProbeData::segments; ++s) {
            QList<HBTrackPoint *> points;
            for (int i = 0; i < TrackProbeData::pointsPerSegment; ++i) {
                auto *p = context->insertNewObject<HBTrackPoint>(QStringLiteral("HBTrackPoint"));
                p->setLatitude(HBDecimal::fromString(TrackProbeData::latitude(s, i)));
                p->setLongitude(HBDecimal::fromString(TrackProbeData::longitude(s, i)));
                p->setDate(TrackProbeData::date(s, i));
                points.append(p);
            }
            auto *segment = context->insertNewObject<HBTrackSegment>(QStringLiteral("HBTrackSegment"));
            segment->setPoints(points);
            segments.append(segment);
        }
        track->setSegments(segments);
    });
    manager->save();
}

void read(QTextStream &out)
{
    HBTrackManager *manager = HBTrackManager::sharedTrackManager();
    HBManagedObjectContext *context = manager->managedObjectContext();
    context->performBlockAndWait([&] {
        HBFetchRequest request(QStringLiteral("HBTrack"));
        request.setPredicate(HBPredicate::format(QStringLiteral("name == %@"), {QStringLiteral("probe")}));
        const QList<HBManagedObject *> found = context->executeFetchRequest(request);
        if (found.size() != 1)
            return;
        auto *track = static_cast<HBTrack *>(found.first());
        const std::shared_ptr<HBTrackGeometry> geometry = track->geometry();
        bool loaded = false;
        for (const HBTrackSegment *s : track->segments())
            loaded = loaded || s->pointsAreLoaded();
        out << "geometry " << !geometry->hasUnsavedChanges() << ' ' << loaded << ' ' << geometry->count() << '\n';
        for (HBTrackSegment *s : track->segments()) {
            out << "segment " << s->order().value_or(-1) << ' ' << s->countOfPoints() << ' '
                << QString::number(s->distance(), 'f', 6) << ' ' << s->startDate().toString(Qt::ISODate) << ' '
                << s->endDate().toString(Qt::ISODate) << '\n';
            QStringList latitudes;
            for (const HBTrackPoint *p : s->points())
                latitudes.append(p->latitude()->toString());
            out << "latitudes " << latitudes.join(u',') << '\n';
        }
        out << "track " << track->numberOfTrackPoints() << ' ' << QString::number(track->distance().value_or(-1), 'f', 6)
            << ' ' << QString::number(track->duration().value_or(-1), 'f', 0) << '\n';
    });
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    const QString command = app.arguments().value(1);
    if (command == QLatin1String("write"))
        write();
    else if (command == QLatin1String("read"))
        read(out);
    else
        return 2;
    return 0;
}
