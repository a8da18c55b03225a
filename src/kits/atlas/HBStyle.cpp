#include "kits/atlas/HBStyle.h"

#include "kits/atlas/HBPointSymbolizer.h"
#include "kits/atlas/HBRule.h"

#include <QDataStream>

namespace {

constexpr quint32 kMagic = 0x48425354; // "HBST"
constexpr quint16 kFormatVersion = 1;
constexpr QDataStream::Version kStreamVersion = QDataStream::Qt_6_0;

} // namespace

HBStyle::HBStyle() = default;

HBStyle::~HBStyle() = default;

std::shared_ptr<HBStyle> HBStyle::styleForGeometry(HBGeometryType type)
{
    auto style = std::make_shared<HBStyle>();
    switch (type) {
    case HBGeometryTypePoint:
    case HBGeometryTypeMultiPoint: {
        auto rule = std::make_shared<HBRule>();
        rule->addSymbolizer(std::make_shared<HBPointSymbolizer>());
        style->addRule(std::move(rule));
        break;
    }
    }
    return style;
}

void HBStyle::addRule(std::shared_ptr<HBRule> rule)
{
    connect(rule.get(), &HBRule::changed, this, &HBStyle::observeValueForKeyPath);
    m_rules.append(std::move(rule));
}

void HBStyle::draw(QPainter &painter, const HBClippingRegion &region, std::span<const QPointF> points) const
{
    for (bool overlays : {false, true}) {
        for (const std::shared_ptr<HBRule> &rule : m_rules) {
            for (const std::shared_ptr<HBSymbolizer> &symbolizer : rule->symbolizers()) {
                if (symbolizer->isOverlay() == overlays)
                    symbolizer->draw(painter, region, points);
            }
        }
    }
}

void HBStyle::observeValueForKeyPath(const QString &, QObject *)
{
    emit changed();
}

void HBStyle::encodeWithCoder(QDataStream &stream) const
{
    stream.setVersion(kStreamVersion);
    stream << kMagic << kFormatVersion << quint32(m_rules.size());
    for (const std::shared_ptr<HBRule> &rule : m_rules)
        rule->encodeWithCoder(stream);
}

bool HBStyle::decodeWithCoder(QDataStream &stream)
{
    stream.setVersion(kStreamVersion);
    quint32 magic = 0;
    quint16 version = 0;
    quint32 count = 0;
    stream >> magic >> version >> count;
    if (stream.status() != QDataStream::Ok || magic != kMagic || version != kFormatVersion)
        return false;
    QList<std::shared_ptr<HBRule>> rules;
    for (quint32 i = 0; i < count; ++i) {
        std::shared_ptr<HBRule> rule = HBRule::decode(stream);
        if (!rule)
            return false;
        rules.append(std::move(rule));
    }
    for (const std::shared_ptr<HBRule> &rule : std::as_const(m_rules))
        disconnect(rule.get(), nullptr, this, nullptr);
    m_rules.clear();
    for (std::shared_ptr<HBRule> &rule : rules)
        addRule(std::move(rule));
    return true;
}
