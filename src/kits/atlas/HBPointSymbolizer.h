#pragma once

#include "kits/atlas/HBSymbolizer.h"

#include <QColor>
#include <QImage>

#include <memory>

// Draws a symbol centred on each point shown. The defaults draw a track's
// points as small blue discs with a thin white ring:
//
//   symbolType  Circle     symbolSize  3.0 px
//   fillColor   #1a66ff    strokeColor white   strokeWidth 1.0 px
//
// symbolSize is the distance from the point to the symbol's outline (half
// its width), and the stroke is centred on the outline, so a symbol reaches
// symbolSize + strokeWidth / 2 from its point: the radius a hit test uses.
class HBPointSymbolizer : public HBSymbolizer
{
    Q_OBJECT

public:
    // Numbers are what archives keep; unknown numbers draw a circle.
    enum SymbolType {
        Circle = 0,
        Square = 1,
        Diamond = 2,
        Triangle = 3,
        Waypoint = 4, // a disc with a dot in the stroke colour on its point
    };

    int symbolType() const { return m_symbolType; }
    void setSymbolType(int type);
    float symbolSize() const { return m_symbolSize; }
    void setSymbolSize(float size);
    QColor fillColor() const { return m_fillColor; }
    void setFillColor(const QColor &color);
    QColor strokeColor() const { return m_strokeColor; }
    void setStrokeColor(const QColor &color);
    float strokeWidth() const { return m_strokeWidth; }
    void setStrokeWidth(float width);

    void draw(QPainter &painter, const HBClippingRegion &region, std::span<const QPointF> points) const override;

    static QString kind() { return QStringLiteral("HBPointSymbolizer"); }
    QString archiveKind() const override { return kind(); }
    void encodeWithCoder(QDataStream &stream) const override;
    // Null for a record this program cannot read.
    static std::shared_ptr<HBPointSymbolizer> decode(QDataStream &stream);

private:
    template<typename T>
    void setValue(T &field, const T &value, const char *keyPath);
    QImage symbolImage() const;

    int m_symbolType = Circle;
    float m_symbolSize = 3.0f;
    QColor m_fillColor = QColor(0x1a, 0x66, 0xff);
    QColor m_strokeColor = Qt::white;
    float m_strokeWidth = 1.0f;
    // the symbol drawn once, stamped on every point
    mutable QImage m_symbolImage;
};
