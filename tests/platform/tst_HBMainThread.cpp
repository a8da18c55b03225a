#include "platform/HBMainThread.h"

#include <QCoreApplication>
#include <QMutex>
#include <QTest>
#include <QThread>

#include <atomic>
#include <thread>

// A worker that needs the main thread while the main thread waits for the
// worker: each of the library's waits on the main thread must serve the
// worker's request, or the two wait for each other forever.
class tst_HBMainThread : public QObject
{
    Q_OBJECT

private slots:
    void workRunsOnTheMainThread()
    {
        QThread *ranOn = nullptr;
        std::thread worker([&] { HBMainThread::runAndWait([&] { ranOn = QThread::currentThread(); }); });
        // the main thread waits for the worker, serving it meanwhile
        HBMainThread::waitUntil([&](std::chrono::milliseconds slice) {
            QThread::msleep(quint64(slice.count()));
            return ranOn != nullptr;
        });
        worker.join();
        QCOMPARE(ranOn, QCoreApplication::instance()->thread());
        // on the main thread itself, at once
        bool ranAtOnce = false;
        HBMainThread::runAndWait([&] { ranAtOnce = true; });
        QVERIFY(ranAtOnce);
    }

    void waitingForALockServesTheThreadHoldingIt()
    {
        QMutex opening;
        std::atomic<bool> holding = false;
        std::thread worker([&] {
            opening.lock();
            holding = true;
            // as a period file is added to the main thread's coordinator
            // while its opening is held
            HBMainThread::runAndWait([] {});
            opening.unlock();
        });
        while (!holding)
            QThread::yieldCurrentThread();
        HBMainThread::lock(opening);
        opening.unlock();
        worker.join();
    }
};

QTEST_GUILESS_MAIN(tst_HBMainThread)
#include "tst_HBMainThread.moc"
