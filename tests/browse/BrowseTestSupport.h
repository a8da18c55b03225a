#pragma once

#include "browse/HBTreeNode.h"
#include "manager/HBTrackManager.h"
#include "model/HBImportSource.h"
#include "platform/HBOperationQueue.h"
#include "platform/store/HBManagedObjectContext.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>

// A GPX file with one track of two points a minute apart per start (an
// empty start: a track without times) and one waypoint per date (empty:
// without a time).
inline QString writeGpx(const QString &path, const QStringList &trackStarts, const QStringList &waypointDates)
{
    QByteArray gpx = "<?xml version=\"1.0\"?>\n<gpx version=\"1.1\" creator=\"test\" xmlns=\"http://www.topografix.com/GPX/1/1\">\n";
    const auto time = [](const QDateTime &t) { return t.isValid() ? "<time>" + t.toString(Qt::ISODate).toUtf8() + "</time>" : QByteArray(); };
    for (const QString &date : waypointDates)
        gpx += "<wpt lat=\"46.5\" lon=\"7.5\">" + time(QDateTime::fromString(date, Qt::ISODate)) + "<name>W</name></wpt>\n";
    for (const QString &start : trackStarts) {
        const QDateTime t = QDateTime::fromString(start, Qt::ISODate);
        gpx += "<trk><name>T</name><trkseg><trkpt lat=\"46.5\" lon=\"7.5\">" + time(t) + "</trkpt><trkpt lat=\"46.6\" lon=\"7.6\">"
               + time(t.isValid() ? t.addSecs(60) : t) + "</trkpt></trkseg></trk>\n";
    }
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write(gpx + "</gpx>\n");
    return path;
}

// The import source of the file, as an object of the main-queue context.
inline HBImportSource *importSourceOf(const QString &path)
{
    HBManagedObjectContext *ui = HBTrackManager::sharedTrackManager()->mainQueueContext();
    HBFetchRequest request(QStringLiteral("HBImportSource"));
    request.setPredicate(HBPredicate::format(QStringLiteral("filePath == %@"), {path}));
    const QList<HBManagedObject *> found = ui->executeFetchRequest(request);
    return found.size() == 1 ? static_cast<HBImportSource *>(found.constFirst()) : nullptr;
}

// Imports the files as one batch and waits until its save is done and the
// manager's newest batch is this one.
inline void importAndWait(const QStringList &paths)
{
    HBTrackManager *manager = HBTrackManager::sharedTrackManager();
    manager->importFilesAtPaths(paths);
    QTRY_VERIFY_WITH_TIMEOUT(!manager->trackImportIsInProgress() && manager->trackImportQueue()->operationCount() == 0, 60000);
    const auto isNewestBatch = [manager, paths] {
        const QString recent = manager->recentImportsPredicate().predicateFormat();
        return std::all_of(paths.cbegin(), paths.cend(), [&recent](const QString &path) {
            const HBImportSource *source = importSourceOf(path);
            return source && recent.contains(source->objectID().uriString());
        });
    };
    QTRY_VERIFY_WITH_TIMEOUT(isNewestBatch(), 30000);
}

inline QStringList namesOf(const QList<HBTreeNode *> &nodes)
{
    QStringList names;
    for (const HBTreeNode *node : nodes)
        names.append(node->name());
    return names;
}
