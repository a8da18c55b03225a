#pragma once

#include "platform/HBError.h"

#include <functional>

// How the library shows the few failures a person must see: an error
// panel's stand-in, and the fatal report when the stores cannot be opened
// at start. A desktop host installs its own (HBTrackManagerAlerts); the
// defaults write to stderr, and the fatal one ends the process with a
// non-zero status.
class HBErrorPresentation
{
public:
    using ErrorPresenter = std::function<void(const HBError &)>;
    using FatalStartupReport = std::function<void(const QString &message, const QString &informativeText)>;

    static void setErrorPresenter(ErrorPresenter presenter);
    static void setFatalStartupReport(FatalStartupReport report);
    // Shows the error on the main thread; returns when it has been shown.
    static void presentError(const HBError &error);
    // "An Error was encountered trying to load the track manager database."
    // with the error's description and reason.
    static void reportFatalStartupError(const HBError &error);
};
