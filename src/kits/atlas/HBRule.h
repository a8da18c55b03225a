#pragma once

#include <QList>
#include <QObject>

#include <memory>

class HBSymbolizer;
class QDataStream;

// The symbolizers that draw a geometry, in drawing order. A rule passes on
// the change notices of its symbolizers.
class HBRule : public QObject
{
    Q_OBJECT

public:
    ~HBRule() override;

    const QList<std::shared_ptr<HBSymbolizer>> &symbolizers() const { return m_symbolizers; }
    void addSymbolizer(std::shared_ptr<HBSymbolizer> symbolizer);
    void addSymbolizer(std::shared_ptr<HBSymbolizer> symbolizer, qsizetype index);
    void removeSymbolizer(const std::shared_ptr<HBSymbolizer> &symbolizer);

    // The symbolizers that archive, each as its kind and a record.
    void encodeWithCoder(QDataStream &stream) const;
    // Symbolizers of kinds this program does not know are left out; null
    // for damaged data.
    static std::shared_ptr<HBRule> decode(QDataStream &stream);

signals:
    void changed(const QString &keyPath, QObject *symbolizer);

private:
    QList<std::shared_ptr<HBSymbolizer>> m_symbolizers;
};
