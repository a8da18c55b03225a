#include "import/ExpatXMLParser.h"

#include "import/ExpatXMLParserDelegate.h"
#include "platform/HBLogging.h"

#include <QFile>
#include <QStringList>

#include <expat.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>

// Lifecycle of one reader:
// 1. Until the first parse() there is no Expat parser, and every position is 0.
// 2. parse() replaces the parser with a fresh one, installs the handlers the
//    delegate names and keeps `parsing` set for the whole run, callbacks
//    included; a parse() requested while it is set is refused.
// 3. abortParsing() acts only while `parsing` is set.
// 4. After parse() the parser stays, so the positions still tell where it
//    stopped; it is freed with the reader.

// Every text Expat hands over is UTF-8 (the library is not built for wide
// characters), whatever the document's own encoding was.
static_assert(std::is_same_v<XML_Char, char>, "Expat must report UTF-8 text");

using Callback = ExpatXMLParserDelegate::Callback;
using Callbacks = ExpatXMLParserDelegate::Callbacks;

namespace {

// FNV-1a: names are a few bytes long, and a lookup must cost less than
// decoding the name afresh would.
struct NameHash
{
    using is_transparent = void;
    size_t operator()(std::string_view name) const
    {
        quint64 hash = 14695981039346656037ull;
        for (const unsigned char c : name) {
            hash ^= c;
            hash *= 1099511628211ull;
        }
        return size_t(hash);
    }
};

struct ParserFree
{
    void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
};
using ParserHandle = std::unique_ptr<std::remove_pointer_t<XML_Parser>, ParserFree>;

// ASCII text written over `target` in place; false, leaving it as it was,
// for other text or a string shared with someone else.
bool assignText(QString &target, const char *utf8)
{
    const size_t length = std::strlen(utf8);
    if (!target.isDetached() || !std::all_of(utf8, utf8 + length, [](char c) { return uchar(c) < 0x80; }))
        return false;
    target.resize(qsizetype(length));
    std::copy(utf8, utf8 + length, target.data());
    return true;
}

// A null pointer from Expat means "absent" and stays a null QString.
QString text(const XML_Char *utf8)
{
    return utf8 ? QString::fromUtf8(utf8) : QString();
}

} // namespace

struct ExpatXMLParser::Private
{
    Private(ExpatXMLParser &q, const QByteArray &data) : q(q), data(data) {}

    ExpatXMLParser &q;
    const QByteArray data;
    ExpatXMLParserDelegate *delegate = nullptr;
    bool shouldProcessNamespaces = false;
    bool shouldReportNamespacePrefixes = false;
    bool shouldResolveExternalEntities = false;
    ParserHandle parser;
    HBError error;
    Callbacks callbacks;
    bool parsing = false;
    bool aborted = false;
    // Element and attribute names already decoded: a document repeats a few
    // names many times, and sharing one QString per name spares decoding
    // and allocating it at every tag. Beyond kMaxNames distinct names (a
    // hostile document) the rest are decoded each time.
    static constexpr size_t kMaxNames = 4096;
    std::unordered_map<std::string, QString, NameHash, std::equal_to<>> names;
    // Entries of `names` met lately, in a table without chains: a document
    // goes round a dozen names, and one is found here by one comparison,
    // without the map's division and walk through its buckets.
    struct RecentName
    {
        std::string_view key;
        const QString *decoded = nullptr;
    };
    std::array<RecentName, 256> recentNames;

    QString name(const XML_Char *utf8);
    // The attributes of the element being started, in one map kept from tag
    // to tag: elements repeat the same attributes ("lat" and "lon" on every
    // point), and refilling the entries in place spares the five
    // allocations of a map built afresh. A delegate that keeps a copy of the
    // map or of a value keeps what it was given: shared data is never
    // written.
    ExpatXMLParserDelegate::Attributes attributes;
    const ExpatXMLParserDelegate::Attributes &attributesOf(const XML_Char **pairs);

