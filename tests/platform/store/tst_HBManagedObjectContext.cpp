#include "SqliteRows.h"
#include "StoreFixture.h"

#include "model/HBPointURIList.h"
#include "platform/store/HBManagedObjectModel.h"

#include <QSignalSpy>
#include <QTest>

// Contexts over real store files: what a save writes must come back after
// the files are closed and opened again, through another coordinator too;
// a child must see its parent's unsaved work, and objects must be found by
// their IDs, counted and fetched as themselves.
class tst_HBManagedObjectContext : public QObject
{
    Q_OBJECT

    // A fresh pair of files for every test.
    std::unique_ptr<StoreFixture> f;

private slots:
    void init()
    {
        f = std::make_unique<StoreFixture>();
        QVERIFY(f->open());
    }

    void childThenRootSaveSurvivesReopening()
    {
        auto root = f->newRootContext();
        HBManagedObjectContext child(HBManagedObjectContext::PrivateQueueConcurrencyType);
        child.setParentContext(root.get());
        QString pointURI;
        child.performBlockAndWait([&] {
            HBManagedObject *source = insert(child, "HBImportSource", {{"name", "walk.gpx"}, {"importDate", utc(2021, 5, 1, 12)}});
            HBManagedObject *track = insert(child, "HBTrack", {{"name", "walk"}, {"distance", 1234.5}});
            track->setObjectForKey(source, QStringLiteral("importSource"));
            insert(child, "HBWaypoint", {{"name", "summit"}, {"latitude", dec("48.117300")}, {"longitude", dec("-0.000")},
                                          {"elevation", dec("1e3")}, {"importSource", QVariant::fromValue(source)}});
            HBManagedObject *point = insert(child, "HBTrackPoint", {{"latitude", dec("1.5")}, {"order", 7}});
            child.assignObject(point, f->points);
            QVERIFY(child.save());
            QVERIFY(child.obtainPermanentIDsForObjects({point}));
            pointURI = point->objectID().uriString();
        });
        QVERIFY(!child.hasChanges());
        QCOMPARE(rowsIn(f->centralPath(), "HBTrack"), 0);   // nothing reaches a file before the root saves
        QSignalSpy saved(root.get(), &HBManagedObjectContext::didSave);
        HBError error;
        root->performBlockAndWait([&] { QVERIFY2(root->save(&error), qPrintable(error.localizedDescription())); });
        QCOMPARE(saved.size(), 1);
        QCOMPARE(saved.first().first().value<HBSaveChanges>().inserted.size(), 4);
        QVERIFY(pointURI.contains(f->points->identifier()));

        f->coordinator.reset();
        QVERIFY(f->open());
        auto reopened = f->newRootContext();
        const QList<HBManagedObject *> waypoints = fetch(*reopened, "HBWaypoint");
        QCOMPARE(waypoints.size(), 1);
        // decimals keep the digits they were written with
        QCOMPARE(waypoints.first()->valueForKey("latitude").value<HBDecimal>().toString(), QStringLiteral("48.117300"));
        QCOMPARE(waypoints.first()->valueForKey("longitude").value<HBDecimal>().toString(), QStringLiteral("-0.000"));
        QCOMPARE(waypoints.first()->valueForKey("elevation").value<HBDecimal>().toString(), QStringLiteral("1000"));
        QCOMPARE(waypoints.first()->valueForKeyPath("importSource.name").toString(), QStringLiteral("walk.gpx"));
        const QList<HBManagedObject *> tracks = fetch(*reopened, "HBTrack");
        QCOMPARE(tracks.size(), 1);
        QCOMPARE(tracks.first()->valueForKey("distance").toDouble(), 1234.5);
        QCOMPARE(tracks.first()->valueForKeyPath("importSource.importDate").toDateTime(), utc(2021, 5, 1, 12));
        HBManagedObject *point = reopened->existingObjectWithID(f->coordinator->managedObjectIDForURIString(pointURI));
        QVERIFY(point);
        QCOMPARE(point->valueForKey("order").toLongLong(), 7);
        QCOMPARE(rowsIn(f->pointsPath(), "HBGeoPoint"), 1);
        QCOMPARE(rowsIn(f->centralPath(), "HBGeoPoint"), 1);
    }

