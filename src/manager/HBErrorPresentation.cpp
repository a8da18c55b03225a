#include "manager/HBErrorPresentation.h"

#include "platform/HBMainThread.h"

#include <QCoreApplication>
#include <QMutex>

#include <cstdio>
#include <cstdlib>

namespace {

void defaultErrorPresenter(const HBError &error)
{
    std::fprintf(stderr, "%s %s\n", qPrintable(error.localizedDescription()), qPrintable(error.localizedFailureReason()));
}

void defaultFatalStartupReport(const QString &message, const QString &informativeText)
{
    std::fprintf(stderr, "%s\n%s\n", qPrintable(message), qPrintable(informativeText));
    std::fflush(stdout);
    std::fflush(stderr);
    // Other threads may still be at work on the stores; ending without
    // running static destructors keeps them from tripping over freed state.
    std::_Exit(EXIT_FAILURE);
}

// Never freed: a worker thread may present an error at the very end.
struct Hooks
{
    QMutex lock;
    HBErrorPresentation::ErrorPresenter present = defaultErrorPresenter;
    HBErrorPresentation::FatalStartupReport reportFatal = defaultFatalStartupReport;
};

Hooks &hooks()
{
    static Hooks *installed = new Hooks;
    return *installed;
}

} // namespace

void HBErrorPresentation::setErrorPresenter(ErrorPresenter presenter)
{
    QMutexLocker lock(&hooks().lock);
    hooks().present = presenter ? std::move(presenter) : defaultErrorPresenter;
}

void HBErrorPresentation::setFatalStartupReport(FatalStartupReport report)
{
    QMutexLocker lock(&hooks().lock);
    hooks().reportFatal = report ? std::move(report) : defaultFatalStartupReport;
}

void HBErrorPresentation::presentError(const HBError &error)
{
    ErrorPresenter present;
    {
        QMutexLocker lock(&hooks().lock);
        present = hooks().present;
    }
    HBMainThread::runAndWait([&] { present(error); });
}

void HBErrorPresentation::reportFatalStartupError(const HBError &error)
{
    const QString message = QCoreApplication::translate("HBTrackManager",
                                                        "An Error was encountered trying to load the track manager database.");
    const QString informative = QStringLiteral("%1. %2").arg(error.localizedDescription(), error.localizedFailureReason());
    FatalStartupReport report;
    {
        QMutexLocker lock(&hooks().lock);
        report = hooks().reportFatal;
    }
    HBMainThread::runAndWait([&] { report(message, informative); });
}
