#include "ui/HBMapCanvas.h"

#include "kits/atlas/HBDrawingContext.h"
#include "kits/atlas/HBPointSymbolizer.h"
#include "kits/geometry/HBPointGeometry.h"
#include "model/HBTrack.h"
#include "model/HBTrackGeometry.h"
#include "model/HBWaypoint.h"
#include "ui/HBMapWorldImage.h"
#include "ui/HBSimplePointStyle.h"
#include "ui/HBTileLayer.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>
#include <optional>

namespace {

const HBProjection kMercator(HBProjection::WebMercatorSRID);
// Pixels beyond the view that are still drawn, so that a symbol on the
// edge shows whole: the reach of the largest symbol, a waypoint's.
constexpr double kSymbolMargin = 20;
// A press that moves less than this far (pixels) is a click, not a drag.
constexpr double kClickSlop = 4;
// The scale that shows a lone waypoint, metres per pixel.
constexpr double kLoneObjectScale = 2;
// Extra pixels of the halo of a selected object beyond its symbol.
constexpr float kHaloWidth = 3;
const QColor kHaloColor(255, 200, 0);

// Read and reprojected once for every map of the program.
const HBMapWorldImage &worldImage()
{
    static const HBMapWorldImage image;
    return image;
}

bool overlaps(const QRectF &a, const QRectF &b)
{
    // unlike QRectF::intersects, true for the empty bounds of one point
    return a.left() <= b.right() && b.left() <= a.right() && a.top() <= b.bottom() && b.top() <= a.bottom();
}

// Unlike QRectF::united, keeps rectangles without extent: a lone waypoint's.
QRectF covering(const QRectF &a, const QRectF &b)
{
    return QRectF(QPointF(std::min(a.left(), b.left()), std::min(a.top(), b.top())),
                  QPointF(std::max(a.right(), b.right()), std::max(a.bottom(), b.bottom())));
}

} // namespace

// One listed object as the map draws it: its record, style and points in
// Web Mercator, with their bounds.
struct HBMapCanvas::Item
{
    qsizetype index;
    HBSpatialObject *object;
    HBManagedObject *record;
    bool isTrack;
    std::shared_ptr<HBSimplePointStyle> style;
    std::shared_ptr<HBMultiPointGeometry> points;

    // pixels from a point to the edge of its symbol
    double radius() const
    {
        const std::shared_ptr<HBPointSymbolizer> symbolizer = style->primaryPointSymbolizer();
        return symbolizer ? symbolizer->symbolSize() + symbolizer->strokeWidth() * 0.5 : 0;
    }
};

HBMapCanvas::HBMapCanvas(QWidget *parent)
    : QWidget(parent)
    , m_halo(std::make_unique<HBPointSymbolizer>())
{
    setFocusPolicy(Qt::StrongFocus);
    setMouseTracking(true);
    setAttribute(Qt::WA_OpaquePaintEvent);
    m_halo->setFillColor(kHaloColor);
    m_halo->setStrokeWidth(0);
}

HBMapCanvas::~HBMapCanvas() = default;

std::unique_ptr<HBMapCanvas::Item> HBMapCanvas::itemFor(HBSpatialObject *object)
{
    auto item = std::make_unique<Item>();
    item->object = object;
    if (auto *track = dynamic_cast<HBTrack *>(object)) {
        const std::shared_ptr<HBTrackGeometry> geometry = track->geometry();
        item->points = geometry ? geometry->geometryWithProjection(kMercator) : nullptr;
        item->style = track->style();
        item->record = track;
        item->isTrack = true;
    } else if (auto *waypoint = dynamic_cast<HBWaypoint *>(object)) {
        const QPointF lonLat = waypoint->geometry()->point();
        std::optional<std::vector<QPointF>> projected = kMercator.project({&lonLat, 1});
        if (projected) {
            // Mercator has no room for the poles: a waypoint beyond 85.05
            // degrees stands on the edge of the map's square world
            QPointF &p = projected->front();
            p.setY(std::clamp(p.y(), -HBMapView::kWorldHalf, HBMapView::kWorldHalf));
            item->points = std::make_shared<HBMultiPointGeometry>(std::move(*projected), kMercator.srid());
        }
        item->style = waypoint->style();
        item->record = waypoint;
        item->isTrack = false;
    }
    // a track without located points has nothing to draw, and its bounds
    // would pull a fitted view to (0, 0)
    if (!item->points || item->points->count() == 0 || !item->style)
        return nullptr;
    return item;
}

