#pragma once

#include <QLinearGradient>
#include <QWidget>

// The background of the detail panes under the list: a blue-grey gradient,
// lightest along the bottom, darkening sharply in the top tenth, so that the
// pane reads as set apart from the list above it.
class HBTrackSourceDetailView : public QWidget
{
    Q_OBJECT
public:
    explicit HBTrackSourceDetailView(QWidget *parent = nullptr);

    // Stops from the bottom (0) to the top (1) of the view.
    const QLinearGradient &gradient() const { return m_gradient; }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QLinearGradient m_gradient;
};
