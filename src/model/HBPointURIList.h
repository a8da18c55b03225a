#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <functional>
#include <optional>

class HBManagedObjectID;

// The ordered point URIs of a track segment as one binary value.
//
// Points live in one store file per ten-day period and their segments in the
// central file, so a segment cannot hold its points by relationship; it keeps
// their object-ID URIs in order instead. A segment may hold a million points
// or more, nearly always in long runs of one store and entity whose primary
// keys rise by one, so the value is written as runs:
//
//   byte     format version (1)
//   varint   number of entries
//   varint   number of names, then each name: varint byte length, UTF-8
//            (the store identifiers and entity names of permanent URIs)
//   runs     until the entries are covered, each opening with the varint
//            (entry count << 2) | kind:
//     0 sequence   store name, entity name, zigzag first key, zigzag step:
//                  "x-hbgps://<store>/<entity>/p<first + i * step>"
//     1 deltas     store name, entity name, zigzag first key, then one
//                  zigzag key difference for each further entry
//     2 UTF-8      each entry's text: varint byte length, bytes
//     3 UTF-16     each entry's text: varint code unit count, little-endian
//                  code units (only for text that UTF-8 cannot carry, such
//                  as a lone surrogate)
//
// Varints are unsigned LEB128 of at most ten bytes; keys are 64-bit and
// their arithmetic wraps, so every qint64 key survives. Only URIs whose text
// is rebuilt exactly from store, entity and key are taken apart; every other
// entry (temporary IDs, other schemes, keys written with leading zeros) is
// kept as text, so any list comes back equal, in order, duplicates kept, with
// the case of each store identifier as written.
//
// Readers check the whole value before they allocate anything in proportion
// to the entry count, and refuse more than maximumCount entries, so that a
// damaged or hostile value costs no more than a real list would.
class HBPointURIList
{
public:
    static constexpr quint8 formatVersion = 1;
    // Two years of points recorded once a second.
    static constexpr qsizetype maximumCount = qsizetype(1) << 26;

    // An empty QByteArray (which no reader accepts) for a list of more than
    // maximumCount entries. A QUrl is kept as its fully encoded text, which
    // parses back to an equal URL with two exceptions Qt makes: a URL that
    // is not valid has no text and comes back empty (with a warning here),
    // and one with a password but no user name comes back with an empty
    // user name.
    static QByteArray encode(const QList<QUrl> &uris);
    static QByteArray encode(const QStringList &uris);
    // The same bytes as encoding the IDs' URI texts.
    static QByteArray encode(const QList<HBManagedObjectID> &ids);

    // std::nullopt for a value that is damaged, of another format version,
    // or has more than maximumCount entries. Text comes back as QUrl(text).
    static std::optional<QList<QUrl>> decode(QByteArrayView data);
    static std::optional<QStringList> decodeStrings(QByteArrayView data);
    // Each entry as an ID: the entries the list holds as the parts of
    // "x-hbgps://<store>/<entity>/p<key>" by makerFor(store, entity), asked
    // once per run, then given each key; any other by fromText(text).
    // Turning a segment's points into IDs this way spares writing out and
    // reading back a million URIs.
    using KeyToID = std::function<HBManagedObjectID(qint64 key)>;
    using MakerFor = std::function<KeyToID(QStringView store, QStringView entity)>;
    using FromText = std::function<HBManagedObjectID(const QString &text)>;
    static std::optional<QList<HBManagedObjectID>> decodeIDs(QByteArrayView data, const MakerFor &makerFor,
                                                             const FromText &fromText);

    // The number of entries, or -1 where decode() would fail. Builds no URIs.
    static qsizetype count(QByteArrayView data);

    // One entry; std::nullopt for an index out of range or where decode()
    // would fail. Each call checks the whole value, so reading many entries
    // is cheaper through decode().
    static std::optional<QUrl> at(QByteArrayView data, qsizetype index);
    static std::optional<QString> stringAt(QByteArrayView data, qsizetype index);
};
