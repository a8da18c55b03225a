#include "ui/HBDetailViewController.h"

#include <QLabel>

HBDetailViewController::HBDetailViewController(QWidget *parent)
    : HBTrackSourceDetailView(parent)
{
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
}

void HBDetailViewController::setRepresentedObject(HBManagedObject *object)
{
    m_representedObject = object;
    if (object)
        showRepresentedObject(object);
    else
        clearFields();
}

void HBDetailViewController::useLightText()
{
    QPalette light = palette();
    light.setColor(QPalette::WindowText, Qt::white);
    light.setColor(QPalette::Text, Qt::white);
    setPalette(light);
    for (QLabel *label : findChildren<QLabel *>()) {
        if (label->objectName().endsWith(QLatin1String("Title")))
            label->setStyleSheet(QStringLiteral("color: rgba(255, 255, 255, 190);"));
    }
}
