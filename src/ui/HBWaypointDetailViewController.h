#pragma once

#include "ui/HBDetailViewController.h"

#include <memory>

namespace Ui {
class HBWaypointDetailView;
}

// The pane of a waypoint ("HBWaypointDetailView.ui"): name, position with
// the digits as stored, elevation, date in local time, comment and symbol.
class HBWaypointDetailViewController : public HBDetailViewController
{
    Q_OBJECT
public:
    explicit HBWaypointDetailViewController(QWidget *parent = nullptr);
    ~HBWaypointDetailViewController() override;

    // "48.1173° N, 11.5167° W" from degrees as stored (north and east
    // positive); empty without both.
    static QString positionText(const QString &latitude, const QString &longitude);

protected:
    void showRepresentedObject(HBManagedObject *object) override;
    void clearFields() override;

private:
    std::unique_ptr<Ui::HBWaypointDetailView> m_ui;
};
