#pragma once

#include "platform/store/HBPredicate.h"

#include <QDateTime>
#include <QString>

#include <optional>

class QCommandLineParser;
class HBManagedObject;
class HBManagedObjectContext;
class HBTrackManager;

// Which tracks and waypoints a command works on: those of a day, month or
// year (local time), of the import sources of one file name, of the newest
// import batch, or all of them.
class HBGPSSelection
{
public:
    enum class Kind { All, Date, Source, Recent };

    static void addOptions(QCommandLineParser &parser);
    // Null, with the reason, when the options contradict each other or a
    // value cannot be read.
    static std::optional<HBGPSSelection> fromParser(const QCommandLineParser &parser, QString *error);

    Kind kind() const { return m_kind; }
    QString sourceName() const { return m_sourceName; }
    struct Predicates
    {
        HBPredicate tracks;      // for "HBTrack" fetches
        HBPredicate waypoints;   // for "HBWaypoint" fetches
    };
    // Reads the stores (once) for the source and recent selections.
    Predicates predicates(HBTrackManager *manager) const;

    // The import sources of that file name, in the context (call on its queue).
    static QList<HBManagedObject *> importSourcesNamed(HBManagedObjectContext *context, const QString &name);

private:
    HBPredicate sourcePredicate(HBTrackManager *manager) const;
    static HBPredicate recentPredicate(HBTrackManager *manager);

    Kind m_kind = Kind::All;
    QDateTime m_from, m_to;   // [from, to)
    QString m_sourceName;
};
