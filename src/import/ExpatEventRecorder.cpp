#include "import/ExpatEventRecorder.h"

#include "import/ExpatEventQueue.h"
#include "import/ExpatXMLParser.h"

#include <expat.h>

#include <array>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>

// Every text Expat hands over is UTF-8 (the library is not built for wide
// characters), whatever the document's own encoding was.
static_assert(std::is_same_v<XML_Char, char>, "Expat must report UTF-8 text");

using Callback = ExpatXMLParserDelegate::Callback;
using Batch = ExpatEventBatch;

namespace {

// A batch is handed over once it holds this many events or bytes of text:
// large enough that handing over costs nothing next to filling it, small
// enough that the delivering thread soon has work and that the batches on
// their way stay in the processor's cache. A single event can
// take more, but never more than Expat holds of the document at once,
// which its int sizes keep under 2 GiB: offsets fit in 32 bits.
constexpr size_t kBatchEvents = 1024;
constexpr size_t kBatchBytes = 64 * 1024;

// FNV-1a: names are a few bytes long, and a lookup must cost less than
// copying the name out would.
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

} // namespace

struct ExpatEventRecorder::Private
{
    Private(const QByteArray &document, const Options &options, ExpatEventQueue &queue)
        : document(document), options(options), queue(queue)
    {
    }

    const QByteArray document;
    const Options options;
    ExpatEventQueue &queue;
    ParserHandle parser;
    std::unique_ptr<Batch> batch;
    bool stopped = false;
    int errorCode = XML_ERROR_NONE;

    // Element and attribute names already numbered: a document repeats a
    // few names many times. Beyond kMaxNames distinct names (a hostile
    // document) the rest are sent as text each time.
    static constexpr size_t kMaxNames = 4096;
    std::unordered_map<std::string, quint32, NameHash, std::equal_to<>> names;
    // Entries of `names` met lately, in a table without chains: a document
    // goes round a dozen names, and one is found here by one comparison,
    // without the map's division and walk through its buckets.
    struct RecentName
    {
        std::string_view key;
        quint32 id = Batch::kInlineName;
    };
    std::array<RecentName, 256> recentNames;

    // The event before, to tell whether the next comes from the same markup.
    Batch::Kind lastKind = Batch::Kind::Characters;
    Batch::Position lastPosition;
    bool hasLast = false;

    bool createParser();
    void installHandlers();
    Batch::Position position() const;
    Batch::Position placeOfEvent() const;
    Batch::Name name(const XML_Char *utf8);
    Batch::Name inlineName(const XML_Char *utf8);
    Batch::Text text(const XML_Char *utf8);
    Batch::Event &record(Batch::Kind kind);
    void recorded();
    void flush(bool last);
    bool feed();

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
    static void XMLCALL onXmlDeclaration(void *userData, const XML_Char *version,
                                         const XML_Char *encoding, int standalone);
};

bool ExpatEventRecorder::Private::createParser()
{
    // No encoding is forced: Expat detects it from the byte order mark or
    // the XML declaration. Triplets append the prefix to expanded names.
    if (options.processNamespaces) {
        parser.reset(XML_ParserCreateNS(nullptr, ExpatXMLParser::SEPARATOR.front().toLatin1()));
        if (parser)
            XML_SetReturnNSTriplet(parser.get(), XML_TRUE);
    } else {
        parser.reset(XML_ParserCreate(nullptr));
    }
    return parser != nullptr;
}

void ExpatEventRecorder::Private::installHandlers()
{
    XML_Parser p = parser.get();
    const ExpatXMLParserDelegate::Callbacks callbacks = options.callbacks;
    XML_SetUserData(p, this);
    XML_SetXmlDeclHandler(p, &onXmlDeclaration);
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
    if (!options.reportNamespacePrefixes)
        return;
    if (callbacks & Callback::StartMappingPrefix)
        XML_SetStartNamespaceDeclHandler(p, &onStartNamespace);
    if (callbacks & Callback::EndMappingPrefix)
        XML_SetEndNamespaceDeclHandler(p, &onEndNamespace);
}

