// A desktop host starting over stores it cannot open: prints what the
// alert shows ("text:", "informative:", "button:", "icon:" lines), then
// presses its button, which ends the program.

#include "manager/HBTrackManager.h"
#include "ui/HBTrackManagerAlerts.h"

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QTimer>

#include <cstdio>

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    HBTrackManagerAlerts::install();
    QTimer watcher;
    QObject::connect(&watcher, &QTimer::timeout, [] {
        auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        if (!box)
            return;
        std::printf("text: %s\n", qPrintable(box->text()));
        std::printf("informative: %s\n", qPrintable(box->informativeText()));
        for (QAbstractButton *button : box->buttons())
            std::printf("button: %s\n", qPrintable(button->text()));
        std::printf("icon: %s\n", box->icon() == QMessageBox::Warning ? "warning" : "other");
        std::fflush(stdout);
        box->buttons().first()->click();
    });
    watcher.start(20);
    HBTrackManager::sharedTrackManager();
    std::printf("started\n");
    return 0;
}
