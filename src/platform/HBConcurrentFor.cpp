#include "platform/HBConcurrentFor.h"

#include <QThread>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

void HBConcurrentFor(qsizetype count, const std::function<void(qsizetype)> &job)
{
    std::atomic<qsizetype> next{0};
    const auto work = [&] {
        for (qsizetype i = next++; i < count; i = next++)
            job(i);
    };
    const qsizetype helpers = std::min<qsizetype>(count, QThread::idealThreadCount()) - 1;
    std::vector<std::jthread> threads;
    for (qsizetype i = 0; i < helpers; ++i)
        threads.emplace_back(work);
    work();
}
