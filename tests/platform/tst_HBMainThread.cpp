#include "platform/HBBackgroundWork.h"
#include "platform/HBMainThread.h"

#include <QCoreApplication>
#include <QMutex>
#include <QProcess>
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

    // A program that ends while a job it started still runs: the job must
    // not run on while the process's statics are freed under it.
    void aProgramsEndWaitsForTheWorkItStarted()
    {
        QProcess program;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("HB_END_WHILE_WORKING"), QStringLiteral("1"));
        program.setProcessEnvironment(environment);
        program.start(QCoreApplication::applicationFilePath(), {});
        QVERIFY(program.waitForFinished(30000));
        QCOMPARE(program.exitStatus(), QProcess::NormalExit);
        QCOMPARE(program.readAllStandardOutput(), QByteArray("job done\n"));
    }
};

// The program of the test above: it starts a job that needs the main thread
// at its end, and returns at once.
static int endWhileWorking(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    HBBackgroundWork::start([] {
        QThread::msleep(300);
        HBMainThread::runAndWait([] { std::fputs("job done\n", stdout); });
    });
    return 0;
}

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsSet("HB_END_WHILE_WORKING"))
        return endWhileWorking(argc, argv);
    QCoreApplication app(argc, argv);
    tst_HBMainThread test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_HBMainThread.moc"