    void idFromOneCoordinatorResolvesThroughTheOther()
    {
        auto writer = f->newRootContext();
        HBManagedObject *waypoint = insert(*writer, "HBWaypoint", {{"name", "spring"}, {"latitude", dec("12.25")}});
        QVERIFY(writer->save());
        const QUrl uri = waypoint->objectID().URIRepresentation();
        QCOMPARE(uri.scheme(), QStringLiteral("x-hbgps"));
        QCOMPARE(uri.path(), QStringLiteral("/HBWaypoint/p1"));

        HBPersistentStoreCoordinator other(HBTrackDataModel::model());
        QVERIFY(other.addPersistentStore(QString(), f->centralPath(), nullptr));
        HBManagedObjectContext reader(HBManagedObjectContext::PrivateQueueConcurrencyType);
        reader.setPersistentStoreCoordinator(&other);
        const HBManagedObjectID id = other.managedObjectIDForURIRepresentation(uri);
        QCOMPARE(id, waypoint->objectID());
        HBManagedObject *found = reader.existingObjectWithID(id);
        QVERIFY(found);
        QCOMPARE(found->valueForKey("name").toString(), QStringLiteral("spring"));

        // unknown stores, temporary IDs and rows that are gone resolve to nothing
        QVERIFY(other.managedObjectIDForURIString("x-hbgps://00000000-0000-0000-0000-000000000000/HBWaypoint/p1").isNull());
        QVERIFY(other.managedObjectIDForURIString(HBManagedObjectID::temporaryID(id.entity()).uriString()).isNull());
        HBError error;
        QVERIFY(!reader.existingObjectWithID(HBManagedObjectID::permanentID(id.entity(), id.storeIdentifier(), 99), &error));
        QVERIFY(!error.isNull());
    }

    // A segment's point list is turned into IDs from its runs' parts; each
    // entry must give the ID its text gives, the odd ones included.
    void pointListGivesTheIDsOfItsTexts()
    {
        const QString store = f->points->identifier();
        const auto uri = [](const QString &host, const QString &entity, qint64 key) {
            return QStringLiteral("x-hbgps://%1/%2/p%3").arg(host, entity).arg(key);
        };
        QStringList texts;
        for (qint64 key = 1; key <= 20; ++key)
            texts << uri(store, "HBTrackPoint", key);
        texts << uri(store.toLower(), "HBTrackPoint", 21) << uri(store, "HBWaypoint", 3)   // not in the point file
              << uri(store, "HBNoSuchEntity", 4) << uri(store, "HBTrackPoint", 0) << uri(store, "HBTrackPoint", -7)
              << uri("a_b", "HBTrackPoint", 5) << uri(store, "HB_Point-2", 6) << uri(store, "HBTrackPoint", 1)
              << uri(f->central->identifier(), "HBWaypoint", 2)
              << HBManagedObjectID::temporaryID(f->coordinator->managedObjectModel()->entityNamed("HBTrackPoint")).uriString()
              << QStringLiteral("not a uri");
        QList<HBManagedObjectID> expected;
        for (const QString &text : texts)
            expected << f->coordinator->managedObjectIDForURIString(text);
        QCOMPARE(expected.count(HBManagedObjectID()), 8);   // the list is not all of one kind

        HBPersistentStoreCoordinator *coordinator = f->coordinator.get();
        const std::optional<QList<HBManagedObjectID>> ids = HBPointURIList::decodeIDs(
            HBPointURIList::encode(texts),
            [coordinator](QStringView host, QStringView entity) {
                return coordinator->managedObjectIDMaker(host, entity);
            },
            [coordinator](const QString &text) { return coordinator->managedObjectIDForURIString(text); });
        QCOMPARE(ids, expected);
    }

    void childSeesParentsUnsavedInsertsAndDeletions()
    {
        auto root = f->newRootContext();
        HBManagedObject *kept = insert(*root, "HBWaypoint", {{"name", "kept"}, {"date", utc(2020, 1, 1)}});
        HBManagedObject *gone = insert(*root, "HBWaypoint", {{"name", "gone"}, {"date", utc(2020, 1, 2)}});
        QVERIFY(root->save());
        root->deleteObject(gone);
        insert(*root, "HBWaypoint", {{"name", "new"}, {"date", utc(2020, 1, 3)}});
        kept->setValueForKey(QVariant(), "date");   // no longer dated, not saved

        HBManagedObjectContext child(HBManagedObjectContext::PrivateQueueConcurrencyType);
        child.setParentContext(root.get());
        QStringList all, dated;
        child.performBlockAndWait([&] {
            for (HBManagedObject *o : fetch(child, "HBWaypoint"))
                all << o->valueForKey("name").toString();
            for (HBManagedObject *o : fetch(child, "HBWaypoint", "date != nil"))
                dated << o->valueForKey("name").toString();
        });
        QCOMPARE(all, (QStringList{"kept", "new"}));
        QCOMPARE(dated, (QStringList{"new"}));
    }

