#include "ui/HBTrackSourceSplitView.h"

#include <QChildEvent>
#include <QPainter>

#include <algorithm>

namespace {

// The divider, filled with the light grey (white 2/3) of the source list's
// frame. QSplitterHandle itself widens the grab area of a handle this thin
// to five pixels, two either side of the drawn line.
class DividerHandle : public QSplitterHandle
{
public:
    using QSplitterHandle::QSplitterHandle;

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        painter.fillRect(contentsRect(), QColor::fromRgbF(2.0f / 3, 2.0f / 3, 2.0f / 3));
    }
};

} // namespace

HBTrackSourceSplitView::HBTrackSourceSplitView(QWidget *parent)
    : QSplitter(Qt::Horizontal, parent)
{
    setHandleWidth(kDividerThickness);
    setChildrenCollapsible(false);
    connect(this, &QSplitter::splitterMoved, this, [this] { m_leftWidth = sizes().value(0); });
}

QSplitterHandle *HBTrackSourceSplitView::createHandle()
{
    return new DividerHandle(orientation(), this);
}

// Panes get their minimum widths as they are added, whether by code or by
// the window's Designer file.
void HBTrackSourceSplitView::childEvent(QChildEvent *event)
{
    QSplitter::childEvent(event);
    if (event->type() != QEvent::ChildPolished || count() != 2)
        return;
    widget(0)->setMinimumWidth(kMinimumLeftWidth);
    widget(1)->setMinimumWidth(kMinimumRightWidth);
    setStretchFactor(0, 0);
    setStretchFactor(1, 1);
}

int HBTrackSourceSplitView::leftWidthForResize(int currentLeftWidth, int splitWidth)
{
    if (currentLeftWidth < kMinimumLeftWidth)
        return kMinimumLeftWidth;
    const int largest = splitWidth - kMinimumRightWidth - kDividerThickness;
    return std::max(kMinimumLeftWidth, std::min(currentLeftWidth, largest));
}

void HBTrackSourceSplitView::setLeftWidth(int width)
{
    // bounded by the split view's width at its next resize: before it is
    // shown, its width is not yet its own
    m_leftWidth = std::max(kMinimumLeftWidth, width);
    applyLeftWidth();
}

void HBTrackSourceSplitView::applyLeftWidth()
{
    if (count() == 2)
        setSizes({m_leftWidth, std::max(0, width() - m_leftWidth - kDividerThickness)});
}

void HBTrackSourceSplitView::resizeEvent(QResizeEvent *event)
{
    QSplitter::resizeEvent(event);
    m_leftWidth = leftWidthForResize(m_leftWidth, width());
    applyLeftWidth();
}
