#pragma once

#include "kits/atlas/HBStyle.h"

#include <QPointF>

#include <memory>
#include <optional>

class HBClippingRegion;
class HBDrawingContext;
class HBManagedObject;
class HBPointSymbolizer;
class HBTrackBubbleSymbolizer;
class HBTrackPoint;
class QTimer;

// The map style of one track or waypoint: one rule with one point
// symbolizer, kept between runs in the cache folder, and over a track a
// bubble that follows the mouse from point to point.
//
// Hover states: none (mouseOverTrackPointIndex() == NoPoint, no bubble) and
// over point i (the bubble at position 0 of the last rule, drawn first).
// mouseEntered moves to "over", mouseMoved changes the point, mouseExited
// returns to none.
//
// A change of anything the style archives is written to its file a second
// after the last of a burst of changes (and at the latest when the program
// quits). A record with a temporary ID is never loaded or saved.
class HBSimplePointStyle : public HBStyle
{
    Q_OBJECT

public:
    static constexpr quint32 NoPoint = 0xFFFFFFFF;

    // The style kept for the track or waypoint, else a fresh one: a
    // track's point symbolizer has every default, a waypoint's is a magenta
    // waypoint symbol of size 15.
    explicit HBSimplePointStyle(HBManagedObject *trackOrWaypoint);
    ~HBSimplePointStyle() override;

    // "<cache folder>/<store identifier>/Styles/Track_<pN>" or ".../Waypoint_<pN>",
    // the folders made when missing.
    static QString styleCachePathForObject(const HBManagedObject *object);

    // Writes the style to its file; for a deleted record removes the file.
    void save();

    // Not owned: the record owns its style.
    HBManagedObject *trackOrWaypoint() const { return m_trackOrWaypoint; }
    // The last symbolizer of the last rule when the style was made; may be
    // null for a style read from a file that had none.
    std::shared_ptr<HBPointSymbolizer> primaryPointSymbolizer() const { return m_primaryPointSymbolizer; }
    std::shared_ptr<HBTrackBubbleSymbolizer> trackBubbleSymbolizer() const { return m_trackBubbleSymbolizer; }
    HBTrackPoint *mouseOverTrackPoint() const { return m_mouseOverTrackPoint; }
    quint32 mouseOverTrackPointIndex() const { return m_mouseOverTrackPointIndex; }
    // The pending deferred save, or null.
    QTimer *saveTimer() const { return m_saveTimer.get(); }

    unsigned spatialObjectEventOptions() const override
    {
        return HBSpatialObjectMouseEnteredAndExited | HBSpatialObjectMouseMoved;
    }

    // The index of the last point drawn within radius (a Manhattan distance
    // in view pixels) of atPoint, among the points of multiPoint (map
    // coordinates) that the region draws; NoPoint when none is.
    static quint32 indexOfVisibleMultiPoint(std::span<const QPointF> multiPoint, QPointF atPoint, double radius,
                                            const HBClippingRegion &region);

    // atPoint in view coordinates; spatialObject: the track under the mouse.
    void mouseEntered(QPointF atPoint, HBManagedObject *spatialObject, const HBDrawingContext &context);
    void mouseMoved(QPointF atPoint, HBManagedObject *spatialObject, const HBDrawingContext &context);
    void mouseExited();

signals:
    // The style's file was written.
    void saved();

protected:
    // Any change restarts the one-second wait before the save.
    void observeValueForKeyPath(const QString &keyPath, QObject *object) override;

private:
    struct Hover;
    bool initWithCoder(const QString &path);
    void buildFreshStyle();
    // What enter and move share: the track point under the mouse, when it
    // is another one than before.
    std::optional<Hover> hoverOverPoint(QPointF atPoint, HBManagedObject *spatialObject,
                                        const HBDrawingContext &context);
    void describe(const Hover &hover);
    void removeBubble();

    HBManagedObject *m_trackOrWaypoint;
    std::shared_ptr<HBPointSymbolizer> m_primaryPointSymbolizer;
    std::shared_ptr<HBTrackBubbleSymbolizer> m_trackBubbleSymbolizer;
    HBTrackPoint *m_mouseOverTrackPoint = nullptr;
    quint32 m_mouseOverTrackPointIndex = NoPoint;
    std::unique_ptr<QTimer> m_saveTimer;
};
