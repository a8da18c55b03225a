#include "manager/HBOpenFileLimit.h"

#include "platform/HBLogging.h"

#include <QString>

#include <sys/resource.h>

#include <algorithm>
#include <cerrno>

namespace {

QString describe(rlim_t limit)
{
    return limit == RLIM_INFINITY ? QStringLiteral("unlimited") : QString::number(quint64(limit));
}

// Neither the library nor Qt waits on descriptors with select(), which
// cannot see past 1024, so descriptors past it are safe to hand out.
void raiseToHardLimit()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        qCWarning(hbManager).noquote() << "The open-file limit could not be read:" << qt_error_string(errno);
        return;
    }
    const rlim_t before = limit.rlim_cur;
    const rlim_t wanted = std::min<rlim_t>(limit.rlim_max, HBOpenFileLimit::kCeiling);
    rlim_t after = before;
    if (before != RLIM_INFINITY && wanted > before) {
        limit.rlim_cur = wanted;
        if (setrlimit(RLIMIT_NOFILE, &limit) == 0)
            after = wanted;
        else
            qCWarning(hbManager).noquote() << "The open-file limit could not be raised:" << qt_error_string(errno);
    }
    if (after != before)
        qCDebug(hbManager).noquote() << "The open-file limit was raised from" << describe(before) << "to"
                                    << describe(after) << "descriptors.";
    else
        qCDebug(hbManager).noquote() << "The open-file limit stays at" << describe(before) << "descriptors.";
    const quint64 room = HBOpenFileLimit::periodFilesWithin(after);
    if (after != RLIM_INFINITY && room < HBOpenFileLimit::kPeriodFilesWanted)
        qCWarning(hbManager).noquote() << "The open-file limit of" << describe(after)
                                       << "descriptors leaves room for about" << room
                                       << "point files of ten-day periods open at once; the points of further periods "
                                          "cannot be kept in their own files.";
}

} // namespace

void HBOpenFileLimit::raiseOnce()
{
    static const bool raised = [] {
        raiseToHardLimit();
        return true;
    }();
    Q_UNUSED(raised);
}

quint64 HBOpenFileLimit::periodFilesWithin(quint64 softLimit)
{
    return softLimit > kReservedDescriptors ? (softLimit - kReservedDescriptors) / kDescriptorsPerPeriodFile : 0;
}
