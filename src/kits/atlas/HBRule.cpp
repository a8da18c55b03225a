#include "kits/atlas/HBRule.h"

#include "kits/atlas/HBPointSymbolizer.h"

#include <QDataStream>
#include <QIODevice>

HBRule::~HBRule() = default;

void HBRule::addSymbolizer(std::shared_ptr<HBSymbolizer> symbolizer)
{
    addSymbolizer(std::move(symbolizer), m_symbolizers.size());
}

void HBRule::addSymbolizer(std::shared_ptr<HBSymbolizer> symbolizer, qsizetype index)
{
    HBSymbolizer *s = symbolizer.get();
    connect(s, &HBSymbolizer::changed, this, [this, s](const QString &keyPath) { emit changed(keyPath, s); });
    m_symbolizers.insert(index, std::move(symbolizer));
}

void HBRule::removeSymbolizer(const std::shared_ptr<HBSymbolizer> &symbolizer)
{
    if (m_symbolizers.removeOne(symbolizer))
        disconnect(symbolizer.get(), nullptr, this, nullptr);
}

void HBRule::encodeWithCoder(QDataStream &stream) const
{
    QList<HBSymbolizer *> archived;
    for (const std::shared_ptr<HBSymbolizer> &s : m_symbolizers) {
        if (!s->archiveKind().isEmpty())
            archived.append(s.get());
    }
    stream << quint32(archived.size());
    for (const HBSymbolizer *s : archived) {
        QByteArray record;
        QDataStream recordStream(&record, QIODevice::WriteOnly);
        recordStream.setVersion(stream.version());
        s->encodeWithCoder(recordStream);
        stream << s->archiveKind() << record;
    }
}

std::shared_ptr<HBRule> HBRule::decode(QDataStream &stream)
{
    quint32 count = 0;
    stream >> count;
    auto rule = std::make_shared<HBRule>();
    for (quint32 i = 0; i < count && stream.status() == QDataStream::Ok; ++i) {
        QString kind;
        QByteArray record;
        stream >> kind >> record;
        if (kind != HBPointSymbolizer::kind())
            continue;
        QDataStream recordStream(record);
        recordStream.setVersion(stream.version());
        std::shared_ptr<HBPointSymbolizer> symbolizer = HBPointSymbolizer::decode(recordStream);
        if (!symbolizer)
            return nullptr;
        rule->addSymbolizer(std::move(symbolizer));
    }
    return stream.status() == QDataStream::Ok ? rule : nullptr;
}
