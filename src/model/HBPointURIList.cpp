#include "model/HBPointURIList.h"

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

enum RunKind : quint8 { SequenceRun = 0, DeltasRun = 1, Utf8Run = 2, Utf16Run = 3 };
constexpr int runKindBits = 2;
constexpr quint64 runKindMask = (1u << runKindBits) - 1;

constexpr QLatin1StringView uriPrefix("x-hbgps://");

// From this many entries on, a constant key step earns a sequence run of its
// own: a shorter one would save fewer bytes of key differences than the
// headers of the sequence and of the deltas run after it cost.
constexpr qsizetype minimumSequence = 16;

// Zigzag maps small negative differences to small unsigned numbers, so that
// a key that steps back costs as few bytes as one that steps forward.
quint64 zigzag(quint64 value)
{
    return (value << 1) ^ quint64(qint64(value) >> 63);
}

quint64 unzigzag(quint64 value)
{
    return (value >> 1) ^ (0 - (value & 1));
}

// Store identifiers and entity names taken apart are kept to letters,
// digits, '_' and '-': such a name means the same inside a URI wherever it
// stands, so a URI rebuilt around it parses as the original did.
bool isPlainName(QStringView name)
{
    return !name.isEmpty() && std::ranges::all_of(name, [](QChar c) {
        const char16_t u = c.unicode();
        return (u >= u'a' && u <= u'z') || (u >= u'A' && u <= u'Z') || (u >= u'0' && u <= u'9') || u == u'_'
               || u == u'-';
    });
}

// The key of "p<key>" when the digits are exactly those QString::number
// writes for a qint64: no sign but a minus, no leading zeros, no "-0".
std::optional<quint64> canonicalKey(QStringView text)
{
    const bool negative = text.startsWith(u'-');
    const QStringView digits = text.sliced(negative ? 1 : 0);
    constexpr qsizetype maximumDigits = 19;   // 2^63 has 19 digits, 10^19 - 1 fits in 64 bits
    if (digits.isEmpty() || digits.size() > maximumDigits || (digits.front() == u'0' && (digits.size() > 1 || negative)))
        return std::nullopt;
    quint64 magnitude = 0;
    for (QChar c : digits) {
        if (c < u'0' || c > u'9')
            return std::nullopt;
        magnitude = magnitude * 10 + (c.unicode() - u'0');
    }
    const quint64 limit = negative ? quint64(1) << 63 : (quint64(1) << 63) - 1;
    if (magnitude > limit)
        return std::nullopt;
    return negative ? 0 - magnitude : magnitude;
}

struct PathParts
{
    QStringView entity;
    quint64 key;
};

// "/<entity>/p<key>", the path of a permanent URI, taken apart where it is
// rebuilt character for character from its parts.
std::optional<PathParts> permanentPathParts(QStringView path)
{
    const qsizetype entityEnd = path.startsWith(u'/') ? path.indexOf(u'/', 1) : -1;
    if (entityEnd < 0 || !path.sliced(entityEnd + 1).startsWith(u'p'))
        return std::nullopt;
    const QStringView entity = path.sliced(1, entityEnd - 1);
    const std::optional<quint64> key = canonicalKey(path.sliced(entityEnd + 2));
    if (!key || !isPlainName(entity))
        return std::nullopt;
    return PathParts{entity, *key};
}

struct PermanentParts
{
    QStringView store;
    PathParts path;
};

// "x-hbgps://<store>/<entity>/p<key>", likewise.
std::optional<PermanentParts> permanentParts(QStringView text)
{
    if (!text.startsWith(uriPrefix))
        return std::nullopt;
    const QStringView rest = text.sliced(uriPrefix.size());
    const qsizetype storeEnd = rest.indexOf(u'/');
    if (storeEnd < 0 || !isPlainName(rest.first(storeEnd)))
        return std::nullopt;
    const std::optional<PathParts> path = permanentPathParts(rest.sliced(storeEnd));
    if (!path)
        return std::nullopt;
    return PermanentParts{rest.first(storeEnd), *path};
}

