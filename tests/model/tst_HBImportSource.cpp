#include "SqliteRows.h"
#include "TemporaryHome.h"

#include "manager/HBTrackManager.h"
#include "model/HBEvent.h"
#include "model/HBImportSource.h"
#include "model/HBWaypoint.h"
#include "platform/store/HBFetchRequest.h"
#include "platform/store/HBManagedObjectContext.h"

#include <QTemporaryDir>
#include <QTest>
#include <QTimeZone>

#include <functional>
#include <limits>

// Import sources and their events over the track manager's real central
// file: values come back from the file as they were set, and deleting a
// source takes everything it owns with it and nothing else.
class tst_HBImportSource : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    HBTrackManager *m_manager = nullptr;

    static QString central() { return HBTrackManager::supportFolder() + QStringLiteral("/TrackManagerDatabase.sql"); }

    static HBManagedObject *first(HBManagedObjectContext *context, const QString &entity, const QString &format,
                                  const QVariant &argument)
    {
        HBFetchRequest request(entity);
        request.setPredicate(HBPredicate::format(format, {argument}));
        const QList<HBManagedObject *> found = context->executeFetchRequest(request);
        return found.size() == 1 ? found.first() : nullptr;
    }

    static HBImportSource *sourceWithPath(HBManagedObjectContext *context, const QString &path)
    {
        return static_cast<HBImportSource *>(first(context, QStringLiteral("HBImportSource"), QStringLiteral("filePath == %@"), path));
    }

    // Runs the block in a new root context on the shared coordinator, so
    // that a save there lands in the files and a later call reads them.
    void inNewContext(const std::function<void(HBManagedObjectContext *)> &block)
    {
        std::unique_ptr<HBManagedObjectContext> context = m_manager->newManagedObjectContext();
        context->performBlockAndWait([&] { block(context.get()); });
    }

    // Makes a source, lets `fill` set it, saves, and runs `check` on it
    // before the save and on the copy read back from the file.
    void checkSourceBeforeAndAfterReload(const QString &path, const std::function<void(HBImportSource *)> &fill,
                                         const std::function<void(HBImportSource *)> &check)
    {
        inNewContext([&](HBManagedObjectContext *c) {
            auto *source = c->insertNewObject<HBImportSource>(QStringLiteral("HBImportSource"));
            source->setFilePath(path);
            fill(source);
            check(source);
            QVERIFY(c->save());
        });
        inNewContext([&](HBManagedObjectContext *c) {
            HBImportSource *source = sourceWithPath(c, path);
            QVERIFY(source);
            check(source);
        });
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        useTemporaryHome(m_home);
        m_manager = HBTrackManager::sharedTrackManager();
    }

    void sourceTypeKeepsThirtyTwoBits_data()
    {
        QTest::addColumn<QString>("how");          // "none", "setter" or "stored" (a raw 64-bit number)
        QTest::addColumn<qint64>("value");
        QTest::addColumn<qint32>("expected");
        QTest::addColumn<QString>("column");       // the raw value in the file, as SQL
        QTest::newRow("never set reads 0") << "none" << qint64(0) << 0 << "IS NULL";
        QTest::newRow("file source") << "setter" << qint64(1) << 1 << "= 1";
        QTest::newRow("-1 is stored unsigned") << "setter" << qint64(-1) << -1 << "= 4294967295";
        QTest::newRow("int32 min") << "setter" << qint64(std::numeric_limits<qint32>::min())
                                   << std::numeric_limits<qint32>::min() << "= 2147483648";
        QTest::newRow("int32 max") << "setter" << qint64(std::numeric_limits<qint32>::max())
                                   << std::numeric_limits<qint32>::max() << "= 2147483647";
        QTest::newRow("wider number keeps its low bits") << "stored" << qint64(0x100000005) << 5 << "= 4294967301";
        QTest::newRow("above int32 max reads negative") << "stored" << qint64(3000000000) << qint32(-1294967296)
                                                        << "= 3000000000";
        QTest::newRow("negative 64-bit number") << "stored" << qint64(-2) << -2 << "= -2";
    }

    void sourceTypeKeepsThirtyTwoBits()
    {
        QFETCH(QString, how);
        QFETCH(qint64, value);
        QFETCH(qint32, expected);
        QFETCH(QString, column);
        const QString path = QStringLiteral("/sourceType/") + QTest::currentDataTag();
        checkSourceBeforeAndAfterReload(
            path,
            [&](HBImportSource *s) {
                if (how == QLatin1String("setter"))
                    s->setSourceType(qint32(value));
                else if (how == QLatin1String("stored"))
                    s->setValueForKey(value, QStringLiteral("sourceType"));
            },
            [&](HBImportSource *s) { QCOMPARE(s->sourceType(), expected); });
        QCOMPARE(rowsIn(central(), QStringLiteral("HBImportSource"),
                        QStringLiteral("filePath = '%1' AND sourceType %2").arg(path, column)),
                 qint64(1));
    }

    void fileSizeKeepsAllSixtyFourBits_data()
    {
        QTest::addColumn<bool>("isSet");
        QTest::addColumn<quint64>("bytes");
        QTest::newRow("absent") << false << quint64(0);
        QTest::newRow("zero set by hand") << true << quint64(0);
        QTest::newRow("beyond 32 bits") << true << quint64(5'000'000'123);
        QTest::newRow("largest") << true << std::numeric_limits<quint64>::max();
    }

    void fileSizeKeepsAllSixtyFourBits()
    {
        QFETCH(bool, isSet);
        QFETCH(quint64, bytes);
        const std::optional<quint64> expected = isSet ? std::optional<quint64>(bytes) : std::nullopt;
        checkSourceBeforeAndAfterReload(
            QStringLiteral("/fileSize/") + QTest::currentDataTag(), [&](HBImportSource *s) { s->setFileSize(expected); },
            [&](HBImportSource *s) { QCOMPARE(s->fileSize(), expected); });
    }

    void textsAndDatesComeBackFromTheFile()
    {
        const QDateTime imported(QDate(2024, 5, 6), QTime(7, 8, 9, 123), Qt::UTC);
        // a zone other than UTC still means the same instant
        const QDateTime modified(QDate(2023, 1, 2), QTime(3, 4, 5, 6), QTimeZone(3600 * 5));
        checkSourceBeforeAndAfterReload(
            QStringLiteral("/texts/Wanderung Ä.gpx"),
            [&](HBImportSource *s) {
                s->setName(QStringLiteral("Wanderung Ä.gpx"));
                s->setImportDate(imported);
                s->setFileModificationDate(modified);
            },
            [&](HBImportSource *s) {
                QCOMPARE(s->filePath(), QStringLiteral("/texts/Wanderung Ä.gpx"));
                QCOMPARE(s->name(), QStringLiteral("Wanderung Ä.gpx"));
                QCOMPARE(s->importDate(), imported);
                QCOMPARE(s->fileModificationDate(), modified);
                QCOMPARE(s->fileModificationDate().timeSpec(), Qt::UTC);
            });
    }

    void eventValuesComeBackFromTheFile_data()
    {
        QTest::addColumn<QVariant>("order");        // invalid: never set
        QTest::addColumn<qint64>("expectedOrder");
        QTest::addColumn<QString>("duration");      // empty: never set
        QTest::addColumn<QString>("expectedDuration");   // empty: absent
        QTest::newRow("nothing set") << QVariant() << qint64(0) << QString() << QString();
        QTest::newRow("negative order") << QVariant(qint64(-7)) << qint64(-7) << QString() << QString();
        QTest::newRow("largest order") << QVariant(std::numeric_limits<qint64>::max())
                                       << std::numeric_limits<qint64>::max() << QString() << QString();
        QTest::newRow("duration keeps its digits") << QVariant() << qint64(0) << "3600.50" << "3600.50";
        QTest::newRow("not a number is absent") << QVariant(qint64(2)) << qint64(2) << "NaN" << QString();
    }

    void eventValuesComeBackFromTheFile()
    {
        QFETCH(QVariant, order);
        QFETCH(qint64, expectedOrder);
        QFETCH(QString, duration);
        QFETCH(QString, expectedDuration);
        const QString name = QStringLiteral("event ") + QTest::currentDataTag();
        const auto check = [&](HBEvent *e) {
            QCOMPARE(e->order(), expectedOrder);
            if (expectedDuration.isEmpty())
                QVERIFY(!e->duration().has_value());
            else
                QCOMPARE(e->duration()->toString(), expectedDuration);
        };
        inNewContext([&](HBManagedObjectContext *c) {
            auto *event = c->insertNewObject<HBEvent>(QStringLiteral("HBEvent"));
            event->setName(name);
            if (order.isValid())
                event->setOrder(order.toLongLong());
            if (!duration.isEmpty())
                event->setDuration(duration == QLatin1String("NaN") ? HBDecimal::notANumber()
                                                                    : HBDecimal::fromString(duration));
            check(event);
            QVERIFY(c->save());
        });
        inNewContext([&](HBManagedObjectContext *c) {
            auto *event = static_cast<HBEvent *>(first(c, QStringLiteral("HBEvent"), QStringLiteral("name == %@"), name));
            QVERIFY(event);
            check(event);
        });
    }

    void deletingASourceDeletesWhatItOwnsAndNothingElse()
    {
        const QString where = QStringLiteral("name LIKE 'cascade %'");
        inNewContext([](HBManagedObjectContext *c) {
            auto *doomed = c->insertNewObject<HBImportSource>(QStringLiteral("HBImportSource"));
            doomed->setFilePath(QStringLiteral("/cascade/doomed.gpx"));
            auto *kept = c->insertNewObject<HBImportSource>(QStringLiteral("HBImportSource"));
            kept->setFilePath(QStringLiteral("/cascade/kept.gpx"));
            const auto event = [&](HBImportSource *source, const QString &name, qint64 order) {
                auto *e = c->insertNewObject<HBEvent>(QStringLiteral("HBEvent"));
                e->setName(name);
                e->setOrder(order);
                e->setImportSource(source);
                return e;
            };
            const auto waypoint = [&](HBImportSource *source, HBEvent *event, const QString &name) {
                auto *w = c->insertNewObject<HBWaypoint>(QStringLiteral("HBWaypoint"));
                w->setName(name);
                w->setObjectForKey(source, QStringLiteral("importSource"));
                w->setObjectForKey(event, QStringLiteral("event"));
            };
            HBEvent *run = event(doomed, QStringLiteral("cascade run"), 0);
            event(doomed, QStringLiteral("cascade ride"), 1);
            HBEvent *walk = event(kept, QStringLiteral("cascade walk"), 0);
            waypoint(doomed, run, QStringLiteral("cascade start"));
            waypoint(doomed, nullptr, QStringLiteral("cascade summit"));
            waypoint(doomed, nullptr, QStringLiteral("cascade hut"));
            waypoint(kept, walk, QStringLiteral("cascade bench"));
            waypoint(nullptr, nullptr, QStringLiteral("cascade loose"));
            for (HBImportSource *source : {doomed, kept}) {
                HBManagedObject *track = c->insertNewObjectForEntityForName(QStringLiteral("HBTrack"));
                track->setValueForKey(QStringLiteral("cascade track"), QStringLiteral("name"));
                track->setObjectForKey(source, QStringLiteral("importSource"));
            }
            QVERIFY(c->save());
        });
        QCOMPARE(rowsIn(central(), QStringLiteral("HBImportSource"), QStringLiteral("filePath LIKE '/cascade/%'")), qint64(2));
        QCOMPARE(rowsIn(central(), QStringLiteral("HBEvent"), where), qint64(3));
        QCOMPARE(rowsIn(central(), QStringLiteral("HBGeoPoint"), where), qint64(5));
        QCOMPARE(rowsIn(central(), QStringLiteral("HBTrack"), where), qint64(2));

        inNewContext([](HBManagedObjectContext *c) {
            HBImportSource *doomed = sourceWithPath(c, QStringLiteral("/cascade/doomed.gpx"));
            QVERIFY(doomed);
            const QList<HBEvent *> events = doomed->events();
            QCOMPARE(events.size(), 2);
            QCOMPARE(events.first()->importSource(), doomed);
            QCOMPARE(doomed->waypoints().size(), 3);
            QCOMPARE(doomed->tracks().size(), 1);
            c->deleteObject(doomed);
            for (HBEvent *event : events)
                QVERIFY(event->isDeleted());
            QVERIFY(c->save());
        });
        QCOMPARE(rowsIn(central(), QStringLiteral("HBImportSource"), QStringLiteral("filePath LIKE '/cascade/%'")), qint64(1));
        QCOMPARE(rowsIn(central(), QStringLiteral("HBEvent"), where), qint64(1));
        QCOMPARE(rowsIn(central(), QStringLiteral("HBEvent"), QStringLiteral("name = 'cascade walk'")), qint64(1));
        QCOMPARE(rowsIn(central(), QStringLiteral("HBGeoPoint"), where), qint64(2));
        QCOMPARE(rowsIn(central(), QStringLiteral("HBTrack"), where), qint64(1));
        QCOMPARE(rowsIn(central(), QStringLiteral("HBGeoPoint"), QStringLiteral("name IN ('cascade bench', 'cascade loose')")),
                 qint64(2));

        inNewContext([](HBManagedObjectContext *c) {
            HBImportSource *kept = sourceWithPath(c, QStringLiteral("/cascade/kept.gpx"));
            QVERIFY(kept);
            QCOMPARE(kept->events().size(), 1);
            QCOMPARE(kept->events().first()->waypoints().size(), 1);
            QCOMPARE(kept->waypoints().size(), 1);
            QCOMPARE(kept->tracks().size(), 1);
        });
    }
};

QTEST_GUILESS_MAIN(tst_HBImportSource)
#include "tst_HBImportSource.moc"
