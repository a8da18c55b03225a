#include "ui/HBTrackPickerToolbar.h"

#include "ui/HBToolbarImages.h"

#include <QLabel>

namespace {
const QString kTrackInfo = QStringLiteral("TrackInfo");
const QString kZoomToFit = QStringLiteral("ZoomToFit");
const QString kFlexibleSpace;   // the empty identifier
} // namespace

HBTrackPickerToolbar::HBTrackPickerToolbar(QWidget *parent)
    : QToolBar(parent)
{
    setObjectName(QStringLiteral("TrackAndWaypointBrowserToolbar"));
    setWindowTitle(tr("Toolbar"));
    setMovable(false);
    setFloatable(false);
    setToolButtonStyle(Qt::ToolButtonIconOnly);
    setIconSize(QSize(24, 24));
    toggleViewAction()->setVisible(false);
    for (const QString &identifier : defaultItemIdentifiers()) {
        if (identifier == kTrackInfo)
            addTrackInfo();
        else if (identifier == kZoomToFit)
            addZoomToFit();
        else
            addFlexibleSpace();
    }
}

QStringList HBTrackPickerToolbar::defaultItemIdentifiers()
{
    return {kFlexibleSpace, kTrackInfo, kFlexibleSpace, kZoomToFit};
}

void HBTrackPickerToolbar::addFlexibleSpace()
{
    auto *space = new QWidget(this);
    space->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    addWidget(space);
}

// 275 wide so that "999 Tracks (9,999,999 points), 999 Waypoints" fits;
// as high as the small font needs.
void HBTrackPickerToolbar::addTrackInfo()
{
    m_trackInfo = new QLabel(this);
    m_trackInfo->setObjectName(kTrackInfo);
    m_trackInfo->setAccessibleName(QStringLiteral("Selection Information"));
    m_trackInfo->setAlignment(Qt::AlignCenter);
    m_trackInfo->setTextInteractionFlags(Qt::NoTextInteraction);
    QFont small = m_trackInfo->font();
    small.setPointSizeF(small.pointSizeF() * 0.85);
    m_trackInfo->setFont(small);
    m_trackInfo->setFixedSize(275, m_trackInfo->sizeHint().height());
    addWidget(m_trackInfo);
}

void HBTrackPickerToolbar::addZoomToFit()
{
    m_zoomToFit = addAction(HBToolbarImages::imageNamed(QStringLiteral("24-zoom-fill")), tr("Zoom To Fit"));
    m_zoomToFit->setObjectName(kZoomToFit);
    m_zoomToFit->setToolTip(tr("Zoom map to fit tracks"));
}

void HBTrackPickerToolbar::setSelectedSourceListDescription(const QString &description)
{
    m_trackInfo->setText(description);
}
