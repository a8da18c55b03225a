#include "ui/HBTrackDeletionAlerts.h"

#include "browse/HBTrackSourceList.h"
#include "platform/HBUserDefaults.h"
#include "platform/store/HBEntityDescription.h"
#include "ui/HBTrackPickerDefaults.h"

#include <QCheckBox>
#include <QCoreApplication>
#include <QMessageBox>
#include <QPushButton>

namespace {

HBUserDefaults &defaults()
{
    return HBUserDefaults::standardUserDefaults();
}

QString kindWord(const HBManagedObject *object)
{
    return object->entity()->name() == QLatin1String("HBWaypoint") ? HBTrackDeletionAlerts::tr("waypoint")
                                                                  : HBTrackDeletionAlerts::tr("track");
}

QString displayName(const HBManagedObject *object)
{
    return object->valueForKey(QStringLiteral("name")).toString();
}

// The first button of a sheet, as the sheet reports it when it ends.
constexpr int kFirstButtonReturn = 1000;

} // namespace

HBTrackDeletionAlerts::HBTrackDeletionAlerts(QWidget *window, HBTrackSourceList *sourceList)
    : QObject(window)
    , m_window(window)
    , m_sourceList(sourceList)
{
    HBTrackPickerDefaults::registerDefaults();
}

QMessageBox *HBTrackDeletionAlerts::shownAlert() const
{
    return m_window->findChild<QMessageBox *>(QStringLiteral("HBTrackDeletionAlert"));
}

QMessageBox *HBTrackDeletionAlerts::sheet(const QString &message, const QString &informativeText)
{
    auto *alert = new QMessageBox(QMessageBox::Warning, QString(), message, QMessageBox::NoButton, m_window);
    alert->setObjectName(QStringLiteral("HBTrackDeletionAlert"));
    alert->setAttribute(Qt::WA_DeleteOnClose);
    alert->setWindowModality(Qt::WindowModal);
    alert->setInformativeText(informativeText);
    alert->setDefaultButton(alert->addButton(tr("OK"), QMessageBox::AcceptRole));
    alert->setEscapeButton(alert->addButton(tr("Cancel"), QMessageBox::RejectRole));
    // keyed texts: the key is the translation context, the source text its
    // value in English
    alert->setCheckBox(new QCheckBox(QCoreApplication::translate("SuppressionButton", "Do not show this message again")));
    return alert;
}

void HBTrackDeletionAlerts::alertToDeleteTrackOrWaypoint(HBManagedObject *object)
{
    if (!defaults().boolForKey(defaultShouldWarnTrackOrWaypointDeletion)) {
        m_sourceList->deleteTrackOrWaypoint(object);
        return;
    }
    const QString kind = kindWord(object);
    QMessageBox *alert =
        sheet(QCoreApplication::translate("RemoveSelectTrackOrWaypoint.PrimaryText", "Remove selected %1?").arg(kind),
              QCoreApplication::translate("RemoveSelectTrackOrWaypoint.InformativeText",
                                          "Are you sure you want to remove the %1 %2?")
                  .arg(kind, displayName(object)));
    connect(alert, &QMessageBox::finished, this, [=, this] { alertDidEnd(alert, {object, nullptr}); });
    alert->open();
}

void HBTrackDeletionAlerts::alertToDeleteSourceList(HBTreeNode *node)
{
    if (!defaults().boolForKey(defaultShouldWarnSourceListDeletion)) {
        m_sourceList->deleteObjectsFromSourceList(node);
        return;
    }
    QMessageBox *alert = sheet(tr("Remove selected tracks and waypoints?"),
                               tr("Are you sure you want to remove all tracks and waypoints from %1?").arg(node->name()));
    connect(alert, &QMessageBox::finished, this, [=, this] { alertDidEnd(alert, {nullptr, node}); });
    alert->open();
}

void HBTrackDeletionAlerts::alertDidEnd(QMessageBox *alert, Subject subject)
{
    const int returnCode = alert->buttonRole(alert->clickedButton()) == QMessageBox::AcceptRole ? kFirstButtonReturn : 0;
    if (returnCode != kFirstButtonReturn)
        return;
    const bool suppress = alert->checkBox()->isChecked();
    if (subject.trackOrWaypoint) {
        if (suppress)
            defaults().setObject(false, defaultShouldWarnTrackOrWaypointDeletion);
        m_sourceList->deleteTrackOrWaypoint(subject.trackOrWaypoint);
    } else {
        if (suppress)
            defaults().setObject(false, defaultShouldWarnSourceListDeletion);
        m_sourceList->deleteObjectsFromSourceList(subject.node);
    }
}

void HBTrackDeletionAlerts::alertSourceFileNotFound(const QString &message)
{
    QMessageBox alert(QMessageBox::Warning, tr("Source file not found"), tr("Source file not found"), QMessageBox::Ok,
                      m_window);
    alert.setInformativeText(message);
    alert.exec();
}
