#include "model/HBPointURIList.h"

#include "model/HBPointURIEncoder.h"
#include "model/HBPointURIFormat.h"
#include "platform/HBLogging.h"
#include "platform/store/HBManagedObjectID.h"

#include <QHash>
#include <QStringDecoder>
#include <QVarLengthArray>
#include <QtEndian>

#include <algorithm>
#include <array>
#include <vector>

namespace {

using namespace HBPointURIFormat;

class Cursor
{
public:
    Cursor() = default;
    explicit Cursor(QByteArrayView data)
        : m_next(data.data())
        , m_end(data.data() + data.size())
    {
    }
    Cursor(const char *begin, const char *end)
        : m_next(begin)
        , m_end(end)
    {
    }

    const char *position() const { return m_next; }
    quint64 bytesLeft() const { return quint64(m_end - m_next); }
    bool atEnd() const { return m_next == m_end; }

    std::optional<quint8> byte()
    {
        if (atEnd())
            return std::nullopt;
        return quint8(*m_next++);
    }

    // Unsigned LEB128; more than 64 bits of value is damage.
    std::optional<quint64> varint()
    {
        quint64 value = 0;
        for (int shift = 0; shift < 64; shift += 7) {
            const std::optional<quint8> b = byte();
            if (!b)
                return std::nullopt;
            value |= quint64(*b & 0x7f) << shift;
            if (!(*b & 0x80))
                return shift == 63 && *b > 1 ? std::nullopt : std::optional(value);
        }
        return std::nullopt;
    }

    std::optional<QByteArrayView> bytes(quint64 size)
    {
        if (size > bytesLeft())
            return std::nullopt;
        const QByteArrayView taken(m_next, qsizetype(size));
        m_next += size;
        return taken;
    }

    // One entry of a text run: its bytes, UTF-8 or little-endian UTF-16.
    std::optional<QByteArrayView> text(RunKind kind)
    {
        const std::optional<quint64> length = varint();
        if (!length || (kind == Utf16Run && *length > bytesLeft() / 2))
            return std::nullopt;
        return bytes(kind == Utf16Run ? *length * 2 : *length);
    }

private:
    const char *m_next = nullptr;
    const char *m_end = nullptr;
};

QString textFrom(QByteArrayView bytes, RunKind kind)
{
    if (kind == Utf8Run) {
        // A text may begin with U+FEFF: it is kept, not taken for a byte
        // order mark and dropped.
        QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::ConvertInitialBom);
        return decoder.decode(bytes);
    }
    QString text(bytes.size() / 2, Qt::Uninitialized);
    for (qsizetype i = 0; i < text.size(); ++i)
        text[i] = QChar(qFromLittleEndian<quint16>(bytes.data() + 2 * i));
    return text;
}

struct Header
{
    quint64 count = 0;
    QVarLengthArray<QByteArrayView, 8> names;
};

struct Run
{
    RunKind kind = SequenceRun;
    quint64 length = 0;
    quint64 store = 0;      // name numbers, permanent runs only
    quint64 entity = 0;
    quint64 firstKey = 0;   // permanent runs only
    quint64 step = 0;       // sequence runs only
    Cursor body;            // the key differences or texts, already checked

    bool isPermanent() const { return kind == SequenceRun || kind == DeltasRun; }
};

std::optional<Header> readHeader(Cursor &in)
{
    if (in.byte() != HBPointURIList::formatVersion)
        return std::nullopt;
    Header header;
    const std::optional<quint64> count = in.varint();
    const std::optional<quint64> nameCount = in.varint();
    // Each name takes at least its length byte.
    if (!count || *count > quint64(HBPointURIList::maximumCount) || !nameCount || *nameCount > in.bytesLeft())
        return std::nullopt;
    header.count = *count;
    for (quint64 i = 0; i < *nameCount; ++i) {
        const std::optional<QByteArrayView> name = in.text(Utf8Run);
        if (!name)
            return std::nullopt;
        header.names.append(*name);
    }
    return header;
}

