#include "platform/store/HBEntityDescription.h"
#include "platform/store/HBManagedObject.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBManagedObjectModel.h"
#include "platform/store/HBPersistentStore.h"
#include "platform/store/HBPersistentStoreCoordinator.h"
#include "platform/store/HBStorePlacement.h"

#include <QTemporaryDir>
#include <QTest>

namespace {

// A reading that says when its day, which picks its file, changes.
class Reading : public HBManagedObject
{
public:
    void setDay(int day)
    {
        setValueForKey(day, QStringLiteral("day"));
        routingKeyDidChange(day);
    }
};

// Odd days in one file, even days in the other; a reading whose day is not
// set yet is left to the default store.
class OddEvenLayout : public HBStorePlacement
{
public:
    HBPersistentStore *odd = nullptr;
    HBPersistentStore *even = nullptr;
    int asked = 0;

    void placeObject(HBManagedObject *object, const QVariant &routingKey) override
    {
        ++asked;
        if (object->objectID().isTemporaryID() && routingKey.isValid())
            object->managedObjectContext()->assignObject(object, routingKey.toInt() % 2 ? odd : even);
    }
};

} // namespace

// A layout of records over several files of its own, consulted by the
// contexts of a coordinator over its model: at insertion, and when a
// record's routing key changes before it is saved.
class tst_HBStorePlacement : public QObject
{
    Q_OBJECT

private slots:
    void recordsGoWhereTheLayoutPutsThem()
    {
        HBManagedObjectModel model;
        HBEntityDescription &reading = model.addEntity(QStringLiteral("Reading"));
        reading.addAttribute(QStringLiteral("day"), HBAttributeType::Integer);
        reading.setFactory([] { return new Reading; });
        QVERIFY(model.finalise());
        OddEvenLayout layout;
        model.setStorePlacement(&layout);

        QTemporaryDir dir;
        HBPersistentStoreCoordinator coordinator(&model);
        HBError error;
        HBPersistentStore *fallback = coordinator.addPersistentStore({}, dir.filePath(QStringLiteral("any.sql")), &error);
        layout.odd = coordinator.addPersistentStore({}, dir.filePath(QStringLiteral("odd.sql")), &error);
        layout.even = coordinator.addPersistentStore({}, dir.filePath(QStringLiteral("even.sql")), &error);
        QVERIFY(fallback && layout.odd && layout.even);

        HBManagedObjectContext context(HBManagedObjectContext::PrivateQueueConcurrencyType);
        context.setPersistentStoreCoordinator(&coordinator);
        context.performBlockAndWait([&] {
            auto *unset = context.insertNewObject<Reading>(QStringLiteral("Reading"));
            auto *moved = context.insertNewObject<Reading>(QStringLiteral("Reading"));
            moved->setDay(3);
            moved->setDay(4);   // still unsaved: it follows its day
            auto *saved = context.insertNewObject<Reading>(QStringLiteral("Reading"));
            saved->setDay(5);
            QVERIFY(context.save());
            saved->setDay(6);   // saved: it stays in its file
            QVERIFY(context.save());
            QCOMPARE(layout.asked, 7);
            QCOMPARE(coordinator.persistentStoreForIdentifierToken(unset->objectID().storeToken()), fallback);
            QCOMPARE(coordinator.persistentStoreForIdentifierToken(moved->objectID().storeToken()), layout.even);
            QCOMPARE(coordinator.persistentStoreForIdentifierToken(saved->objectID().storeToken()), layout.odd);
        });
        QCOMPARE(layout.even->countRows(&reading), qint64(1));
        QCOMPARE(layout.odd->countRows(&reading), qint64(1));
        QCOMPARE(fallback->countRows(&reading), qint64(1));
    }
};

QTEST_GUILESS_MAIN(tst_HBStorePlacement)
#include "tst_HBStorePlacement.moc"