QString textOf(const QUrl &uri)
{
    if (!uri.isValid() && !uri.isEmpty())
        qCWarning(hbModel) << "Keeping an invalid URL in a point URI list as an empty URL:" << uri.errorString();
    // Fully encoded text parses back to an equal URL, but in the two cases
    // the header names.
    return uri.toString(QUrl::FullyEncoded);
}

// prefix followed by the key as QString::number writes a qint64, in one
// allocation: this runs once per point while a list is decoded.
QString withKey(QStringView prefix, quint64 key)
{
    std::array<char16_t, 20> digits;   // 19 digits and a minus
    const auto end = digits.end();
    auto first = end;
    const bool negative = qint64(key) < 0;
    quint64 magnitude = negative ? 0 - key : key;
    do {
        *--first = char16_t(u'0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    if (negative)
        *--first = u'-';
    QString text(prefix.size() + (end - first), Qt::Uninitialized);
    std::copy(first, end, std::copy(prefix.begin(), prefix.end(), text.begin()));
    return text;
}

class Writer
{
public:
    void byte(quint8 value) { m_bytes.append(char(value)); }

    void varint(quint64 value)
    {
        std::array<char, 10> encoded;
        qsizetype size = 0;
        for (; value >= 0x80; value >>= 7)
            encoded[size++] = char(value | 0x80);
        encoded[size++] = char(value);
        m_bytes.append(encoded.data(), size);
    }

    void runHeader(qsizetype entries, RunKind kind) { varint(quint64(entries) << runKindBits | kind); }

    void utf8(const QByteArray &text)
    {
        varint(quint64(text.size()));
        m_bytes.append(text);
    }

    void utf16(QStringView text)
    {
        varint(quint64(text.size()));
        for (QChar c : text) {
            std::array<char, 2> unit;
            qToLittleEndian<quint16>(c.unicode(), unit.data());
            m_bytes.append(unit.data(), 2);
        }
    }

    QByteArray take() { return std::move(m_bytes); }

private:
    QByteArray m_bytes;
};

// Takes the URIs apart as they are added, then writes runs of one kind and
// one store and entity each.
class Encoder
{
public:
    explicit Encoder(qsizetype count) { m_entries.reserve(size_t(count)); }

    // Whether the text is a permanent URI.
    bool add(const QString &text)
    {
        if (const std::optional<PermanentParts> parts = permanentParts(text)) {
            addPermanent(nameNumber(parts->store, m_lastStore), parts->path);
            return true;
        }
        const RunKind kind = QStringView(text).isValidUtf16() ? Utf8Run : Utf16Run;
        m_entries.push_back({-1, kind, quint64(m_texts.size())});
        m_texts.append(text);
        return false;
    }

    // The points of one store come as URLs that differ in their paths only.
    // Where all but the path matches the last permanent URL, only the path
    // is read, at a fifth of the cost of writing out the whole URL.
    void add(const QUrl &uri)
    {
        if (uri.isValid() && uri.matches(m_lastPermanentURL, QUrl::RemovePath)) {
            const QString path = uri.path(QUrl::FullyEncoded);
            if (const std::optional<PathParts> parts = permanentPathParts(path)) {
                addPermanent(m_lastStore, *parts);
                return;
            }
        }
        if (add(textOf(uri)))
            m_lastPermanentURL = uri;
    }

    // A segment's own points: IDs of the store and entity of the ID before
    // are taken apart without their text being written. That is all of
    // them but the first of each run, so a list of a million points costs
    // a few texts instead of a million.
    void add(const HBManagedObjectID &id)
    {
        if (!id.isNull() && !id.isTemporaryID() && id.storeToken() == m_lastStoreToken
            && id.entity() == m_lastEntityDescription) {
            m_entries.push_back({m_lastStore, m_lastEntity, quint64(id.primaryKey())});
            return;
        }
        const bool permanent = add(id.uriString());
        m_lastStoreToken = permanent ? id.storeToken() : 0;
        m_lastEntityDescription = permanent ? id.entity() : nullptr;
    }

    QByteArray finish()
    {
        m_out.byte(HBPointURIList::formatVersion);
        m_out.varint(m_entries.size());
        m_out.varint(quint64(m_names.size()));
        for (const QString &name : std::as_const(m_names))
            m_out.utf8(name.toUtf8());
        for (qsizetype from = 0; from < entryCount();) {
            qsizetype end = from + 1;
            while (end < entryCount() && m_entries[end].sameRunAs(m_entries[from]))
                ++end;
            if (m_entries[from].isText())
                writeTexts(from, end);
            else
                writePermanent(from, end);
            from = end;
        }
        return m_out.take();
    }

private:
    struct Entry
    {
        qint32 store;    // number of the store's name; -1 for text
        qint32 entity;   // number of the entity's name; for text its RunKind
        quint64 key;     // primary key; for text the index in m_texts

        bool isText() const { return store < 0; }
        bool sameRunAs(const Entry &other) const { return store == other.store && entity == other.entity; }
    };

    void addPermanent(qint32 store, const PathParts &path)
    {
        m_entries.push_back({store, nameNumber(path.entity, m_lastEntity), path.key});
    }

    qsizetype entryCount() const { return qsizetype(m_entries.size()); }
    quint64 step(qsizetype at) const { return m_entries[at + 1].key - m_entries[at].key; }

    // Points come in long runs of one store and entity, so the name of the
    // entry before nearly always matches and the table is seldom asked.
    qint32 nameNumber(QStringView name, qint32 &last)
    {
        if (last < 0 || m_names.at(last) != name) {
            const QString text = name.toString();
            last = m_nameNumbers.value(text, qint32(m_names.size()));
            if (last == m_names.size()) {
                m_names.append(text);
                m_nameNumbers.insert(text, last);
            }
        }
        return last;
    }

    // Entries from `from` on (before end) whose keys rise by one constant step.
    qsizetype sequenceLength(qsizetype from, qsizetype end) const
    {
        qsizetype last = from + 1;
        while (last + 1 < end && step(last) == step(from))
            ++last;
        return std::min(last, end - 1) - from + 1;
    }

    // Entries of one store and entity: sequence runs where the step is
    // constant long enough, deltas runs between them.
    void writePermanent(qsizetype from, qsizetype end)
    {
        qsizetype deltasFrom = from;
        for (qsizetype at = from; at < end;) {
            const qsizetype length = sequenceLength(at, end);
            if (length < minimumSequence) {
                ++at;
                continue;
            }
            if (deltasFrom < at)
                writeDeltas(deltasFrom, at);
            writeNamesAndKey(at, length, SequenceRun);
            m_out.varint(zigzag(step(at)));
            at += length;
            deltasFrom = at;
        }
        if (deltasFrom < end)
            writeDeltas(deltasFrom, end);
    }

    void writeDeltas(qsizetype from, qsizetype end)
    {
        writeNamesAndKey(from, end - from, DeltasRun);
        for (qsizetype at = from; at + 1 < end; ++at)
            m_out.varint(zigzag(step(at)));
    }

    void writeNamesAndKey(qsizetype from, qsizetype length, RunKind kind)
    {
        const Entry &first = m_entries[from];
        m_out.runHeader(length, kind);
        m_out.varint(quint64(first.store));
        m_out.varint(quint64(first.entity));
        m_out.varint(zigzag(first.key));
    }

    void writeTexts(qsizetype from, qsizetype end)
    {
        const auto kind = RunKind(m_entries[from].entity);
        m_out.runHeader(end - from, kind);
        for (qsizetype at = from; at < end; ++at) {
            const QString &text = m_texts.at(qsizetype(m_entries[at].key));
            if (kind == Utf8Run)
                m_out.utf8(text.toUtf8());
            else
                m_out.utf16(text);
        }
    }

    std::vector<Entry> m_entries;
    QStringList m_texts;
    QStringList m_names;
    QHash<QString, qint32> m_nameNumbers;
    qint32 m_lastStore = -1;
    qint32 m_lastEntity = -1;
    QUrl m_lastPermanentURL;   // whose store is m_lastStore
    // the ID whose store and entity are m_lastStore and m_lastEntity
    quint32 m_lastStoreToken = 0;
    const HBEntityDescription *m_lastEntityDescription = nullptr;
    Writer m_out;
};

// A bounds-checked reader: every read checks the bytes left first.
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
    Encoder encoder(uris.size());
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
