#include "platform/store/HBDeferredDeletion.h"
#include "platform/store/HBManagedObject.h"

#include <QTest>

#include <atomic>
#include <thread>

namespace {

// Counts its destructions and the threads they ran on.
std::atomic<int> freed{0};
std::atomic<int> freedOnCaller{0};
std::thread::id caller;

class CountedRecord : public HBManagedObject
{
public:
    ~CountedRecord() override
    {
        ++freed;
        if (std::this_thread::get_id() == caller)
            ++freedOnCaller;
    }
};

std::vector<HBManagedObject *> records(int count)
{
    std::vector<HBManagedObject *> made;
    for (int i = 0; i < count; ++i)
        made.push_back(new CountedRecord);
    return made;
}

} // namespace

// Records handed over are all freed, once each, off the caller's thread,
// batch after batch; waiting returns only when the last one is gone.
class tst_HBDeferredDeletion : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        caller = std::this_thread::get_id();
        freed = 0;
        freedOnCaller = 0;
    }

    void freesEveryBatchOffTheCallersThread()
    {
        HBDeferredDeletion::deleteObjects(records(50000));
        HBDeferredDeletion::deleteObjects({});
        HBDeferredDeletion::deleteObjects(records(3));
        HBDeferredDeletion::deleteObjects(records(20000));
        HBDeferredDeletion::waitForAll();
        QCOMPARE(freed.load(), 70003);
        QCOMPARE(freedOnCaller.load(), 0);
    }

    void waitingWithNothingHandedOverReturns()
    {
        HBDeferredDeletion::waitForAll();
        QCOMPARE(freed.load(), 0);
    }
};

QTEST_GUILESS_MAIN(tst_HBDeferredDeletion)
#include "tst_HBDeferredDeletion.moc"
