#include "ui/HBTrackDetailViewController.h"

#include "browse/HBTracksAndWaypointsTableModel.h"
#include "model/HBImportSource.h"
#include "model/HBTrack.h"
#include "ui/HBTracksAndWaypointsItemDelegate.h"
#include "ui_HBTrackDetailView.h"

HBTrackDetailViewController::HBTrackDetailViewController(QWidget *parent)
    : HBDetailViewController(parent)
    , m_ui(std::make_unique<Ui::HBTrackDetailView>())
{
    m_ui->setupUi(this);
    useLightText();
}

HBTrackDetailViewController::~HBTrackDetailViewController() = default;

void HBTrackDetailViewController::showRepresentedObject(HBManagedObject *object)
{
    const auto *track = static_cast<const HBTrack *>(object);
    using Model = HBTracksAndWaypointsTableModel;
    const auto text = [this](int column, const QVariant &value) {
        return HBTracksAndWaypointsItemDelegate::textForValue(column, value, locale());
    };
    const auto optional = [](std::optional<double> value) { return value ? QVariant(*value) : QVariant(); };
    const auto *source = dynamic_cast<const HBImportSource *>(track->importSource());
    m_ui->nameField->setText(track->name());
    m_ui->startField->setText(text(Model::StartDate, track->startDate()));
    m_ui->endField->setText(text(Model::StartDate, track->endDate()));
    m_ui->durationField->setText(text(Model::Duration, optional(track->duration())));
    m_ui->distanceField->setText(text(Model::Distance, optional(track->distance())));
    m_ui->pointsField->setText(text(Model::Points, track->numberOfTrackPoints()));
    m_ui->segmentsField->setText(locale().toString(qint64(track->countOfSegments())));
    m_ui->sourceFileField->setText(source ? source->name() : QString());
    m_ui->sourceFileField->setToolTip(source ? source->filePath() : QString());
}

void HBTrackDetailViewController::clearFields()
{
    for (QLabel *field : {m_ui->nameField, m_ui->startField, m_ui->endField, m_ui->durationField, m_ui->distanceField,
                          m_ui->pointsField, m_ui->segmentsField, m_ui->sourceFileField})
        field->clear();
}
