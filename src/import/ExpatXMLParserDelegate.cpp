#include "import/ExpatXMLParserDelegate.h"

// Empty bodies: a delegate overrides only what it names in implementedCallbacks().

void ExpatXMLParserDelegate::parserDidStartDocument(ExpatXMLParser &) {}

void ExpatXMLParserDelegate::parserDidStartElement(ExpatXMLParser &, const QString &,
                                                   const QString &, const QString &,
                                                   const Attributes &)
{
}

void ExpatXMLParserDelegate::parserDidEndElement(ExpatXMLParser &, const QString &,
                                                 const QString &, const QString &)
{
}

void ExpatXMLParserDelegate::parserFoundCharacters(ExpatXMLParser &, const QString &) {}

void ExpatXMLParserDelegate::parserFoundUTF8Characters(ExpatXMLParser &, QByteArrayView) {}

void ExpatXMLParserDelegate::parserFoundComment(ExpatXMLParser &, const QString &) {}

void ExpatXMLParserDelegate::parserFoundProcessingInstruction(ExpatXMLParser &, const QString &,
                                                              const QString &)
{
}

void ExpatXMLParserDelegate::parserDidStartMappingPrefix(ExpatXMLParser &, const QString &,
                                                         const QString &)
{
}

void ExpatXMLParserDelegate::parserDidEndMappingPrefix(ExpatXMLParser &, const QString &) {}

void ExpatXMLParserDelegate::parserParseErrorOccurred(ExpatXMLParser &, const HBError &) {}

void ExpatXMLParserDelegate::parserDidEndDocument(ExpatXMLParser &) {}
