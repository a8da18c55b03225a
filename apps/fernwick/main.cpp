// fernwick: the desktop host, a map of what the track picker lists, beside
// the picker's window.
//
//   fernwick [--screenshot FILE.png [--size WxH]]
//
// With --screenshot the map window starts on the user's stores, waits for
// the picker's first list ("Recent Imports", unless the picker remembers
// another entry; at most 10 s, for stores with nothing to list), fits the
// map to the listed objects, puts the mouse over the first
// track so that its bubble shows, writes the whole window to FILE and exits;
// it runs with QT_QPA_PLATFORM=offscreen.

#include "FernwickWindow.h"

#include "manager/HBTrackManager.h"
#include "ui/HBScreenshot.h"
#include "ui/HBTrackManagerAlerts.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QTimer>

#include <cstdio>

namespace {

// Writes the window once the picker has listed something, or after
// kListWait for stores with nothing to list; ends the program with 0 when
// written.
void screenshotAfterFirstList(FernwickWindow &window, const QString &path, QSize size)
{
    constexpr int kListWait = 10000; // ms
    window.resize(size);
    window.show();
    const auto write = [&window, path] {
        window.zoomToFit();
        window.hoverFirstTrack();
        HBScreenshot::writeAndQuit(&window, path, "fernwick");
    };
    QObject::connect(&window, &FernwickWindow::firstListShown, &window, write);
    QTimer::singleShot(kListWait, &window, write);
}

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Fernwick"));
    QApplication::setApplicationVersion(QStringLiteral("0.1"));
    QCommandLineParser parser;
    parser.addHelpOption();
    const QCommandLineOption screenshot(QStringLiteral("screenshot"), QStringLiteral("Write the window to FILE and exit."),
                                        QStringLiteral("FILE"));
    const QCommandLineOption size(QStringLiteral("size"), QStringLiteral("The window's size for --screenshot."),
                                  QStringLiteral("WxH"), QStringLiteral("1000x700"));
    parser.addOptions({screenshot, size});
    parser.process(app);
    const std::optional<QSize> windowSize = HBScreenshot::parseSize(parser.value(size));
    if (!windowSize) {
        std::fprintf(stderr, "fernwick: --size wants WIDTHxHEIGHT, such as 1000x700\n");
        return 2;
    }

    HBTrackManagerAlerts::install();
    HBTrackManager::sharedTrackManager();
    FernwickWindow window;
    if (parser.isSet(screenshot))
        screenshotAfterFirstList(window, parser.value(screenshot), *windowSize);
    else {
        window.show();
        window.showTrackPicker();
    }
    return app.exec();
}