Batch::Position ExpatEventRecorder::Private::position() const
{
    XML_Parser p = parser.get();
    if (!p)
        return {};
    Batch::Position here = placeOfEvent();
    here.line = qint64(XML_GetCurrentLineNumber(p));
    here.column = qint64(XML_GetCurrentColumnNumber(p));
    return here;
}

// Only the offset and length: asking Expat for the line and column too would
// cost two more calls at every event, and the delivering side counts them
// only for a delegate that asks.
Batch::Position ExpatEventRecorder::Private::placeOfEvent() const
{
    XML_Parser p = parser.get();
    return {0, 0, qint64(XML_GetCurrentByteIndex(p)), qint64(XML_GetCurrentByteCount(p))};
}

Batch::Name ExpatEventRecorder::Private::name(const XML_Char *utf8)
{
    const std::string_view key(utf8);
    const size_t slot = NameHash()(key) % recentNames.size();
    if (const RecentName &recent = recentNames[slot]; recent.id != Batch::kInlineName && recent.key == key)
        return {recent.id, {}};
    auto found = names.find(key);
    if (found == names.end()) {
        if (names.size() >= kMaxNames)
            return inlineName(utf8);
        found = names.emplace(key, quint32(names.size())).first;
        batch->newNames.push_back(batch->append(key.data(), key.size()));
    }
    recentNames[slot] = {found->first, found->second};
    return {found->second, {}};
}

Batch::Name ExpatEventRecorder::Private::inlineName(const XML_Char *utf8)
{
    return {Batch::kInlineName, text(utf8)};
}

Batch::Text ExpatEventRecorder::Private::text(const XML_Char *utf8)
{
    return batch->append(utf8, std::strlen(utf8));
}

// Expat runs the handlers of one piece of markup one after another and
// looks whether it was stopped only once they are all done: the
// declarations of a start tag before it, the end of an empty element and
// the ends of the scopes an end tag closes after it. All of these report
// the markup's own place, except the end of an empty element, which
// reports an empty event just past its start tag.
Batch::Event &ExpatEventRecorder::Private::record(Batch::Kind kind)
{
    const Batch::Position here = placeOfEvent();
    const bool samePlace = here.byte == lastPosition.byte && here.count == lastPosition.count;
    const bool endOfEmpty = lastKind == Batch::Kind::StartElement && here.count == 0
        && here.byte == lastPosition.byte + lastPosition.count;
    Batch::Event &event = batch->events.emplace_back();
    event.kind = kind;
    event.sameMarkup = hasLast && (samePlace || endOfEmpty);
    event.position = here;
    lastKind = kind;
    lastPosition = here;
    hasLast = true;
    return event;
}

// Called once an event is complete, so that a batch never ends inside one.
void ExpatEventRecorder::Private::recorded()
{
    if (batch->events.size() >= kBatchEvents || batch->bytes.size() >= kBatchBytes)
        flush(false);
}

void ExpatEventRecorder::Private::flush(bool last)
{
    batch->last = last;
    if (!queue.push(std::move(batch)) && !stopped) {
        // Nobody reads any more: Expat finishes the markup in hand and stops.
        stopped = true;
        XML_StopParser(parser.get(), XML_FALSE);
    }
    if (!last)
        batch = queue.emptyBatch();
}

// Hands the document to Expat in pieces of BUFFER_SIZE bytes. The piece
// shorter than BUFFER_SIZE is the final one, so a document whose size is
// a multiple of BUFFER_SIZE ends with an empty final piece: without it
// Expat would never check that the document is complete.
bool ExpatEventRecorder::Private::feed()
{
    constexpr qsizetype pieceSize = ExpatXMLParser::BUFFER_SIZE;
    for (qsizetype offset = 0; !stopped; offset += pieceSize) {
        void *buffer = XML_GetBuffer(parser.get(), pieceSize);
        if (!buffer)
            return false;
        const qsizetype remaining = document.size() - offset;
        const bool isFinal = remaining < pieceSize;
        const int length = isFinal ? int(remaining) : int(pieceSize);
        std::memcpy(buffer, document.constData() + offset, size_t(length));
        if (XML_ParseBuffer(parser.get(), length, isFinal) != XML_STATUS_OK)
            return false;
        if (isFinal)
            return true;
        stopped = stopped || queue.isStopped();
    }
    return false;
}

