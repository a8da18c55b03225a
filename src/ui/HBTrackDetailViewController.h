#pragma once

#include "ui/HBDetailViewController.h"

#include <memory>

namespace Ui {
class HBTrackDetailView;
}

// The pane of a track ("HBTrackDetailView.ui"): name, start and end in
// local time, duration, distance, points, segments and the file it came
// from.
class HBTrackDetailViewController : public HBDetailViewController
{
    Q_OBJECT
public:
    explicit HBTrackDetailViewController(QWidget *parent = nullptr);
    ~HBTrackDetailViewController() override;

protected:
    void showRepresentedObject(HBManagedObject *object) override;
    void clearFields() override;

private:
    std::unique_ptr<Ui::HBTrackDetailView> m_ui;
};