    void deletingASourceCascadesThroughEveryRelationship()
    {
        auto c = f->newRootContext();
        HBManagedObject *source = insert(*c, "HBImportSource", {{"name", "a.tcx"}});
        HBManagedObject *other = insert(*c, "HBImportSource", {{"name", "b.tcx"}});
        HBManagedObject *event = insert(*c, "HBEvent", {{"name", "run"}, {"importSource", QVariant::fromValue(source)}});
        for (int i = 0; i < 3; ++i) {
            HBManagedObject *track = insert(*c, "HBTrack", {{"name", QString::number(i)}, {"importSource", QVariant::fromValue(i < 2 ? source : other)},
                                                             {"event", QVariant::fromValue(event)}});
            HBManagedObject *segment = insert(*c, "HBTrackSegment", {{"track", QVariant::fromValue(track)}});
            segment->setObjectForKey(insert(*c, "HBTrackSegmentPointURIs", {{"data", QByteArray("uris")}}), "trackPointURIs");
        }
        HBManagedObject *waypoint = insert(*c, "HBWaypoint", {{"importSource", QVariant::fromValue(source)}});
        insert(*c, "HBGeoPointAdditions", {{"key", "k"}, {"point", QVariant::fromValue(waypoint)}});
        QVERIFY(c->save());

        c->deleteObject(source);
        QVERIFY(c->save());
        QCOMPARE(rowsIn(f->centralPath(), "HBImportSource"), 1);
        QCOMPARE(rowsIn(f->centralPath(), "HBEvent"), 0);
        QCOMPARE(rowsIn(f->centralPath(), "HBTrack"), 1);           // the other source's track stays
        QCOMPARE(rowsIn(f->centralPath(), "HBTrackSegment"), 1);
        QCOMPARE(rowsIn(f->centralPath(), "HBTrackSegmentPointURIs"), 1);
        QCOMPARE(rowsIn(f->centralPath(), "HBGeoPoint"), 0);
        QCOMPARE(rowsIn(f->centralPath(), "HBGeoPointAdditions"), 0);
        // the survivor's event was deleted with its source: the link is cleared, not dangling
        auto fresh = f->newRootContext();
        const QList<HBManagedObject *> left = fetch(*fresh, "HBTrack");
        QCOMPARE(left.size(), 1);
        QVERIFY(!left.first()->objectForKey("event"));
    }

    // Queries are prepared once per store and kept: asked again, the same
    // query must see what was saved in between.
    void repeatedFetchSeesLaterSaves()
    {
        auto writer = f->newRootContext();
        auto reader = f->newRootContext();
        const auto named = [&](const QString &name) {
            return fetch(*reader, "HBWaypoint", QStringLiteral("name == %@"), {name}).size();
        };
        insert(*writer, "HBWaypoint", {{"name", "hut"}});
        QVERIFY(writer->save());
        QCOMPARE(named(QStringLiteral("hut")), 1);
        QCOMPARE(named(QStringLiteral("lake")), 0);
        insert(*writer, "HBWaypoint", {{"name", "hut"}});
        insert(*writer, "HBWaypoint", {{"name", "lake"}});
        QVERIFY(writer->save());
        QCOMPARE(named(QStringLiteral("hut")), 2);
        QCOMPARE(named(QStringLiteral("lake")), 1);
    }

    // Objects known by temporary IDs are indexed only once one is asked
    // for: those inserted before and after that moment, and a fault made
    // for an unknown temporary ID, must all be found, counted and freed.
    void temporaryIDsFindTheirObjectsBeforeAndAfterTheFirstQuestion()
    {
        auto c = f->newRootContext();
        HBManagedObject *before = insert(*c, "HBWaypoint", {{"name", "before"}});
        QCOMPARE(c->objectWithID(before->objectID()), before);
        HBManagedObject *after = insert(*c, "HBWaypoint", {{"name", "after"}});
        QCOMPARE(c->objectWithID(after->objectID()), after);
        const HBManagedObjectID stranger = HBManagedObjectID::temporaryID(before->entity());
        QVERIFY(!c->existingObjectWithID(stranger));
        QCOMPARE(c->registeredObjectCount(), qsizetype(2));
        HBManagedObject *fault = c->objectWithID(stranger);
        QCOMPARE(c->objectWithID(stranger), fault);
        QCOMPARE(c->registeredObjectCount(), qsizetype(3));

        QVERIFY(c->save());
        QVERIFY(!after->objectID().isTemporaryID());
        QCOMPARE(c->objectWithID(after->objectID()), after);
        QCOMPARE(c->registeredObjectCount(), qsizetype(3));
        c->reset();
        QCOMPARE(c->registeredObjectCount(), qsizetype(0));
    }

