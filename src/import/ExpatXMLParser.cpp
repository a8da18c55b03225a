#include "import/ExpatXMLParser.h"

#include "import/ExpatEventQueue.h"
#include "import/ExpatEventRecorder.h"
#include "import/ExpatLineCounter.h"
#include "import/ExpatXMLParserDelegate.h"
#include "platform/HBBackgroundWork.h"
#include "platform/HBFileName.h"
#include "platform/HBLogging.h"

#include <QFile>
#include <QScopeGuard>
#include <QStringList>

#include <expat.h>

#include <algorithm>
#include <optional>
#include <future>
#include <memory>
#include <vector>

// Lifecycle of one reader:
// 1. Until the first parse() every position is 0.
// 2. parse() runs a fresh Expat parser on a thread of its own, which
//    records the events the delegate names into batches; the calling thread
//    delivers them to the delegate in order. `parsing` stays set for the
//    whole run, callbacks included; a parse() requested while it is set is
//    refused.
// 3. abortParsing() acts only while `parsing` is set. Events Expat reported
//    after the aborted one are dropped, except those of the same markup,
//    which Expat itself would have reported before stopping.
// 4. After parse() the positions still tell where it stopped.

using Callback = ExpatXMLParserDelegate::Callback;
using Callbacks = ExpatXMLParserDelegate::Callbacks;
using Batch = ExpatEventBatch;

