#pragma once

#include <QSplitter>

// The source list (left) beside the tracks and waypoints (right), parted by
// a light grey line one pixel wide that can be grabbed two pixels either
// side of it. The left pane is never narrower than 150 pixels, so that the
// source names stay readable, and leaves at least 280 to the right pane
// while the window is wide enough for both; when the window grows or
// shrinks the left pane keeps its width and the right pane takes the change.
class HBTrackSourceSplitView : public QSplitter
{
    Q_OBJECT
public:
    static constexpr int kMinimumLeftWidth = 150;    // pixels
    static constexpr int kMinimumRightWidth = 280;   // pixels
    static constexpr int kDividerThickness = 1;      // pixels

    explicit HBTrackSourceSplitView(QWidget *parent = nullptr);

    // The left pane's width after the split view became splitWidth wide.
    static int leftWidthForResize(int currentLeftWidth, int splitWidth);
    // The left pane's width as a person last set it, kept within the bounds.
    int leftWidth() const { return m_leftWidth; }
    void setLeftWidth(int width);

protected:
    QSplitterHandle *createHandle() override;
    void resizeEvent(QResizeEvent *event) override;
    void childEvent(QChildEvent *event) override;

private:
    void applyLeftWidth();

    int m_leftWidth = 240;   // pixels, room for most file names
};