void ExpatEventRecorder::Private::onStartElement(void *userData, const XML_Char *name,
                                                 const XML_Char **attributes)
{
    Private &d = self(userData);
    Batch::Event &event = d.record(Batch::Kind::StartElement);
    event.name = d.name(name);
    event.firstAttribute = quint32(d.batch->attributes.size());
    for (const XML_Char **a = attributes; *a; a += 2)
        d.batch->attributes.push_back({d.name(a[0]), d.text(a[1])});
    event.attributeCount = quint32(d.batch->attributes.size()) - event.firstAttribute;
    d.recorded();
}

void ExpatEventRecorder::Private::onEndElement(void *userData, const XML_Char *name)
{
    Private &d = self(userData);
    d.record(Batch::Kind::EndElement).name = d.name(name);
    d.recorded();
}

void ExpatEventRecorder::Private::onCharacters(void *userData, const XML_Char *s, int length)
{
    Private &d = self(userData);
    d.record(Batch::Kind::Characters).text = d.batch->append(s, size_t(length));
    d.recorded();
}

void ExpatEventRecorder::Private::onComment(void *userData, const XML_Char *comment)
{
    Private &d = self(userData);
    d.record(Batch::Kind::Comment).text = d.text(comment);
    d.recorded();
}

void ExpatEventRecorder::Private::onProcessingInstruction(void *userData, const XML_Char *target,
                                                          const XML_Char *data)
{
    Private &d = self(userData);
    Batch::Event &event = d.record(Batch::Kind::ProcessingInstruction);
    event.name = d.inlineName(target);
    event.text = d.text(data);
    d.recorded();
}

// Expat gives no prefix for the default namespace, which is sent as "".
void ExpatEventRecorder::Private::onStartNamespace(void *userData, const XML_Char *prefix,
                                                   const XML_Char *uri)
{
    Private &d = self(userData);
    Batch::Event &event = d.record(Batch::Kind::StartNamespace);
    event.name = d.inlineName(prefix ? prefix : "");
    event.absentText = !uri;
    if (uri)
        event.text = d.text(uri);
    d.recorded();
}

void ExpatEventRecorder::Private::onEndNamespace(void *userData, const XML_Char *prefix)
{
    Private &d = self(userData);
    d.record(Batch::Kind::EndNamespace).name = d.inlineName(prefix ? prefix : "");
    d.recorded();
}

// Tells the counting of lines and columns which encoding the document
// declares; the events after the declaration go in this batch.
void ExpatEventRecorder::Private::onXmlDeclaration(void *userData, const XML_Char *, const XML_Char *encoding, int)
{
    if (encoding)
        self(userData).batch->declaredEncoding = encoding;
}

ExpatEventRecorder::ExpatEventRecorder(const QByteArray &document, const Options &options,
                                       ExpatEventQueue &queue)
    : d(std::make_unique<Private>(document, options, queue))
{
    if (d->createParser())
        d->installHandlers();
}

ExpatEventRecorder::~ExpatEventRecorder() = default;

bool ExpatEventRecorder::isCreated() const
{
    return d->parser != nullptr;
}

void ExpatEventRecorder::run()
{
    if (!d->parser)
        return;
    d->batch = d->queue.emptyBatch();
    const bool succeeded = d->feed();
    if (d->stopped)
        return;
    d->errorCode = succeeded ? XML_ERROR_NONE : int(XML_GetErrorCode(d->parser.get()));
    d->flush(true);
}

int ExpatEventRecorder::errorCode() const
{
    return d->errorCode;
}

ExpatEventBatch::Position ExpatEventRecorder::endPosition() const
{
    return d->position();
}
