#include "ui/HBWaypointDetailViewController.h"

#include "browse/HBTracksAndWaypointsTableModel.h"
#include "model/HBWaypoint.h"
#include "ui/HBTracksAndWaypointsItemDelegate.h"
#include "ui_HBWaypointDetailView.h"

namespace {

// "-11.5167" with "E" and "W" becomes "11.5167° W"
QString hemisphereText(QString degrees, QChar positive, QChar negative)
{
    const bool south = degrees.startsWith(u'-');
    if (south)
        degrees.remove(0, 1);
    return QStringLiteral("%1\u00B0 %2").arg(degrees, south ? negative : positive);
}

QString decimalText(const std::optional<HBDecimal> &value)
{
    return value ? value->toString() : QString();
}

} // namespace

HBWaypointDetailViewController::HBWaypointDetailViewController(QWidget *parent)
    : HBDetailViewController(parent)
    , m_ui(std::make_unique<Ui::HBWaypointDetailView>())
{
    m_ui->setupUi(this);
    useLightText();
}

HBWaypointDetailViewController::~HBWaypointDetailViewController() = default;

QString HBWaypointDetailViewController::positionText(const QString &latitude, const QString &longitude)
{
    if (latitude.isEmpty() || longitude.isEmpty())
        return {};
    return hemisphereText(latitude, u'N', u'S') + QStringLiteral(", ") + hemisphereText(longitude, u'E', u'W');
}

void HBWaypointDetailViewController::showRepresentedObject(HBManagedObject *object)
{
    const auto *waypoint = static_cast<const HBWaypoint *>(object);
    const QString elevation = decimalText(waypoint->elevation());
    m_ui->nameField->setText(waypoint->name());
    m_ui->positionField->setText(positionText(decimalText(waypoint->latitude()), decimalText(waypoint->longitude())));
    m_ui->elevationField->setText(elevation.isEmpty() ? QString() : tr("%1 m").arg(elevation));
    m_ui->dateField->setText(HBTracksAndWaypointsItemDelegate::textForValue(HBTracksAndWaypointsTableModel::StartDate,
                                                                            waypoint->date(), locale()));
    m_ui->commentField->setText(waypoint->gpsComment());
    m_ui->symbolField->setText(waypoint->symbolName());
}

void HBWaypointDetailViewController::clearFields()
{
    for (QLabel *field : {m_ui->nameField, m_ui->positionField, m_ui->elevationField, m_ui->dateField,
                          m_ui->commentField, m_ui->symbolField})
        field->clear();
}
