#pragma once

#include "../browse/BrowseTestSupport.h"
#include "TemporaryHome.h"

#include "model/HBTrack.h"
#include "model/HBWaypoint.h"

#include <QTemporaryDir>

// Corpus files imported into a temporary home, and every stored track and
// waypoint fetched as a map gets them.
struct ImportedLibrary
{
    QTemporaryDir home;
    HBFetchedRecords<HBTrack> tracks;
    HBFetchedRecords<HBWaypoint> waypoints;

    // names: files under the corpus's gpx folder
    void import(const QStringList &names)
    {
        QVERIFY(home.isValid());
        useTemporaryHome(home);
        QStringList paths;
        for (const QString &name : names)
            paths.append(QStringLiteral(HB_CORPUS_DIR "/gpx/") + name);
        importAndWait(paths);
        HBTrackManager *manager = HBTrackManager::sharedTrackManager();
        tracks = manager->tracksForPredicate(HBPredicate::truePredicate());
        waypoints = manager->waypointsForPredicate(HBPredicate::truePredicate());
    }

    HBTrack *track(const QString &name) const
    {
        const auto it = std::find_if(tracks.records.cbegin(), tracks.records.cend(),
                                     [&](const HBTrack *t) { return t->name() == name; });
        return it == tracks.records.cend() ? nullptr : *it;
    }
};
