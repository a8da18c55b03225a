// The track picker window alone, on the user's stores: browse, import,
// download and delete tracks and waypoints without a map.
//
//   hbgpskit-picker [--select ENTRY] [--row N] [--size WxH] [--screenshot FILE.png]
//
// --select opens the window on a source-list entry ("Date Browser/2005/May",
// "File Browser/walk.gpx"), --row selects a row of its list (from 1),
// --size sets the window's size, and --screenshot writes the window to
// FILE.png once the entry's list is shown, then ends (it works under
// QT_QPA_PLATFORM=offscreen).

#include "HBPickerScreenshot.h"

#include "ui/HBScreenshot.h"
#include "ui/HBTrackManagerAlerts.h"
#include "ui/HBTrackPickerController.h"
#include "ui/HBTrackPickerWindowController.h"

#include <QApplication>
#include <QCommandLineParser>

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("hbgpskit-picker"));
    QApplication::setApplicationDisplayName(QStringLiteral("Fernwick"));
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("The track picker window on the user's stores."));
    const QCommandLineOption select(QStringLiteral("select"), QStringLiteral("Open on the source-list ENTRY."),
                                    QStringLiteral("ENTRY"));
    const QCommandLineOption row(QStringLiteral("row"), QStringLiteral("Select row N of the list (from 1)."),
                                 QStringLiteral("N"));
    const QCommandLineOption size(QStringLiteral("size"), QStringLiteral("Window size, WIDTHxHEIGHT."),
                                  QStringLiteral("WxH"));
    const QCommandLineOption screenshot(QStringLiteral("screenshot"),
                                        QStringLiteral("Write the window to FILE once shown, then end."),
                                        QStringLiteral("FILE"));
    parser.addOptions({select, row, size, screenshot});
    parser.addHelpOption();
    parser.process(app);

    HBTrackManagerAlerts::install();
    HBTrackPickerController picker;
    new HBPickerScreenshot(&picker, parser.value(select), parser.value(row).toInt(), parser.value(screenshot));
    HBTrackPickerWindowController *window = picker.windowController();
    if (const std::optional<QSize> windowSize = HBScreenshot::parseSize(parser.value(size)))
        window->resize(*windowSize);
    picker.showWindow();
    return app.exec();
}