    bool createParser();
    void installHandlers();
    bool feed();
    void reportFailure();
    void startElement(const XML_Char *name, const XML_Char **attributes);

    // Expat's handlers: the user data is this object.
    static Private &self(void *userData) { return *static_cast<Private *>(userData); }
    static void XMLCALL onStartElement(void *userData, const XML_Char *name,
                                       const XML_Char **attributes);
    static void XMLCALL onEndElement(void *userData, const XML_Char *name);
    static void XMLCALL onCharacters(void *userData, const XML_Char *s, int length);
    static void XMLCALL onComment(void *userData, const XML_Char *comment);
    static void XMLCALL onProcessingInstruction(void *userData, const XML_Char *target,
                                                const XML_Char *data);
    static void XMLCALL onStartNamespace(void *userData, const XML_Char *prefix,
                                         const XML_Char *uri);
    static void XMLCALL onEndNamespace(void *userData, const XML_Char *prefix);
};

bool ExpatXMLParser::Private::createParser()
{
    // No encoding is forced: Expat detects it from the byte order mark or
    // the XML declaration. Triplets append the prefix to expanded names.
    if (shouldProcessNamespaces) {
        parser.reset(XML_ParserCreateNS(nullptr, SEPARATOR.front().toLatin1()));
        XML_SetReturnNSTriplet(parser.get(), XML_TRUE);
    } else {
        parser.reset(XML_ParserCreate(nullptr));
    }
    return parser != nullptr;
}

void ExpatXMLParser::Private::installHandlers()
{
    XML_Parser p = parser.get();
    XML_SetUserData(p, this);
    if (callbacks & Callback::StartElement)
        XML_SetStartElementHandler(p, &onStartElement);
    if (callbacks & Callback::EndElement)
        XML_SetEndElementHandler(p, &onEndElement);
    if (callbacks & (Callback::FoundCharacters | Callback::FoundUTF8Characters))
        XML_SetCharacterDataHandler(p, &onCharacters);
    if (callbacks & Callback::FoundComment)
        XML_SetCommentHandler(p, &onComment);
    if (callbacks & Callback::FoundProcessingInstruction)
        XML_SetProcessingInstructionHandler(p, &onProcessingInstruction);
    // Expat reports declarations only to a namespace-processing parser.
    if (!shouldReportNamespacePrefixes)
        return;
    if (callbacks & Callback::StartMappingPrefix)
        XML_SetStartNamespaceDeclHandler(p, &onStartNamespace);
    if (callbacks & Callback::EndMappingPrefix)
        XML_SetEndNamespaceDeclHandler(p, &onEndNamespace);
}

// Hands the document to Expat in pieces of BUFFER_SIZE bytes. The piece
// shorter than BUFFER_SIZE is the final one, so a document whose size is
// a multiple of BUFFER_SIZE ends with an empty final piece: without it
// Expat would never check that the document is complete.
bool ExpatXMLParser::Private::feed()
{
    for (qsizetype offset = 0;; offset += BUFFER_SIZE) {
        void *buffer = XML_GetBuffer(parser.get(), BUFFER_SIZE);
        if (!buffer)
            return false;
        const qsizetype remaining = data.size() - offset;
        const bool isFinal = remaining < BUFFER_SIZE;
        const int length = isFinal ? int(remaining) : BUFFER_SIZE;
        std::memcpy(buffer, data.constData() + offset, size_t(length));
        if (XML_ParseBuffer(parser.get(), length, isFinal) != XML_STATUS_OK)
            return false;
        if (isFinal)
            return true;
    }
}

void ExpatXMLParser::Private::reportFailure()
{
    if (!(callbacks & Callback::ParseErrorOccurred))
        return;
    // An abort before the first piece, like a parser that could not be
    // created, leaves Expat with no error of its own to report.
    XML_Error code = XML_ERROR_ABORTED;
    if (!parser)
        code = XML_ERROR_NO_MEMORY;
    else if (!aborted)
        code = XML_GetErrorCode(parser.get());
    error = HBError(QString(ErrorDomain), int(code), QString::fromUtf8(XML_ErrorString(code)));
    delegate->parserParseErrorOccurred(q, error);
}

