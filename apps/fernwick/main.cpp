// fernwick: the desktop host, a map of every stored track and waypoint.
//
//   fernwick [--screenshot FILE.png [--size WxH]]
//
// With --screenshot the window starts on the user's stores, fits the map to
// the listed objects, puts the mouse over the first track so that its
// bubble shows, writes the whole window to FILE and exits; it runs with
// QT_QPA_PLATFORM=offscreen.

#include "FernwickLibraryLayer.h"
#include "FernwickWindow.h"

#include "manager/HBTrackManager.h"
#include "ui/HBTrackManagerAlerts.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QRegularExpression>

#include <cstdio>

namespace {

std::optional<QSize> parseSize(const QString &text)
{
    const QRegularExpressionMatch m = QRegularExpression(QStringLiteral("^(\\d+)x(\\d+)$")).match(text);
    if (!m.hasMatch())
        return std::nullopt;
    return QSize(m.captured(1).toInt(), m.captured(2).toInt());
}

int writeScreenshot(FernwickWindow &window, const QString &path, QSize size)
{
    window.resize(size);
    window.show();
    QApplication::processEvents();
    window.zoomToFit();
    window.hoverFirstTrack();
    if (!window.grab().save(path)) {
        std::fprintf(stderr, "fernwick: cannot write %s\n", qPrintable(path));
        return 1;
    }
    return 0;
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
    const std::optional<QSize> windowSize = parseSize(parser.value(size));
    if (!windowSize) {
        std::fprintf(stderr, "fernwick: --size wants WIDTHxHEIGHT, such as 1000x700\n");
        return 2;
    }

    HBTrackManagerAlerts::install();
    FernwickWindow window(HBTrackManager::sharedTrackManager());
    window.layer()->refresh();
    if (parser.isSet(screenshot))
        return writeScreenshot(window, parser.value(screenshot), *windowSize);
    window.show();
    return app.exec();
}