void HBMapCanvas::setSpatialObjects(const QList<HBSpatialObject *> &objects)
{
    endHover();
    for (const std::unique_ptr<Item> &item : m_items) {
        if (item)
            disconnect(item->style.get(), nullptr, this, nullptr);
    }
    m_items.clear();
    m_context.reset();
    m_objects = objects;
    for (qsizetype i = 0; i < objects.size(); ++i) {
        std::unique_ptr<Item> item = itemFor(objects[i]);
        if (item) {
            item->index = i;
            connect(item->style.get(), &HBStyle::changed, this, qOverload<>(&QWidget::update));
        }
        m_items.push_back(std::move(item));
    }
    update();
}

void HBMapCanvas::setSpatialObjectSelectionIndexes(const QList<qsizetype> &indexes)
{
    m_selection = indexes;
    std::sort(m_selection.begin(), m_selection.end());
    update();
}

bool HBMapCanvas::isSelected(const Item &item) const
{
    return std::binary_search(m_selection.cbegin(), m_selection.cend(), item.index);
}

void HBMapCanvas::fitSpatialObjects(const QList<HBSpatialObject *> &objects)
{
    std::optional<QRectF> bounds;
    for (const std::unique_ptr<Item> &item : m_items) {
        if (item && objects.contains(item->object))
            bounds = bounds ? covering(*bounds, item->points->boundingRect()) : item->points->boundingRect();
    }
    if (bounds)
        setView(HBMapView::fitting(*bounds, size(), kFitMargin, kLoneObjectScale));
}

void HBMapCanvas::setView(const HBMapView &view)
{
    if (view == m_view)
        return;
    m_view = view;
    m_context.reset();
    // the bubble points at where the track point was drawn
    endHover();
    update();
    emit viewChanged();
}

void HBMapCanvas::setTileLayer(HBTileLayer *tiles)
{
    if (m_tiles)
        disconnect(m_tiles, nullptr, this, nullptr);
    m_tiles = tiles;
    if (tiles)
        connect(tiles, &HBTileLayer::tileArrived, this, qOverload<>(&QWidget::update));
    update();
}

HBSimplePointStyle *HBMapCanvas::hoveredStyle() const
{
    return m_hovered ? m_hovered->style.get() : nullptr;
}

const HBDrawingContext &HBMapCanvas::drawingContext() const
{
    if (!m_context) {
        m_context = std::make_unique<HBDrawingContext>(
            kMercator, m_view.clippingRegion(size(), kSymbolMargin, kMinSpacingPixels));
    }
    return *m_context;
}

void HBMapCanvas::resizeEvent(QResizeEvent *)
{
    m_context.reset();
}

void HBMapCanvas::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    m_graticule.drawBackground(painter, m_view, size());
    worldImage().draw(painter, m_view, size());
    if (m_tiles)
        m_tiles->draw(painter, m_view, size());
    m_graticule.drawLines(painter, m_view, size());
    const HBDrawingContext &context = drawingContext();
    for (const std::unique_ptr<Item> &item : m_items) {
        if (item && item.get() != m_hovered)
            drawItem(painter, *item, context);
    }
    // the hovered track and its bubble above the rest
    if (m_hovered)
        drawItem(painter, *m_hovered, context);
    drawAttribution(painter);
}

void HBMapCanvas::drawItem(QPainter &painter, const Item &item, const HBDrawingContext &context)
{
    const HBClippingRegion &region = context.clippingRegion();
    if (!overlaps(item.points->boundingRect(), region.mapRect()))
        return;
    const std::span<const QPointF> points = item.points->points();
    if (isSelected(item)) {
        m_halo->setSymbolSize(float(item.radius()) + kHaloWidth);
        m_halo->draw(painter, region, points);
    }
    item.style->draw(painter, region, points);
}

void HBMapCanvas::drawAttribution(QPainter &painter)
{
    if (!m_tiles || m_tiles->attribution().isEmpty())
        return;
    const QRect text = painter.fontMetrics().boundingRect(m_tiles->attribution()).adjusted(-4, -2, 4, 2);
    QRect box(QPoint(), text.size());
    box.moveBottomRight(rect().bottomRight());
    painter.fillRect(box, Qt::white);
    painter.setPen(Qt::black);
    painter.drawText(box, Qt::AlignCenter, m_tiles->attribution());
}

