#include "platform/store/HBLockOrder.h"

#include <QTest>

#include <thread>

// The check that keeps threads from taking the store layer's locks in an
// order that could deadlock.
class tst_HBLockOrder : public QObject
{
    Q_OBJECT

private slots:
    void locksAreTakenOutsideIn()
    {
        QVERIFY(HBLockOrder::willLock(HBLockOrder::Context));
        QVERIFY(HBLockOrder::willLock(HBLockOrder::Context));   // a child, then its parent
        QVERIFY(HBLockOrder::willLock(HBLockOrder::Opening));
        QVERIFY(HBLockOrder::willLock(HBLockOrder::Store));
        QVERIFY(!HBLockOrder::willLock(HBLockOrder::Coordinator));
        HBLockOrder::didUnlock(HBLockOrder::Coordinator);
        HBLockOrder::didUnlock(HBLockOrder::Store);
        QCOMPARE(HBLockOrder::innermost(), int(HBLockOrder::Opening));
        QVERIFY(HBLockOrder::willLock(HBLockOrder::Coordinator));
        // released out of order: what is still held counts
        HBLockOrder::didUnlock(HBLockOrder::Opening);
        QCOMPARE(HBLockOrder::innermost(), int(HBLockOrder::Coordinator));
        HBLockOrder::didUnlock(HBLockOrder::Coordinator);
        HBLockOrder::didUnlock(HBLockOrder::Context);
        HBLockOrder::didUnlock(HBLockOrder::Context);
        QCOMPARE(HBLockOrder::innermost(), 0);
        // each thread has its own
        QVERIFY(HBLockOrder::willLock(HBLockOrder::Store));
        int other = -1;
        std::thread([&] { other = HBLockOrder::innermost(); }).join();
        QCOMPARE(other, 0);
        HBLockOrder::didUnlock(HBLockOrder::Store);
    }
};

QTEST_GUILESS_MAIN(tst_HBLockOrder)
#include "tst_HBLockOrder.moc"