// Reads a run of at most entriesLeft entries and checks its body, so that
// the run's users read it without checks.
std::optional<Run> readRun(Cursor &in, const Header &header, quint64 entriesLeft)
{
    const std::optional<quint64> tag = in.varint();
    if (!tag)
        return std::nullopt;
    Run run;
    run.kind = RunKind(*tag & runKindMask);
    run.length = *tag >> runKindBits;
    if (run.length == 0 || run.length > entriesLeft)
        return std::nullopt;
    quint64 bodyEntries = run.length;
    if (run.isPermanent()) {
        const quint64 names = quint64(header.names.size());
        const std::optional<quint64> store = in.varint();
        const std::optional<quint64> entity = store ? in.varint() : std::nullopt;
        const std::optional<quint64> firstKey = entity ? in.varint() : std::nullopt;
        if (!firstKey || *store >= names || *entity >= names)
            return std::nullopt;
        run.store = *store;
        run.entity = *entity;
        run.firstKey = unzigzag(*firstKey);
        if (run.kind == SequenceRun) {
            const std::optional<quint64> step = in.varint();
            if (!step)
                return std::nullopt;
            run.step = unzigzag(*step);
        }
        bodyEntries = run.kind == DeltasRun ? run.length - 1 : 0;
    }
    const char *bodyBegin = in.position();
    for (quint64 i = 0; i < bodyEntries; ++i) {
        if (run.isPermanent() ? !in.varint() : !in.text(run.kind))
            return std::nullopt;
    }
    run.body = Cursor(bodyBegin, in.position());
    return run;
}

// Reads the header and every run, calling visit(header, run, index of the
// run's first entry) until it returns false. The number of entries, or -1
// for a value that cannot be read; a value whose runs do not add up to its
// count, or that goes on after them, cannot be.
template <typename Visit>
qsizetype readRuns(QByteArrayView data, Visit &&visit)
{
    Cursor in(data);
    const std::optional<Header> header = readHeader(in);
    if (!header)
        return -1;
    for (quint64 first = 0; first < header->count;) {
        const std::optional<Run> run = readRun(in, *header, header->count - first);
        if (!run)
            return -1;
        if (!visit(*header, *run, first))
            return qsizetype(header->count);
        first += run->length;
    }
    return in.atEnd() ? qsizetype(header->count) : -1;
}

// Calls onKey with the keys of the first `count` entries of a permanent run.
template <typename OnKey>
void forEachKey(const Run &run, quint64 count, OnKey &&onKey)
{
    Cursor differences = run.body;
    quint64 key = run.firstKey;
    for (quint64 i = 0; i < count; ++i) {
        if (i > 0)
            key += run.kind == SequenceRun ? run.step : unzigzag(*differences.varint());
        onKey(key);
    }
}

// Calls onText with the bytes of the first `count` entries of a text run.
template <typename OnText>
void forEachText(const Run &run, quint64 count, OnText &&onText)
{
    Cursor texts = run.body;
    for (quint64 i = 0; i < count; ++i)
        onText(*texts.text(run.kind));
}

QString nameOf(const Header &header, quint64 number)
{
    return QString::fromUtf8(header.names[qsizetype(number)]);
}

// "x-hbgps://<store>/<entity>/p", to which the keys of a permanent run are appended.
QString permanentPrefix(const Header &header, const Run &run)
{
    return uriPrefix + nameOf(header, run.store) + u'/' + nameOf(header, run.entity) + QLatin1StringView("/p");
}

// Checks the whole value, then builds every entry: fromKeys(header, run)
// gives the function that makes an entry of a permanent run from its key,
// fromText makes one from a text.
template <typename List, typename FromKeys, typename FromText>
std::optional<List> decodeAll(QByteArrayView data, FromKeys &&fromKeys, FromText &&fromText)
{
    const qsizetype count = HBPointURIList::count(data);
    if (count < 0)
        return std::nullopt;
    List entries;
    entries.reserve(count);
    readRuns(data, [&](const Header &header, const Run &run, quint64) {
        if (run.isPermanent()) {
            const auto fromKey = fromKeys(header, run);
            forEachKey(run, run.length, [&](quint64 key) { entries.append(fromKey(key)); });
        } else {
            forEachText(run, run.length, [&](QByteArrayView text) { entries.append(fromText(textFrom(text, run.kind))); });
        }
        return true;
    });
    return entries;
}

// Makes the URLs of one permanent run. Parsing a whole URL per point is the
// larger part of decoding; a copy of the store's URL given only its path
// costs a quarter of that and compares equal to the parsed URL.
class PermanentURLMaker
{
public:
    PermanentURLMaker(const QUrl &storeURL, const Header &header, const Run &run)
        : m_storeURL(storeURL)
        , m_pathPrefix(u'/' + nameOf(header, run.entity) + QLatin1StringView("/p"))
        , m_uriPrefix(permanentPrefix(header, run))
    {
    }

