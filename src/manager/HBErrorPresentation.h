#pragma once

#include "platform/HBError.h"

#include <functional>

class QObject;

// How the library shows the few failures a person must see: an error
// panel's stand-in, the fatal report when the stores cannot be opened at
// start, and what gpsbabel says during a device download. A desktop host
// installs its own (HBTrackManagerAlerts); the defaults write to stderr, and
// the fatal one ends the process with a non-zero status.
class HBErrorPresentation
{
public:
    using ErrorPresenter = std::function<void(const HBError &)>;
    using FatalStartupReport = std::function<void(const QString &message, const QString &informativeText)>;

    // One chunk of gpsbabel's output, for the window of its download (null
    // when there is none).
    using GPSBabelOutputPresenter = std::function<void(QObject *window, const QString &text)>;

    static void setErrorPresenter(ErrorPresenter presenter);
    static void setFatalStartupReport(FatalStartupReport report);
    // Shows the error on the main thread; returns when it has been shown.
    static void presentError(const HBError &error);
    // "An Error was encountered trying to load the track manager database."
    // with the error's description and reason.
    static void reportFatalStartupError(const HBError &error);

    static void setGPSBabelOutputPresenter(GPSBabelOutputPresenter presenter);
    // Call on the main thread.
    static void presentGPSBabelOutput(QObject *window, const QString &text);
    // "GPSBabel error: <text>" on stderr: the default, and the way for
    // messages without a window to show on.
    static void printGPSBabelOutput(const QString &text);
};
