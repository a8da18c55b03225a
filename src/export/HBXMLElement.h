#pragma once

#include <QList>
#include <QString>

#include <utility>

// One element of an XML document being built: name, attributes in the
// order they were added, text, and child elements in order.
class HBXMLElement
{
public:
    HBXMLElement() = default;
    explicit HBXMLElement(QString name, QString text = {});

    QString name() const { return m_name; }
    QString text() const { return m_text; }
    const QList<std::pair<QString, QString>> &attributes() const { return m_attributes; }
    const QList<HBXMLElement> &children() const { return m_children; }
    bool isNull() const { return m_name.isEmpty(); }

    void setText(const QString &text) { m_text = text; }
    HBXMLElement &addAttribute(const QString &name, const QString &value);
    HBXMLElement &addChild(HBXMLElement child);
    // A child with text, only when the text is not null.
    HBXMLElement &addTextChild(const QString &name, const QString &text);

private:
    QString m_name;
    QString m_text;
    QList<std::pair<QString, QString>> m_attributes;
    QList<HBXMLElement> m_children;
};