    QUrl operator()(quint64 key) const
    {
        // A store identifier Qt refuses as a host: the whole text gets the
        // same refusal, with the same error.
        if (!m_storeURL.isValid())
            return QUrl(withKey(m_uriPrefix, key));
        QUrl url(m_storeURL);
        url.setPath(withKey(m_pathPrefix, key));
        return url;
    }

private:
    QUrl m_storeURL;
    QString m_pathPrefix;
    QString m_uriPrefix;
};

template <typename List>
QByteArray encodeAll(const List &uris)
{
    if (uris.size() > HBPointURIList::maximumCount) {
        qCWarning(hbModel) << "A point URI list of" << uris.size() << "entries is longer than the"
                           << HBPointURIList::maximumCount << "a list may hold; it is not written";
        return QByteArray();
    }
    HBPointURIEncoder encoder(uris.size());
    for (const auto &uri : uris)
        encoder.add(uri);
    return encoder.finish();
}

} // namespace

QByteArray HBPointURIList::encode(const QList<QUrl> &uris)
{
    return encodeAll(uris);
}

QByteArray HBPointURIList::encode(const QStringList &uris)
{
    return encodeAll(uris);
}

QByteArray HBPointURIList::encode(const QList<HBManagedObjectID> &ids)
{
    return encodeAll(ids);
}

std::optional<QList<QUrl>> HBPointURIList::decode(QByteArrayView data)
{
    QHash<quint64, QUrl> storeURLs;   // by name number: parsed once per store
    const auto fromKeys = [&](const Header &header, const Run &run) {
        auto storeURL = storeURLs.constFind(run.store);
        if (storeURL == storeURLs.constEnd())
            storeURL = storeURLs.insert(run.store, QUrl(uriPrefix + nameOf(header, run.store)));
        return PermanentURLMaker(*storeURL, header, run);
    };
    return decodeAll<QList<QUrl>>(data, fromKeys, [](const QString &text) { return QUrl(text); });
}

std::optional<QStringList> HBPointURIList::decodeStrings(QByteArrayView data)
{
    const auto fromKeys = [](const Header &header, const Run &run) {
        return [prefix = permanentPrefix(header, run)](quint64 key) { return withKey(prefix, key); };
    };
    return decodeAll<QStringList>(data, fromKeys, [](const QString &text) { return text; });
}

std::optional<QList<HBManagedObjectID>> HBPointURIList::decodeIDs(QByteArrayView data, const MakerFor &makerFor,
                                                                  const FromText &fromText)
{
    const auto fromKeys = [&makerFor](const Header &header, const Run &run) {
        return [make = makerFor(nameOf(header, run.store), nameOf(header, run.entity))](quint64 key) {
            return make(qint64(key));
        };
    };
    return decodeAll<QList<HBManagedObjectID>>(data, fromKeys, fromText);
}

qsizetype HBPointURIList::count(QByteArrayView data)
{
    return readRuns(data, [](const Header &, const Run &, quint64) { return true; });
}

std::optional<QString> HBPointURIList::stringAt(QByteArrayView data, qsizetype index)
{
    if (index < 0 || index >= count(data))
        return std::nullopt;
    QString found;
    readRuns(data, [&](const Header &header, const Run &run, quint64 first) {
        const quint64 offset = quint64(index) - first;
        if (offset >= run.length)
            return true;
        if (run.kind == SequenceRun) {
            found = withKey(permanentPrefix(header, run), run.firstKey + offset * run.step);
        } else if (run.kind == DeltasRun) {
            quint64 key = 0;
            forEachKey(run, offset + 1, [&](quint64 k) { key = k; });
            found = withKey(permanentPrefix(header, run), key);
        } else {
            QByteArrayView text;
            forEachText(run, offset + 1, [&](QByteArrayView t) { text = t; });
            found = textFrom(text, run.kind);
        }
        return false;
    });
    return found;
}

std::optional<QUrl> HBPointURIList::at(QByteArrayView data, qsizetype index)
{
    const std::optional<QString> text = stringAt(data, index);
    if (!text)
        return std::nullopt;
    return QUrl(*text);
}
