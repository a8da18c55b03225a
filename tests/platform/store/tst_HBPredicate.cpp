#include "StoreFixture.h"

#include "platform/store/HBManagedObjectModel.h"
#include "platform/store/HBPredicate.h"

#include <QTest>

#include <functional>

// Every predicate the library writes must parse, and must select the same
// records whether the store answers it in SQL, it is evaluated in memory on
// loaded records, or it runs over records not saved yet.
class tst_HBPredicate : public QObject
{
    Q_OBJECT

private:
    struct Case
    {
        QString entity;
        QString format;
        std::function<QVariantList(HBManagedObjectContext &)> arguments;
        int expected;
    };
    QHash<QString, Case> m_cases;
    StoreFixture m_fixture;

    static HBManagedObject *first(HBManagedObjectContext &c, const QString &entity, const QString &format, QVariantList args)
    {
        HBFetchRequest r(entity);
        r.setPredicate(HBPredicate::format(format, args));
        const QList<HBManagedObject *> found = c.executeFetchRequest(r);
        return found.isEmpty() ? nullptr : found.first();
    }
    static QVariant object(HBManagedObjectContext &c, const QString &entity, const QString &name)
    {
        return QVariant::fromValue(first(c, entity, QStringLiteral("name == %@"), {name}));
    }
    static QVariant source(HBManagedObjectContext &c, const QString &path)
    {
        return QVariant::fromValue(first(c, QStringLiteral("HBImportSource"), QStringLiteral("filePath == %@"), {path}));
    }
    static QVariant pointsWithOrder(HBManagedObjectContext &c, QList<int> orders)
    {
        QList<HBManagedObjectID> ids;
        for (int order : orders)
            ids << first(c, QStringLiteral("HBTrackPoint"), QStringLiteral("order == %@"), {order})->objectID();
        return QVariant::fromValue(ids);
    }

    // Three sources' worth of records, with the awkward values: equal
    // decimals written differently, missing dates, points in the point file.
    static void populate(HBManagedObjectContext &c, HBPersistentStore *pointStore)
    {
        auto insert = [&c](const QString &entity, const QVariantMap &values) {
            HBManagedObject *o = c.insertNewObjectForEntityForName(entity);
            for (auto it = values.begin(); it != values.end(); ++it)
                o->setValueForKey(it.value(), it.key());
            return o;
        };
        auto obj = [](HBManagedObject *o) { return QVariant::fromValue(o); };
        HBManagedObject *s1 = insert("HBImportSource", {{"filePath", "/data/a.gpx"}, {"name", "a.gpx"}, {"importDate", utc(2020, 1, 1)}});
        HBManagedObject *s2 = insert("HBImportSource", {{"filePath", "/data/b.GPX"}, {"name", "b.GPX"}, {"importDate", utc(2020, 2, 1)}});
        insert("HBImportSource", {{"filePath", "/data/c.tcx"}, {"name", "c.tcx"}, {"importDate", utc(2020, 2, 1)}});
        HBManagedObject *t1 = insert("HBTrack", {{"name", "t1"}, {"importSource", obj(s1)}, {"startDate", utc(2014, 3, 2, 10)}, {"endDate", utc(2014, 3, 2, 12)}});
        insert("HBTrack", {{"name", "t2"}, {"importSource", obj(s1)}, {"startDate", utc(2014, 3, 5, 8)}, {"endDate", utc(2014, 3, 6, 9)}});
        insert("HBTrack", {{"name", "t3"}, {"importSource", obj(s2)}});
        HBManagedObject *w1 = insert("HBWaypoint", {{"name", "w1"}, {"importSource", obj(s1)}, {"date", utc(2014, 3, 2, 11)}, {"latitude", dec("48.117300")}, {"longitude", dec("11.5")}});
        HBManagedObject *w2 = insert("HBWaypoint", {{"name", "w2"}, {"importSource", obj(s2)}, {"latitude", dec("48.1173")}, {"longitude", dec("11.500")}});
        insert("HBWaypoint", {{"name", "w3"}, {"importSource", obj(s2)}, {"date", utc(2014, 3, 10)}, {"latitude", dec("-33.9")}, {"longitude", dec("151.2")}});
        for (int i = 0; i < 4; ++i) {
            HBManagedObject *p = insert("HBTrackPoint", {{"order", i}, {"latitude", dec(i % 2 ? "48.117300" : "47.0")}, {"longitude", dec("11.5")}, {"date", utc(2001, 1, 12, 0, i)}});
            c.assignObject(p, pointStore);
        }
        insert("HBGeoPointSymbol", {{"name", "Flag"}});
        insert("HBGeoPointSymbol", {{"name", "Pin"}});
        insert("HBGeoPointAdditions", {{"key", "com.fernwick.hdop"}, {"value", dec("1.2")}, {"point", obj(w1)}});
        insert("HBGeoPointAdditions", {{"key", "com.fernwick.sat"}, {"value", 7}, {"point", obj(w2)}});
        insert("HBGeoPointAdditions", {{"key", "com.fernwick.hdop"}, {"value", dec("3")}, {"point", obj(w2)}});
        insert("HBTrackAdditions", {{"key", "com.fernwick.link"}, {"value", "hiking"}, {"track", obj(t1)}});
        insert("HBTrackAdditions", {{"key", "com.fernwick.link"}, {"value", "unlinked"}});
        insert("HBBonusTable", {{"key", "a"}, {"value", 1}});
        insert("HBBonusTable", {{"key", "b"}, {"value", "x"}});
    }

