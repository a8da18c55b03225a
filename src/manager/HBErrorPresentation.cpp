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

void defaultGPSBabelOutputPresenter(QObject *, const QString &text)
{
    HBErrorPresentation::printGPSBabelOutput(text);
}

// Never freed: a worker thread may present an error at the very end.
struct Hooks
{
    QMutex lock;
    HBErrorPresentation::ErrorPresenter present = defaultErrorPresenter;
    HBErrorPresentation::FatalStartupReport reportFatal = defaultFatalStartupReport;
    HBErrorPresentation::GPSBabelOutputPresenter presentGPSBabelOutput = defaultGPSBabelOutputPresenter;
};

Hooks &hooks()
{
    static Hooks *installed = new Hooks;
    return *installed;
}

// A hook is replaced under the lock; null puts the default back.
template<class Hook>
void install(Hook Hooks::*slot, Hook hook, const Hook &fallback)
{
    QMutexLocker lock(&hooks().lock);
    hooks().*slot = hook ? std::move(hook) : fallback;
}

// A copy, so that the hook runs without the lock held.
template<class Hook>
Hook installedHook(Hook Hooks::*slot)
{
    QMutexLocker lock(&hooks().lock);
    return hooks().*slot;
}

} // namespace

void HBErrorPresentation::setErrorPresenter(ErrorPresenter presenter)
{
    install(&Hooks::present, std::move(presenter), ErrorPresenter(defaultErrorPresenter));
}

void HBErrorPresentation::setFatalStartupReport(FatalStartupReport report)
{
    install(&Hooks::reportFatal, std::move(report), FatalStartupReport(defaultFatalStartupReport));
}

void HBErrorPresentation::presentError(const HBError &error)
{
    const ErrorPresenter present = installedHook(&Hooks::present);
    HBMainThread::runAndWait([&] { present(error); });
}

void HBErrorPresentation::reportFatalStartupError(const HBError &error)
{
    const QString message = QCoreApplication::translate("HBTrackManager",
                                                        "An Error was encountered trying to load the track manager database.");
    const QString informative = QStringLiteral("%1. %2").arg(error.localizedDescription(), error.localizedFailureReason());
    const FatalStartupReport report = installedHook(&Hooks::reportFatal);
    HBMainThread::runAndWait([&] { report(message, informative); });
}

void HBErrorPresentation::setGPSBabelOutputPresenter(GPSBabelOutputPresenter presenter)
{
    install(&Hooks::presentGPSBabelOutput, std::move(presenter), GPSBabelOutputPresenter(defaultGPSBabelOutputPresenter));
}

void HBErrorPresentation::presentGPSBabelOutput(QObject *window, const QString &text)
{
    installedHook(&Hooks::presentGPSBabelOutput)(window, text);
}

void HBErrorPresentation::printGPSBabelOutput(const QString &text)
{
    // gpsbabel ends its messages with a newline, mostly
    std::fprintf(stderr, "GPSBabel error: %s%s", qPrintable(text), text.endsWith(u'\n') ? "" : "\n");
}