bool HBMapCanvas::reaches(const Item &item, QPointF viewPoint) const
{
    const double reach = item.radius() * m_view.metresPerPixel();
    const QPointF at = m_view.toMap(viewPoint, size());
    return overlaps(item.points->boundingRect().adjusted(-reach, -reach, reach, reach), QRectF(at, at));
}

quint32 HBMapCanvas::hitIndex(const Item &item, QPointF viewPoint, const HBDrawingContext &context) const
{
    if (!reaches(item, viewPoint))
        return HBSimplePointStyle::NoPoint;
    return HBSimplePointStyle::indexOfVisibleMultiPoint(item.points->points(), viewPoint, item.radius(),
                                                        context.clippingRegion());
}

HBSpatialObject *HBMapCanvas::spatialObjectAt(QPointF viewPoint) const
{
    const HBDrawingContext &context = drawingContext();
    for (auto it = m_items.rbegin(); it != m_items.rend(); ++it) {
        if (*it && hitIndex(**it, viewPoint, context) != HBSimplePointStyle::NoPoint)
            return (*it)->object;
    }
    return nullptr;
}

void HBMapCanvas::hover(QPointF viewPoint)
{
    // The track under the mouse: the hovered one keeps the mouse while it
    // is within its bounds, unless a track drawn above it has a point
    // there. The style then finds the point itself, so the hovered track
    // is walked once per move.
    const HBDrawingContext &context = drawingContext();
    Item *target = nullptr;
    for (auto it = m_items.rbegin(); it != m_items.rend() && !target; ++it) {
        Item *item = it->get();
        if (!item || !item->isTrack || !reaches(*item, viewPoint))
            continue;
        if (item == m_hovered || hitIndex(*item, viewPoint, context) != HBSimplePointStyle::NoPoint)
            target = item;
    }
    if (target != m_hovered) {
        endHover();
        m_hovered = target;
        if (target)
            target->style->mouseEntered(viewPoint, target->record, context);
    } else if (target) {
        target->style->mouseMoved(viewPoint, target->record, context);
    }
    update();
}

void HBMapCanvas::endHover()
{
    if (m_hovered)
        m_hovered->style->mouseExited();
    m_hovered = nullptr;
}

void HBMapCanvas::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return;
    m_pressPosition = m_lastDragPosition = event->position();
    m_dragging = true;
}

void HBMapCanvas::mouseMoveEvent(QMouseEvent *event)
{
    if (!m_dragging) {
        hover(event->position());
        return;
    }
    const QPointF delta = event->position() - m_lastDragPosition;
    m_lastDragPosition = event->position();
    setView(m_view.panned(delta));
}

void HBMapCanvas::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton || !m_dragging)
        return;
    m_dragging = false;
    if ((event->position() - m_pressPosition).manhattanLength() >= kClickSlop)
        return;
    if (HBSpatialObject *object = spatialObjectAt(event->position()))
        emit spatialObjectsClicked({object});
}

void HBMapCanvas::leaveEvent(QEvent *)
{
    endHover();
    update();
}

void HBMapCanvas::wheelEvent(QWheelEvent *event)
{
    // one notch of 120 eighths of a degree zooms by the square root of 2
    const double factor = std::pow(2.0, event->angleDelta().y() / 240.0);
    setView(m_view.zoomed(factor, event->position(), size()));
}

void HBMapCanvas::keyPressEvent(QKeyEvent *event)
{
    const QPointF centre(width() / 2.0, height() / 2.0);
    const double across = width() / 4.0;
    const double down = height() / 4.0;
    switch (event->key()) {
    case Qt::Key_Left: setView(m_view.panned(QPointF(across, 0))); break;
    case Qt::Key_Right: setView(m_view.panned(QPointF(-across, 0))); break;
    case Qt::Key_Up: setView(m_view.panned(QPointF(0, down))); break;
    case Qt::Key_Down: setView(m_view.panned(QPointF(0, -down))); break;
    case Qt::Key_Plus:
    case Qt::Key_Equal: setView(m_view.zoomed(2, centre, size())); break;
    case Qt::Key_Minus: setView(m_view.zoomed(0.5, centre, size())); break;
    default: QWidget::keyPressEvent(event); return;
    }
}
