#include "ui/HBTrackManagerAlerts.h"

#include "manager/HBErrorPresentation.h"
#include "manager/HBTrackManager.h"

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>

#include <cstdio>
#include <cstdlib>

namespace {

void showErrorPanel(const HBError &error)
{
    QMessageBox panel(QMessageBox::Warning, QApplication::applicationDisplayName(), error.localizedDescription());
    panel.setInformativeText(error.localizedFailureReason());
    panel.exec();
}

void showFatalAlert(const QString &message, const QString &informativeText)
{
    QMessageBox alert;
    alert.setIcon(QMessageBox::Warning);
    alert.setText(message);
    alert.setInformativeText(informativeText);
    alert.addButton(QApplication::translate("HBTrackManager", "Quit"), QMessageBox::AcceptRole);
    alert.exec();
    std::fflush(stdout);
    std::fflush(stderr);
    // The stores are in an unknown state and other threads may be using
    // them: end without running static destructors.
    std::_Exit(EXIT_FAILURE);
}

// Window-modal and not waited for: gpsbabel may say more meanwhile, and
// each message gets an alert of its own.
void showGPSBabelOutput(QObject *window, const QString &text)
{
    auto *parent = qobject_cast<QWidget *>(window);
    if (!parent) {
        HBErrorPresentation::printGPSBabelOutput(text);
        return;
    }
    auto *alert = new QMessageBox(QMessageBox::Warning, QApplication::applicationDisplayName(),
                                  QApplication::translate("HBTrackManager", "GPSBabel error:"), QMessageBox::Ok, parent);
    alert->setInformativeText(text);
    alert->setWindowModality(Qt::WindowModal);
    alert->setAttribute(Qt::WA_DeleteOnClose);
    alert->open();
}

} // namespace

void HBTrackManagerAlerts::install()
{
    HBTrackManager::setErrorPresenter(showErrorPanel);
    HBTrackManager::setFatalStartupReport(showFatalAlert);
    HBErrorPresentation::setGPSBabelOutputPresenter(showGPSBabelOutput);
}
