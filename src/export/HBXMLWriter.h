#pragma once

#include <QByteArray>
#include <QLatin1StringView>
#include <QString>
#include <QStringView>

#include <vector>

// Writes an XML document into a byte array, laid out as QXmlStreamWriter
// lays it out with auto-formatting and an indent of two spaces: the same
// bytes, without a QString or a device write per call. Element and
// attribute names are plain ASCII constants that outlive the writer; text
// and attribute values are escaped as QXmlStreamWriter escapes them.
class HBXMLWriter
{
public:
    // Appends to *document, which must outlive the writer.
    explicit HBXMLWriter(QByteArray *document);
    // Goes on inside the open elements given, outermost first, after a
    // child of the innermost one: for the later part of a document that is
    // written before what comes ahead of it is known.
    HBXMLWriter(QByteArray *document, std::vector<QLatin1StringView> openElements);

    // <?xml version="1.0" encoding="UTF-8"?>
    void writeStartDocument();
    // Closes every open element and ends the last line.
    void writeEndDocument();
    void writeStartElement(QLatin1StringView name);
    void writeEndElement();
    // Only right after writeStartElement or another attribute.
    void writeAttribute(QLatin1StringView name, QStringView value);
    void writeAttribute(QLatin1StringView name, QLatin1StringView value);
    void writeCharacters(QStringView text);
    void writeCharacters(QLatin1StringView text);

private:
    enum class Context { Text, Attribute };

    // Closes a pending start tag; returns whether the current element
    // already holds text, which keeps its end tag on the same line.
    bool finishStartElement(bool contents);
    // The document made longer by `bytes`, which the caller writes.
    char *extend(qsizetype bytes);
    static char *writeIndent(char *to, qsizetype level);
    static char *writeName(char *to, QLatin1StringView name);
    template <typename View>
    void writeAttributeOf(QLatin1StringView name, View value);
    template <typename View>
    void writeCharactersOf(View text);
    template <typename View>
    static bool isAllPlain(View text);
    template <typename View>
    static char *copyPlain(char *to, View text);
    void writeEscapedByQt(const QString &text, Context context);

    QByteArray &m_out;
    std::vector<QLatin1StringView> m_open;
    bool m_inStartElement = false;
    bool m_wroteSomething = false;
    bool m_lastWasStartElement = false;
};