QString ExpatXMLParser::Private::name(const XML_Char *utf8)
{
    const std::string_view key(utf8);
    const size_t slot = NameHash()(key) % recentNames.size();
    if (const RecentName &recent = recentNames[slot]; recent.decoded && recent.key == key)
        return *recent.decoded;
    auto found = names.find(key);
    if (found == names.end()) {
        const QString decoded = QString::fromUtf8(key.data(), qsizetype(key.size()));
        if (names.size() >= kMaxNames)
            return decoded;
        found = names.emplace(key, decoded).first;
    }
    recentNames[slot] = {found->first, &found->second};
    return found->second;
}

// With namespace processing Expat names an element "uri`local`prefix",
// "uri`local" (no prefix) or "local" (no namespace).
void ExpatXMLParser::Private::startElement(const XML_Char *name, const XML_Char **attributes)
{
    QString elementName = this->name(name);
    QString namespaceURI;
    QString qualifiedName;
    if (shouldProcessNamespaces) {
        const QStringList parts = elementName.split(SEPARATOR);
        if (parts.size() >= 2) {
            namespaceURI = parts.at(0);
            elementName = parts.at(1);
        }
        qualifiedName = parts.size() >= 3 ? parts.at(2) + u':' + elementName : elementName;
    }
    delegate->parserDidStartElement(q, elementName, namespaceURI, qualifiedName, attributesOf(attributes));
}

const ExpatXMLParserDelegate::Attributes &ExpatXMLParser::Private::attributesOf(const XML_Char **pairs)
{
    // elements without attributes leave the kept map for the next with some
    static const ExpatXMLParserDelegate::Attributes none;
    if (!pairs[0])
        return none;
    qsizetype count = 0;
    while (pairs[2 * count])
        ++count;
    bool refilled = attributes.isDetached() && attributes.size() == count;
    for (const XML_Char **a = pairs; refilled && *a; a += 2) {
        const auto entry = attributes.find(name(a[0]));
        refilled = entry != attributes.end() && assignText(entry.value(), a[1]);
    }
    if (!refilled) {
        attributes = {};
        for (const XML_Char **a = pairs; *a; a += 2)
            attributes.insert(name(a[0]), QString::fromUtf8(a[1]));
    }
    return attributes;
}

void ExpatXMLParser::Private::onStartElement(void *userData, const XML_Char *name,
                                             const XML_Char **attributes)
{
    self(userData).startElement(name, attributes);
}

// End tags are reported with Expat's name as it comes, even with namespace
// processing; the importers never switch it on and so see the same plain
// names on both sides.
void ExpatXMLParser::Private::onEndElement(void *userData, const XML_Char *name)
{
    Private &d = self(userData);
    d.delegate->parserDidEndElement(d.q, d.name(name), QString(), QString());
}

void ExpatXMLParser::Private::onCharacters(void *userData, const XML_Char *s, int length)
{
    Private &d = self(userData);
    if (d.callbacks & Callback::FoundUTF8Characters)
        d.delegate->parserFoundUTF8Characters(d.q, QByteArrayView(s, length));
    if (d.callbacks & Callback::FoundCharacters)
        d.delegate->parserFoundCharacters(d.q, QString::fromUtf8(s, length));
}

void ExpatXMLParser::Private::onComment(void *userData, const XML_Char *comment)
{
    Private &d = self(userData);
    d.delegate->parserFoundComment(d.q, QString::fromUtf8(comment));
}

void ExpatXMLParser::Private::onProcessingInstruction(void *userData, const XML_Char *target,
                                                      const XML_Char *data)
{
    Private &d = self(userData);
    d.delegate->parserFoundProcessingInstruction(d.q, QString::fromUtf8(target),
                                                 QString::fromUtf8(data));
}

