#pragma once

// complete, for the signal that carries spatial objects
#include "kits/geometry/HBSpatialObject.h"
#include "kits/geometry/HBSpatialObjectController.h"
#include "ui/HBMapGraticule.h"
#include "ui/HBMapView.h"

#include <QList>
#include <QPointer>
#include <QWidget>

#include <memory>
#include <vector>

class HBDrawingContext;
class HBManagedObject;
class HBMultiPointGeometry;
class HBPointSymbolizer;
class HBSimplePointStyle;
class HBTileLayer;

// The map: tracks and waypoints drawn with their styles in Web Mercator
// (EPSG:3857) over the graticule and, when the host gives one, a tile
// layer. The host hands it the list of spatial objects and the selected
// positions in it (as a picker publishes them) and selects what
// spatialObjectsClicked names. A person pans by dragging or with the arrow
// keys, zooms with the wheel around the mouse or with + and -, and sees
// the bubble of the track point under the mouse.
//
// Tracks are drawn from their projected geometry (read from the track's
// cache file once, when the list is given), thinned to points minSpacing
// pixels apart, so a million points cost a walk over an array per frame.
class HBMapCanvas : public QWidget, public HBSpatialObjectController
{
    Q_OBJECT

public:
    // Pixels of map around a fitted set of objects.
    static constexpr double kFitMargin = 24;
    // Closest spacing of the points drawn of one track, pixels.
    static constexpr double kMinSpacingPixels = 2;

    explicit HBMapCanvas(QWidget *parent = nullptr);
    ~HBMapCanvas() override;

    QList<HBSpatialObject *> spatialObjects() const { return m_objects; }
    void setSpatialObjects(const QList<HBSpatialObject *> &objects);
    QList<qsizetype> spatialObjectSelectionIndexes() const { return m_selection; }
    void setSpatialObjectSelectionIndexes(const QList<qsizetype> &indexes);
    void fitSpatialObjects(const QList<HBSpatialObject *> &objects) override;

    HBMapView view() const { return m_view; }
    void setView(const HBMapView &view);
    // Not owned; null for none.
    void setTileLayer(HBTileLayer *tiles);

    // The style of the track under the mouse, or null.
    HBSimplePointStyle *hoveredStyle() const;
    // What the view shows and how it thins, as styles see it; kept until
    // the view, its size or the objects change, so that a frame and the
    // mouse moves over it share the walks over the tracks' points.
    const HBDrawingContext &drawingContext() const;
    // The topmost object with a drawn point within its symbol's reach of
    // viewPoint, or null.
    HBSpatialObject *spatialObjectAt(QPointF viewPoint) const;

signals:
    void viewChanged();
    // A click on an object: the host selects it (addSelectedSpatialObjects).
    void spatialObjectsClicked(const QList<HBSpatialObject *> &objects);

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void leaveEvent(QEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    struct Item;
    static std::unique_ptr<Item> itemFor(HBSpatialObject *object);
    bool isSelected(const Item &item) const;
    void drawItem(QPainter &painter, const Item &item, const HBDrawingContext &context);
    void drawAttribution(QPainter &painter);
    bool reaches(const Item &item, QPointF viewPoint) const;
    quint32 hitIndex(const Item &item, QPointF viewPoint, const HBDrawingContext &context) const;
    void hover(QPointF viewPoint);
    void endHover();

    QList<HBSpatialObject *> m_objects;
    std::vector<std::unique_ptr<Item>> m_items;
    QList<qsizetype> m_selection;
    HBMapView m_view;
    mutable std::unique_ptr<HBDrawingContext> m_context;
    HBMapGraticule m_graticule;
    QPointer<HBTileLayer> m_tiles;
    Item *m_hovered = nullptr;
    std::unique_ptr<HBPointSymbolizer> m_halo;
    QPointF m_pressPosition;
    QPointF m_lastDragPosition;
    bool m_dragging = false;
};
