#pragma once

#include "ui/HBTrackSourceDetailView.h"

class HBManagedObject;

// A detail pane under the list of tracks and waypoints: the gradient
// background with light text, showing one record (the represented object).
// Subclasses fill their fields from it.
class HBDetailViewController : public HBTrackSourceDetailView
{
    Q_OBJECT
public:
    explicit HBDetailViewController(QWidget *parent = nullptr);

    HBManagedObject *representedObject() const { return m_representedObject; }
    // Null empties the fields.
    void setRepresentedObject(HBManagedObject *object);

protected:
    // Called with a record to show; the fields are then filled from it.
    virtual void showRepresentedObject(HBManagedObject *object) = 0;
    virtual void clearFields() = 0;
    // Light text on the dark background, for every label of the pane.
    void useLightText();

private:
    HBManagedObject *m_representedObject = nullptr;
};
