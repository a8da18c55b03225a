#include "ui/HBTrackManagerAlerts.h"

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

} // namespace

void HBTrackManagerAlerts::install()
{
    HBTrackManager::setErrorPresenter(showErrorPanel);
    HBTrackManager::setFatalStartupReport(showFatalAlert);
}
