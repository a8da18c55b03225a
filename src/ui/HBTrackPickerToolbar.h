#pragma once

#include <QToolBar>

class QLabel;

// The picker window's toolbar ("TrackAndWaypointBrowserToolbar"), icons
// only, small, not customisable, with its items in this order: flexible
// space, "TrackInfo" (a centred line of small text saying what the list
// holds), flexible space, "ZoomToFit".
class HBTrackPickerToolbar : public QToolBar
{
    Q_OBJECT
public:
    explicit HBTrackPickerToolbar(QWidget *parent = nullptr);

    // Identifiers of the items, in order; "" for a flexible space.
    static QStringList defaultItemIdentifiers();

    QAction *zoomToFitItem() const { return m_zoomToFit; }
    QLabel *trackInfoItem() const { return m_trackInfo; }
    void setSelectedSourceListDescription(const QString &description);

private:
    void addFlexibleSpace();
    void addTrackInfo();
    void addZoomToFit();

    QLabel *m_trackInfo = nullptr;
    QAction *m_zoomToFit = nullptr;
};
