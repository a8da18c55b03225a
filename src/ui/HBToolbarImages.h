#pragma once

#include <QIcon>

// The toolbar's images, drawn here rather than shipped as files so that
// they are sharp at every screen scale. Known names: "24-zoom-fill" (a
// magnifier inside four corner marks: fit the map to the tracks).
class HBToolbarImages
{
public:
    // A null icon for an unknown name.
    static QIcon imageNamed(const QString &name);

private:
    static QPixmap zoomFill(qreal devicePixelRatio);
};
