#include "export/HBXMLElement.h"

#include <QXmlStreamWriter>

HBXMLElement::HBXMLElement(QString name, QString text)
    : m_name(std::move(name))
    , m_text(std::move(text))
{
}

HBXMLElement &HBXMLElement::addAttribute(const QString &name, const QString &value)
{
    m_attributes.append({name, value});
    return *this;
}

HBXMLElement &HBXMLElement::addChild(const HBXMLElement &child)
{
    m_children.append(child);
    return *this;
}

HBXMLElement &HBXMLElement::addTextChild(const QString &name, const QString &text)
{
    if (!text.isNull())
        m_children.append(HBXMLElement(name, text));
    return *this;
}

void HBXMLElement::write(QXmlStreamWriter &writer) const
{
    writer.writeStartElement(m_name);
    for (const auto &[name, value] : m_attributes)
        writer.writeAttribute(name, value);
    if (!m_text.isEmpty())
        writer.writeCharacters(m_text);
    for (const HBXMLElement &child : m_children)
        child.write(writer);
    writer.writeEndElement();
}
