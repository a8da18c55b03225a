#pragma once

#include "import/ExpatXMLParser.h"

#include <QByteArray>
#include <QStringList>

#include <expat.h>

#include <algorithm>

// An event's place as a reader's delegate sees it: "line:column:byte".
inline QString place(qint64 line, qint64 column, qint64 byte)
{
    return QStringLiteral("%1:%2:%3").arg(line).arg(column).arg(byte);
}

// The place of every element, text, comment and instruction event as Expat
// itself gives it when asked at each one, without namespace processing.
inline QStringList expatsOwnPlaces(const QByteArray &document)
{
    struct Log
    {
        XML_Parser parser;
        QStringList places;
        static void note(void *userData)
        {
            Log &log = *static_cast<Log *>(userData);
            log.places << place(qint64(XML_GetCurrentLineNumber(log.parser)),
                                qint64(XML_GetCurrentColumnNumber(log.parser)) + XML_GetCurrentByteCount(log.parser),
                                qint64(XML_GetCurrentByteIndex(log.parser)));
        }
    };
    Log log{XML_ParserCreate(nullptr), {}};
    XML_SetUserData(log.parser, &log);
    XML_SetElementHandler(
        log.parser, [](void *data, const XML_Char *, const XML_Char **) { Log::note(data); },
        [](void *data, const XML_Char *) { Log::note(data); });
    XML_SetCharacterDataHandler(log.parser, [](void *data, const XML_Char *, int) { Log::note(data); });
    XML_SetCommentHandler(log.parser, [](void *data, const XML_Char *) { Log::note(data); });
    XML_SetProcessingInstructionHandler(log.parser,
                                        [](void *data, const XML_Char *, const XML_Char *) { Log::note(data); });
    // in the reader's pieces, as Expat splits character data where a piece ends
    for (qsizetype offset = 0;; offset += ExpatXMLParser::BUFFER_SIZE) {
        const int length = int(std::min<qsizetype>(ExpatXMLParser::BUFFER_SIZE, document.size() - offset));
        const bool isFinal = length < ExpatXMLParser::BUFFER_SIZE;
        if (XML_Parse(log.parser, document.constData() + offset, length, isFinal) != XML_STATUS_OK || isFinal)
            break;
    }
    XML_ParserFree(log.parser);
    return log.places;
}
