#pragma once

#include "kits/atlas/HBBubbleSymbolizer.h"
#include "kits/utility/HBDateFormatter.h"

#include <optional>

class QLabel;

// The bubble over a hovered track point, made from the interface file
// "HBTrackPointViewHUD": a line that says which point of which track it is
// (pointDescription) above the point's date and time of day. The
// represented object is the HBTrackPoint (as HBManagedObject *) or nothing.
class HBTrackBubbleSymbolizer : public HBBubbleSymbolizer
{
    Q_OBJECT

public:
    explicit HBTrackBubbleSymbolizer(const QVariant &representedObject);

    QString pointDescription() const { return m_pointDescription; }
    void setPointDescription(const QString &description);
    QLabel *dateField() const { return m_dateField; }
    QLabel *timeField() const { return m_timeField; }
    // How the fields write the point's date; they stay empty without.
    void setDateFormatter(const HBDateFormatter &formatter);
    void setTimeFormatter(const HBDateFormatter &formatter);

    void setRepresentedObject(const QVariant &object) override;

private:
    void showDate();

    QString m_pointDescription;
    QLabel *m_descriptionField = nullptr;
    QLabel *m_dateField = nullptr;
    QLabel *m_timeField = nullptr;
    std::optional<HBDateFormatter> m_dateFormatter;
    std::optional<HBDateFormatter> m_timeFormatter;
};
