// A desktop host's device download: a window with a "Download from GPS…"
// button opens the receiver sheet on it; after the save panel, gpsbabel runs
// and the file is imported, with the manager's progress below the button.
//
//   download_host [--screenshot FILE.png]
//
// With --screenshot the sheet is opened at once, the window is written to
// FILE.png with the sheet drawn over it, and the program ends.

#include "manager/HBTrackManager.h"
#include "ui/HBGPSBabelImporterPreflightWindow.h"
#include "ui/HBTrackManagerAlerts.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QLabel>
#include <QPainter>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

// The manager's progress, as a host binds it.
void showProgress(HBTrackManager *manager, QProgressBar *bar, QLabel *info)
{
    bar->setRange(0, manager->trackImportIsIndeterminateProgress() ? 0 : 1000);
    const quint64 max = manager->trackImportProgressMax();
    bar->setValue(max == 0 ? 0 : int(1000 * manager->trackImportProgressValue() / max));
    bar->setVisible(manager->trackImportIsInProgress());
    info->setText(manager->trackImportProgressInfo());
}

// The window with its sheet where a sheet shows: centred at the top.
bool writeScreenshot(QWidget *window, const QString &path)
{
    QWidget *sheet = window->findChild<HBGPSBabelImporterPreflightWindow *>();
    QPixmap picture = window->grab();
    if (sheet) {
        const QPixmap drawn = sheet->grab();
        picture = picture.scaled(picture.size().expandedTo(drawn.size() + QSize(40, 20)));
        QPainter painter(&picture);
        const QRect place(QPoint((picture.width() - drawn.width()) / 2, 0), drawn.size());
        painter.drawPixmap(place, drawn);
        painter.setPen(window->palette().color(QPalette::Mid));
        painter.drawRect(place.adjusted(-1, -1, 0, 0));
    }
    return picture.save(path);
}

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationDisplayName(QStringLiteral("Fernwick"));
    QCommandLineParser parser;
    const QCommandLineOption screenshot(QStringLiteral("screenshot"), QStringLiteral("Write the window with the sheet to FILE."),
                                        QStringLiteral("FILE"));
    parser.addOption(screenshot);
    parser.addHelpOption();
    parser.process(app);
    HBTrackManagerAlerts::install();
    HBGPSBabelImporterPreflightWindow::install();
    HBTrackManager *manager = HBTrackManager::sharedTrackManager();

    QWidget window;
    window.setWindowTitle(QStringLiteral("Fernwick"));
    auto *layout = new QVBoxLayout(&window);
    auto *button = new QPushButton(QApplication::translate("HBTrackPickerWindow", "Download from GPS\u2026"));
    auto *bar = new QProgressBar;
    auto *info = new QLabel;
    layout->addWidget(button);
    layout->addWidget(bar);
    layout->addWidget(info);
    layout->addStretch();
    window.resize(560, 320);
    QObject::connect(button, &QPushButton::clicked, &window, [&] { manager->importWithGPSBabelForWindow(&window); });
    const auto update = [=] { showProgress(manager, bar, info); };
    for (void (HBTrackManager::*changed)() :
         {&HBTrackManager::trackImportIsInProgressChanged, &HBTrackManager::trackImportIsIndeterminateProgressChanged,
          &HBTrackManager::trackImportProgressValueChanged, &HBTrackManager::trackImportProgressInfoChanged})
        QObject::connect(manager, changed, &window, update);
    update();
    window.show();

    if (!parser.isSet(screenshot))
        return app.exec();
    button->click();
    return writeScreenshot(&window, parser.value(screenshot)) ? 0 : 1;
}