namespace {

// Batches the recording thread may be ahead by: about 1 MiB of events,
// which the processor's cache still holds when they are delivered, and
// enough that a thread that has to wait for a core now and then does not
// hold the other up.
constexpr size_t kBatchesAhead = 8;

// ASCII text written over `target` in place; false, leaving it as it was,
// for other text or a string shared with someone else.
bool assignText(QString &target, const char *utf8, qsizetype length)
{
    if (!target.isDetached() || !std::all_of(utf8, utf8 + length, [](char c) { return uchar(c) < 0x80; }))
        return false;
    target.resize(length);
    std::copy(utf8, utf8 + length, target.data());
    return true;
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
    HBError error;
    Callbacks callbacks;
    bool parsing = false;
    bool aborted = false;
    Batch::Position position;
    // Events come with their byte offsets only; their lines and columns
    // are counted when the delegate asks.
    bool located = true;
    std::optional<ExpatLineCounter> lines;
    // The names the recorder has numbered in this parse, decoded once each.
    std::vector<QString> names;
    // The attributes of the element being started, in one map kept from tag
    // to tag: elements repeat the same attributes ("lat" and "lon" on every
    // point), and refilling the entries in place spares the five
    // allocations of a map built afresh. A delegate that keeps a copy of the
    // map or of a value keeps what it was given: shared data is never
    // written.
    ExpatXMLParserDelegate::Attributes attributes;

    int run(ExpatEventRecorder &recorder, ExpatEventQueue &queue);
    void locate();
    bool deliver(const Batch &batch);
    void deliver(const Batch &batch, const Batch::Event &event);
    void startElement(const Batch &batch, const Batch::Event &event);
    void characters(const Batch &batch, const Batch::Event &event);
    const ExpatXMLParserDelegate::Attributes &attributesOf(const Batch &batch, const Batch::Event &event);
    QString nameOf(const Batch &batch, Batch::Name name) const;
    static QString textOf(const Batch &batch, Batch::Text text);
    void reportFailure(int code);
};

// Delivers the recorder's events while it runs on its own thread; the
// code is Expat's error, XML_ERROR_NONE after a success.
int ExpatXMLParser::Private::run(ExpatEventRecorder &recorder, ExpatEventQueue &queue)
{
    {
        // the reader runs as long as the delivery does, a batch ahead of it
        auto read = std::make_shared<std::promise<void>>();
        std::future<void> done = read->get_future();
        HBBackgroundWork::startDedicated([&recorder, read] {
            recorder.run();
            read->set_value();
        });
        const auto finish = qScopeGuard([&] {
            queue.stop();
            done.wait();
        });
        for (bool more = true; more;) {
            std::unique_ptr<Batch> batch = queue.pop();
            more = deliver(*batch) && !batch->last;
            queue.recycle(std::move(batch));
        }
    }
    if (!aborted) {
        position = recorder.endPosition();
        located = true;
        return recorder.errorCode();
    }
    // Expat stops just past the markup it was in.
    locate();
    position.byte += position.count;
    position.column += position.count;
    position.count = 0;
    return XML_ERROR_ABORTED;
}

// False once an abort ends the parse.
bool ExpatXMLParser::Private::deliver(const Batch &batch)
{
    for (const Batch::Text name : batch.newNames)
        names.push_back(textOf(batch, name));
    if (!batch.declaredEncoding.empty())
        lines->setDeclaredEncoding(batch.declaredEncoding);
    for (const Batch::Event &event : batch.events) {
        if (aborted && !event.sameMarkup)
            return false;
        position = event.position;
        located = false;
        deliver(batch, event);
    }
    return true;
}

void ExpatXMLParser::Private::locate()
{
    if (located)
        return;
    const ExpatLineCounter::Location location = lines->locate(position.byte);
    position.line = location.line;
    position.column = location.column;
    located = true;
}

void ExpatXMLParser::Private::deliver(const Batch &batch, const Batch::Event &event)
{
    switch (event.kind) {
    case Batch::Kind::StartElement:
        startElement(batch, event);
        break;
    // End tags are reported with Expat's name as it comes, even with
    // namespace processing; the importers never switch it on and so see the
    // same plain names on both sides.
    case Batch::Kind::EndElement:
        delegate->parserDidEndElement(q, nameOf(batch, event.name), QString(), QString());
        break;
    case Batch::Kind::Characters:
        characters(batch, event);
        break;
    case Batch::Kind::Comment:
        delegate->parserFoundComment(q, textOf(batch, event.text));
        break;
    case Batch::Kind::ProcessingInstruction:
        delegate->parserFoundProcessingInstruction(q, nameOf(batch, event.name), textOf(batch, event.text));
        break;
    case Batch::Kind::StartNamespace:
        delegate->parserDidStartMappingPrefix(q, nameOf(batch, event.name),
                                              event.absentText ? QString() : textOf(batch, event.text));
        break;
    case Batch::Kind::EndNamespace:
        delegate->parserDidEndMappingPrefix(q, nameOf(batch, event.name));
        break;
    }
}

// With namespace processing Expat names an element "uri`local`prefix",
// "uri`local" (no prefix) or "local" (no namespace).
void ExpatXMLParser::Private::startElement(const Batch &batch, const Batch::Event &event)
{
    QString elementName = nameOf(batch, event.name);
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
    delegate->parserDidStartElement(q, elementName, namespaceURI, qualifiedName, attributesOf(batch, event));
}

void ExpatXMLParser::Private::characters(const Batch &batch, const Batch::Event &event)
{
    if (callbacks & Callback::FoundUTF8Characters)
        delegate->parserFoundUTF8Characters(q, QByteArrayView(batch.data(event.text), event.text.length));
    if (callbacks & Callback::FoundCharacters)
        delegate->parserFoundCharacters(q, textOf(batch, event.text));
}

const ExpatXMLParserDelegate::Attributes &ExpatXMLParser::Private::attributesOf(const Batch &batch,
                                                                               const Batch::Event &event)
{
    // elements without attributes leave the kept map for the next with some
    static const ExpatXMLParserDelegate::Attributes none;
    if (event.attributeCount == 0)
        return none;
    const auto first = batch.attributes.begin() + event.firstAttribute;
    const auto end = first + event.attributeCount;
    bool refilled = attributes.isDetached() && attributes.size() == qsizetype(event.attributeCount);
    for (auto a = first; refilled && a != end; ++a) {
        const auto entry = attributes.find(nameOf(batch, a->name));
        refilled = entry != attributes.end() && assignText(entry.value(), batch.data(a->value), a->value.length);
    }
    if (!refilled) {
        attributes = {};
        for (auto a = first; a != end; ++a)
            attributes.insert(nameOf(batch, a->name), textOf(batch, a->value));
    }
    return attributes;
}

QString ExpatXMLParser::Private::nameOf(const Batch &batch, Batch::Name name) const
{
    return name.id == Batch::kInlineName ? textOf(batch, name.text) : names[name.id];
}

QString ExpatXMLParser::Private::textOf(const Batch &batch, Batch::Text text)
{
    return QString::fromUtf8(batch.data(text), qsizetype(text.length));
}

void ExpatXMLParser::Private::reportFailure(int code)
{
    if (!(callbacks & Callback::ParseErrorOccurred))
        return;
    error = HBError(QString(ErrorDomain), code, QString::fromUtf8(XML_ErrorString(XML_Error(code))));
    delegate->parserParseErrorOccurred(q, error);
}

ExpatXMLParser::ExpatXMLParser(const QByteArray &data)
    : d(std::make_unique<Private>(*this, data))
{
}

std::unique_ptr<ExpatXMLParser> ExpatXMLParser::fromContentsOfFile(const QString &filePath)
{
    QFile file;
    QByteArray data;
    QString error;
    if (HBFileName::openForReading(file, filePath, &error))
        data = file.readAll();
    else
        qCWarning(hbImport) << "Cannot read" << filePath << ":" << error;
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
    // A parse started from one of its own callbacks would overwrite the
    // state of the one running.
    if (d->parsing)
        return true;
    d->error = HBError();
    d->callbacks = d->delegate ? d->delegate->implementedCallbacks() : Callbacks();
    d->names.clear();
    d->lines.emplace(d->data);
    ExpatEventQueue queue(kBatchesAhead);
    ExpatEventRecorder recorder(d->data, {d->callbacks, d->shouldProcessNamespaces, d->shouldReportNamespacePrefixes},
                                queue);
    d->parsing = true;
    d->aborted = false;
    if (d->callbacks & Callback::StartDocument)
        d->delegate->parserDidStartDocument(*this);
    // A parser that could not be created, like an abort before the first
    // piece, leaves Expat with no error of its own to report.
    int code = recorder.isCreated() ? XML_ERROR_ABORTED : XML_ERROR_NO_MEMORY;
    if (recorder.isCreated() && !d->aborted)
        code = d->run(recorder, queue);
    else
        d->position = recorder.endPosition();
    d->parsing = false;
    if (code != XML_ERROR_NONE)
        d->reportFailure(code);
    if (d->callbacks & Callback::EndDocument)
        d->delegate->parserDidEndDocument(*this);
    return true;
}

void ExpatXMLParser::abortParsing()
{
    if (d->parsing)
        d->aborted = true;
}

HBError ExpatXMLParser::parserError() const
{
    return d->error;
}

qint64 ExpatXMLParser::lineNumber() const
{
    d->locate();
    return d->position.line;
}

qint64 ExpatXMLParser::columnNumber() const
{
    d->locate();
    return d->position.column + d->position.count;
}

qint64 ExpatXMLParser::byteNumber() const
{
    return d->position.byte;
}
