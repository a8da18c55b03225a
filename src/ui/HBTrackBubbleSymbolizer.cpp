#include "ui/HBTrackBubbleSymbolizer.h"

#include "model/HBGeoPoint.h"
#include "ui_HBTrackPointViewHUD.h"

HBTrackBubbleSymbolizer::HBTrackBubbleSymbolizer(const QVariant &representedObject)
    : HBBubbleSymbolizer(std::make_unique<QWidget>(), representedObject)
{
    Ui::HBTrackPointViewHUD ui;
    ui.setupUi(view());
    m_descriptionField = ui.descriptionField;
    m_dateField = ui.dateField;
    m_timeField = ui.timeField;
}

void HBTrackBubbleSymbolizer::setPointDescription(const QString &description)
{
    m_pointDescription = description;
    m_descriptionField->setText(description);
}

void HBTrackBubbleSymbolizer::setDateFormatter(const HBDateFormatter &formatter)
{
    m_dateFormatter = formatter;
    showDate();
}

void HBTrackBubbleSymbolizer::setTimeFormatter(const HBDateFormatter &formatter)
{
    m_timeFormatter = formatter;
    showDate();
}

void HBTrackBubbleSymbolizer::setRepresentedObject(const QVariant &object)
{
    HBBubbleSymbolizer::setRepresentedObject(object);
    showDate();
}

void HBTrackBubbleSymbolizer::showDate()
{
    const auto *point = dynamic_cast<const HBGeoPoint *>(representedObject().value<HBManagedObject *>());
    const QDateTime date = point ? point->date() : QDateTime();
    m_dateField->setText(m_dateFormatter ? m_dateFormatter->stringFromDate(date) : QString());
    m_timeField->setText(m_timeFormatter ? m_timeFormatter->stringFromDate(date) : QString());
    // a point without a date leaves no empty line in the bubble
    m_dateField->setHidden(m_dateField->text().isEmpty());
    m_timeField->setHidden(m_timeField->text().isEmpty());
}