    // Objects given permanent IDs in a batch are indexed by them only when
    // an ID of their table is first asked for; until then, and after, each
    // must be found as itself, counted once, fetched as itself and removed
    // when deleted.
    void objectsGivenIDsInABatchAreFoundByThem()
    {
        auto c = f->newRootContext();
        HBManagedObject *waypoint = insert(*c, "HBWaypoint", {{"name", "w"}});
        QList<HBManagedObject *> points;
        for (int order = 0; order < 3; ++order) {
            points << insert(*c, "HBTrackPoint", {{"order", order}});
            c->assignObject(points.last(), f->points);
        }
        QVERIFY(c->obtainPermanentIDsForObjects(points + QList<HBManagedObject *>{waypoint}));
        QCOMPARE(c->registeredObjectCount(), qsizetype(4));
        const HBManagedObjectID deletedID = points[2]->objectID();
        c->deleteObject(points[2]);
        QVERIFY(c->save());
        QCOMPARE(c->registeredObjectCount(), qsizetype(3));
        // another table's question leaves the points waiting
        QCOMPARE(c->objectWithID(waypoint->objectID()), waypoint);
        QCOMPARE(c->objectWithID(points[1]->objectID()), points[1]);
        QVERIFY(c->objectWithID(deletedID) != points[2]);
        QCOMPARE(c->registeredObjectCount(), qsizetype(4));

        HBFetchRequest r(QStringLiteral("HBTrackPoint"));
        r.setSortDescriptors({{QStringLiteral("order"), true}});
        QCOMPARE(c->executeFetchRequest(r), points.mid(0, 2));
        c->reset();
        QCOMPARE(c->registeredObjectCount(), qsizetype(0));

        // fetched ones wait too: found as themselves, by ID and by fetch
        auto reader = f->newRootContext();
        const QList<HBManagedObject *> fetched = reader->executeFetchRequest(r);
        QCOMPARE(fetched.size(), 2);
        QCOMPARE(reader->objectWithID(fetched[1]->objectID()), fetched[1]);
        QCOMPARE(reader->executeFetchRequest(r), fetched);
        QCOMPARE(reader->registeredObjectCount(), qsizetype(2));
    }

    // A count of every record is taken from the files while nothing is
    // unsaved, and from a fetch otherwise: both must give what the fetch
    // itself returns, sub-entities included.
    void countAgreesWithTheFetch()
    {
        auto context = f->newRootContext();
        const auto counts = [&](const char *entity) {
            const HBFetchRequest request(QString::fromLatin1(entity));
            return qMakePair(context->countForFetchRequest(request), context->executeFetchRequest(request).size());
        };
        for (int i = 0; i < 3; ++i)
            insert(*context, "HBWaypoint", {{"name", QStringLiteral("w%1").arg(i)}});
        for (int i = 0; i < 2; ++i)
            context->assignObject(insert(*context, "HBTrackPoint", {{"order", i}}), f->points);
        QCOMPARE(counts("HBWaypoint"), qMakePair(qsizetype(3), qsizetype(3)));   // unsaved
        QVERIFY(context->save());
        QCOMPARE(counts("HBWaypoint"), qMakePair(qsizetype(3), qsizetype(3)));
        QCOMPARE(counts("HBTrackPoint"), qMakePair(qsizetype(2), qsizetype(2)));
        QCOMPARE(counts("HBGeoPoint"), qMakePair(qsizetype(5), qsizetype(5)));
        context->deleteObject(fetch(*context, "HBWaypoint").first());
        QCOMPARE(counts("HBWaypoint"), qMakePair(qsizetype(2), qsizetype(2)));   // deletion unsaved
        QVERIFY(context->save());
        QCOMPARE(counts("HBGeoPoint"), qMakePair(qsizetype(4), qsizetype(4)));
    }

};

QTEST_GUILESS_MAIN(tst_HBManagedObjectContext)
#include "tst_HBManagedObjectContext.moc"