    static QStringList keysOf(const QList<HBManagedObject *> &objects)
    {
        QStringList keys;
        for (const HBManagedObject *o : objects)
            keys << o->objectID().uriString();
        keys.sort();
        return keys;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_fixture.open());
        auto c = m_fixture.newRootContext();
        populate(*c, m_fixture.points);
        HBError error;
        QVERIFY2(c->save(&error), qPrintable(error.localizedDescription()));

        using C = HBManagedObjectContext;
        m_cases = {
            {"filePath IN", {"HBImportSource", " filePath IN %@", [](C &) { return QVariantList{QVariant(QStringList{"/data/a.gpx", "/data/c.tcx", "/nowhere"})}; }, 2}},
            {"key ==, leading space", {"HBBonusTable", " key == %@", [](C &) { return QVariantList{"b"}; }, 1}},
            {"key ==", {"HBBonusTable", "key == %@", [](C &) { return QVariantList{"a"}; }, 1}},
            {"period of a day", {"HBTrack", QStringLiteral("(%@ >= %%@) && (%@ < %%@)").replace("%%@", "\x01").replace("%@", "self.startDate").replace("\x01", "%@"),
                                 [](C &) { return QVariantList{utc(2014, 3, 2), utc(2014, 3, 3)}; }, 1}},
            {"equal decimals", {"HBGeoPoint", "(latitude == %@) && (longitude == %@)", [](C &) { return QVariantList{dec("48.1173"), dec("11.50")}; }, 4}},
            {"decimals IN", {"HBGeoPoint", "(latitude IN %@) AND (longitude IN %@)",
                             [](C &) { return QVariantList{QVariantList{dec("48.1173000"), dec("-33.9")}, QVariantList{dec("151.2"), dec("11.5")}}; }, 5}},
            {"dated of source", {"HBWaypoint", "date != nil AND importSource == %@", [](C &c) { return QVariantList{source(c, "/data/b.GPX")}; }, 1}},
            {"dated", {"HBWaypoint", "date != nil", [](C &) { return QVariantList{}; }, 2}},
            {"date range", {"HBWaypoint", "date >= %@ AND date <= %@", [](C &) { return QVariantList{utc(2014, 3, 2, 11), utc(2014, 3, 9)}; }, 1}},
            {"importDate <=", {"HBImportSource", "importDate <= %@", [](C &) { return QVariantList{utc(2020, 1, 31)}; }, 1}},
            {"importDate ==", {"HBImportSource", "importDate == %@", [](C &) { return QVariantList{utc(2020, 2, 1)}; }, 2}},
            {"importSource ==", {"HBTrack", "importSource == %@", [](C &c) { return QVariantList{source(c, "/data/a.gpx")}; }, 2}},
            {"name ==", {"HBGeoPointSymbol", "name == %@", [](C &) { return QVariantList{"Pin"}; }, 1}},
            {"point and key", {"HBGeoPointAdditions", "point == %@ AND key == %@", [](C &c) { return QVariantList{object(c, "HBWaypoint", "w2"), "com.fernwick.hdop"}; }, 1}},
            {"self ==", {"HBTrackPoint", "self == %@", [](C &c) { return QVariantList{QVariant::fromValue(pointsWithOrder(c, {2}).value<QList<HBManagedObjectID>>().first())}; }, 1}},
            {"self IN", {"HBTrackPoint", "self IN %@", [](C &c) { return QVariantList{pointsWithOrder(c, {0, 3})}; }, 2}},
            {"self.importSource IN", {"HBTrack", "self.importSource IN %@", [](C &c) { return QVariantList{QVariantList{source(c, "/data/b.GPX"), source(c, "/data/c.tcx")}}; }, 1}},
            {"started of source", {"HBTrack", "startDate != nil AND importSource == %@", [](C &c) { return QVariantList{source(c, "/data/a.gpx")}; }, 2}},
            {"started", {"HBTrack", "startDate != nil", [](C &) { return QVariantList{}; }, 2}},
            {"running over", {"HBTrack", "startDate <= %@ AND endDate >= %@", [](C &) { return QVariantList{utc(2014, 3, 6), utc(2014, 3, 6)}; }, 1}},
            {"inside", {"HBTrack", "startDate >= %@ AND endDate <= %@", [](C &) { return QVariantList{utc(2014, 3, 1), utc(2014, 3, 3)}; }, 1}},
            {"track and key", {"HBTrackAdditions", "track == %@ AND key == %@", [](C &c) { return QVariantList{object(c, "HBTrack", "t1"), "com.fernwick.link"}; }, 1}},
            {"or of ands", {"HBTrack", "(startDate <= %@ AND endDate >= %@) OR (startDate >= %@ AND endDate <= %@)",
                            [](C &) { return QVariantList{utc(2014, 3, 6), utc(2014, 3, 6), utc(2014, 3, 1), utc(2014, 3, 3)}; }, 2}},
            {"not equal keeps nil", {"HBTrack", "NOT (name != %@)", [](C &) { return QVariantList{"t3"}; }, 1}},
            {"name != includes nil", {"HBGeoPoint", "name != %@", [](C &) { return QVariantList{"w1"}; }, 6}},
        };
    }

    void agreesEverywhere_data()
    {
        QTest::addColumn<QString>("name");
        for (auto it = m_cases.cbegin(); it != m_cases.cend(); ++it)
            QTest::newRow(qPrintable(it.key())) << it.key();
    }

    void agreesEverywhere()
    {
        QFETCH(QString, name);
        const Case &c = m_cases[name];
        auto context = m_fixture.newRootContext();
        const HBPredicate predicate = HBPredicate::format(c.format, c.arguments(*context));
        QVERIFY2(predicate.isValid(), qPrintable(predicate.errorString()));

        // the stores answer it in SQL, without falling back to memory
        const HBEntityDescription *entity = HBTrackDataModel::model()->entityNamed(c.entity);
        int inSql = 0;
        for (HBPersistentStore *store : m_fixture.coordinator->persistentStores()) {
            const auto rows = store->fetchRows(entity, predicate, {}, 0);
            QVERIFY(rows.ok);
            QVERIFY2(rows.filtered, "the predicate was not written as SQL");
            inSql += rows.rows.size();
        }
        QCOMPARE(inSql, c.expected);

        HBFetchRequest request(c.entity);
        request.setPredicate(predicate);
        const QList<HBManagedObject *> fetched = context->executeFetchRequest(request);
        QList<HBManagedObject *> inMemory;
        for (HBManagedObject *o : context->executeFetchRequest(HBFetchRequest(c.entity))) {
            if (predicate.evaluateWithObject(o))
                inMemory << o;
        }
        QCOMPARE(keysOf(fetched), keysOf(inMemory));
        QCOMPARE(fetched.size(), c.expected);

        // the same records, never saved, found through the in-memory overlay
        StoreFixture unsaved;
        QVERIFY(unsaved.open());
        auto scratch = unsaved.newRootContext();
        populate(*scratch, unsaved.points);
        request.setPredicate(HBPredicate::format(c.format, c.arguments(*scratch)));
        QCOMPARE(scratch->executeFetchRequest(request).size(), c.expected);
    }

    // Sorting and filtering in memory order numbers by these comparisons:
    // whole numbers must keep every digit, beyond 32 bits and beyond what a
    // double holds, and compare with decimals by value.
    void comparesNumbersByValue_data()
    {
        QTest::addColumn<QVariant>("a");
        QTest::addColumn<QVariant>("b");
        QTest::addColumn<int>("order");
        QTest::newRow("int, int") << QVariant(2) << QVariant(10) << -1;
        QTest::newRow("negative, positive") << QVariant(-3) << QVariant(qint64(2)) << -1;
        QTest::newRow("beyond 32 bits") << QVariant(qint64(4294967297)) << QVariant(1) << 1;
        QTest::newRow("beyond a double") << QVariant(qint64(9007199254740993)) << QVariant(qint64(9007199254740992)) << 1;
        QTest::newRow("equal, int and long") << QVariant(7) << QVariant(qint64(7)) << 0;
        QTest::newRow("whole and decimal") << QVariant(2) << dec("2.5") << -1;
        QTest::newRow("whole and equal decimal") << QVariant(qint64(3)) << dec("3.000") << 0;
        QTest::newRow("whole and double") << QVariant(qint64(-1)) << QVariant(-1.5) << 1;
    }

    void comparesNumbersByValue()
    {
        QFETCH(QVariant, a);
        QFETCH(QVariant, b);
        QFETCH(int, order);
        bool comparable = false;
        QCOMPARE(HBPredicate::compareValues(a, b, &comparable), order);
        QVERIFY(comparable);
        QCOMPARE(HBPredicate::compareValues(b, a), -order);
    }

    void parsesAndPrints_data()
    {
        QTest::addColumn<QString>("format");
        QTest::addColumn<QString>("printed");
        QTest::newRow("key path through records") << "self.trackSegment.track.importSource = nil" << "trackSegment.track.importSource == nil";
        QTest::newRow("suffix, case and diacritics") << "SELF endswith[cd] \".gpx\"" << "SELF ENDSWITH[cd] \".gpx\"";
        QTest::newRow("true") << "TRUEPREDICATE" << "TRUEPREDICATE";
        QTest::newRow("false") << "FALSEPREDICATE" << "FALSEPREDICATE";
        QTest::newRow("precedence") << "a == 1 OR b == 2 AND c == 3" << "a == 1 OR (b == 2 AND c == 3)";
        QTest::newRow("symbols") << "(a = 1) || !(b <> 2) && c =< 3" << "a == 1 OR (NOT b != 2 AND c <= 3)";
        QTest::newRow("keywords in names") << "order >= 1 AND notes != nil" << "order >= 1 AND notes != nil";
    }

    void parsesAndPrints()
    {
        QFETCH(QString, format);
        QFETCH(QString, printed);
        const HBPredicate p = HBPredicate::format(format);
        QVERIFY2(p.isValid(), qPrintable(p.errorString()));
        QCOMPARE(p.predicateFormat(), printed);
    }

    void rejectsMalformed_data()
    {
        QTest::addColumn<QString>("format");
        QTest::addColumn<int>("arguments");
        QTest::newRow("empty") << "" << 0;
        QTest::newRow("no operator") << "name %@" << 1;
        QTest::newRow("open parenthesis") << "(name == %@" << 1;
        QTest::newRow("too few arguments") << "a == %@ AND b == %@" << 1;
        QTest::newRow("too many arguments") << "a == %@" << 2;
        QTest::newRow("trailing text") << "a == 1 b" << 0;
        QTest::newRow("bad option") << "a ENDSWITH[x] %@" << 1;
        QTest::newRow("unterminated text") << "a == \"abc" << 0;
    }

    void rejectsMalformed()
    {
        QFETCH(QString, format);
        QFETCH(int, arguments);
        const HBPredicate p = HBPredicate::format(format, QVariantList(arguments, QStringLiteral("x")));
        QVERIFY(!p.isValid());
        QVERIFY(!p.errorString().isEmpty());
        QVERIFY(!p.evaluateWithValue(QStringLiteral("x")));
    }

    void suffixTestOnPlainValues_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("matches");
        QTest::newRow("lower") << "/a/walk.gpx" << true;
        QTest::newRow("upper") << "/a/WALK.GPX" << true;
        QTest::newRow("diacritic") << "/a/walk.gpẋ" << true;
        QTest::newRow("inside the name") << "/a/walk.gpx.bak" << false;
        QTest::newRow("no dot") << "/a/walkgpx" << false;
    }

    void suffixTestOnPlainValues()
    {
        QFETCH(QString, path);
        QFETCH(bool, matches);
        const HBPredicate p = HBPredicate::format(QStringLiteral("SELF endswith[cd] %@"), {QStringLiteral(".gpx")});
        QCOMPARE(p.evaluateWithValue(path), matches);
    }
};

QTEST_GUILESS_MAIN(tst_HBPredicate)
#include "tst_HBPredicate.moc"
