#include "export/HBXMLElement.h"

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

HBXMLElement &HBXMLElement::addChild(HBXMLElement child)
{
    m_children.append(std::move(child));
    return *this;
}

HBXMLElement &HBXMLElement::addTextChild(const QString &name, const QString &text)
{
    if (!text.isNull())
        m_children.append(HBXMLElement(name, text));
    return *this;
}