// Expat gives no prefix for the default namespace, which is reported as "".
void ExpatXMLParser::Private::onStartNamespace(void *userData, const XML_Char *prefix,
                                               const XML_Char *uri)
{
    Private &d = self(userData);
    d.delegate->parserDidStartMappingPrefix(d.q, QString::fromUtf8(prefix ? prefix : ""), text(uri));
}

void ExpatXMLParser::Private::onEndNamespace(void *userData, const XML_Char *prefix)
{
    Private &d = self(userData);
    d.delegate->parserDidEndMappingPrefix(d.q, QString::fromUtf8(prefix ? prefix : ""));
}

ExpatXMLParser::ExpatXMLParser(const QByteArray &data)
    : d(std::make_unique<Private>(*this, data))
{
}

std::unique_ptr<ExpatXMLParser> ExpatXMLParser::fromContentsOfFile(const QString &filePath)
{
    QFile file(filePath);
    QByteArray data;
    if (file.open(QIODevice::ReadOnly))
        data = file.readAll();
    else
        qCWarning(hbImport) << "Cannot read" << filePath << ":" << file.errorString();
    return std::make_unique<ExpatXMLParser>(data);
}

ExpatXMLParser::~ExpatXMLParser() = default;

ExpatXMLParserDelegate *ExpatXMLParser::delegate() const
{
    return d->delegate;
}

void ExpatXMLParser::setDelegate(ExpatXMLParserDelegate *delegate)
{
    d->delegate = delegate;
}

bool ExpatXMLParser::shouldProcessNamespaces() const
{
    return d->shouldProcessNamespaces;
}

void ExpatXMLParser::setShouldProcessNamespaces(bool process)
{
    d->shouldProcessNamespaces = process;
}

bool ExpatXMLParser::shouldReportNamespacePrefixes() const
{
    return d->shouldReportNamespacePrefixes;
}

void ExpatXMLParser::setShouldReportNamespacePrefixes(bool report)
{
    d->shouldReportNamespacePrefixes = report;
}

bool ExpatXMLParser::shouldResolveExternalEntities() const
{
    return d->shouldResolveExternalEntities;
}

void ExpatXMLParser::setShouldResolveExternalEntities(bool resolve)
{
    d->shouldResolveExternalEntities = resolve;
}

bool ExpatXMLParser::parse()
{
    // A parse started from one of its own callbacks would free the Expat
    // parser that is calling.
    if (d->parsing)
        return true;
    d->error = HBError();
    d->callbacks = d->delegate ? d->delegate->implementedCallbacks() : Callbacks();
    const bool created = d->createParser();
    if (created)
        d->installHandlers();
    d->parsing = true;
    d->aborted = false;
    if (d->callbacks & Callback::StartDocument)
        d->delegate->parserDidStartDocument(*this);
    const bool succeeded = created && !d->aborted && d->feed();
    d->parsing = false;
    if (!succeeded)
        d->reportFailure();
    if (d->callbacks & Callback::EndDocument)
        d->delegate->parserDidEndDocument(*this);
    return true;
}

void ExpatXMLParser::abortParsing()
{
    if (!d->parsing || !d->parser)
        return;
    d->aborted = true;
    XML_StopParser(d->parser.get(), XML_FALSE);
}

HBError ExpatXMLParser::parserError() const
{
    return d->error;
}

qint64 ExpatXMLParser::lineNumber() const
{
    return d->parser ? qint64(XML_GetCurrentLineNumber(d->parser.get())) : 0;
}

qint64 ExpatXMLParser::columnNumber() const
{
    if (!d->parser)
        return 0;
    return qint64(XML_GetCurrentColumnNumber(d->parser.get()))
        + XML_GetCurrentByteCount(d->parser.get());
}

qint64 ExpatXMLParser::byteNumber() const
{
    return d->parser ? qint64(XML_GetCurrentByteIndex(d->parser.get())) : 0;
}
