#pragma once

#include "model/HBPointURIFormat.h"
#include "model/HBPointURIList.h"
#include "platform/store/HBManagedObjectID.h"

#include <QHash>
#include <QStringList>
#include <QtEndian>

#include <array>
#include <vector>

class HBEntityDescription;


// Takes the URIs apart as they are added, then writes runs of one kind and
// one store and entity each.
class HBPointURIEncoder
{
public:
    explicit HBPointURIEncoder(qsizetype count) { m_entries.reserve(size_t(count)); }

    // Whether the text is a permanent URI.
    bool add(const QString &text)
    {
        if (const std::optional<HBPointURIFormat::PermanentParts> parts = HBPointURIFormat::permanentParts(text)) {
            addPermanent(nameNumber(parts->store, m_lastStore), parts->path);
            return true;
        }
        const HBPointURIFormat::RunKind kind = QStringView(text).isValidUtf16() ? HBPointURIFormat::Utf8Run : HBPointURIFormat::Utf16Run;
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
            if (const std::optional<HBPointURIFormat::PathParts> parts = HBPointURIFormat::permanentPathParts(path)) {
                addPermanent(m_lastStore, *parts);
                return;
            }
        }
        if (add(HBPointURIFormat::textOf(uri)))
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
        qint32 entity;   // number of the entity's name; for text its HBPointURIFormat::RunKind
        quint64 key;     // primary key; for text the index in m_texts

        bool isText() const { return store < 0; }
        bool sameRunAs(const Entry &other) const { return store == other.store && entity == other.entity; }
    };

    void addPermanent(qint32 store, const HBPointURIFormat::PathParts &path)
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
            if (length < HBPointURIFormat::minimumSequence) {
                ++at;
                continue;
            }
            if (deltasFrom < at)
                writeDeltas(deltasFrom, at);
            writeNamesAndKey(at, length, HBPointURIFormat::SequenceRun);
            m_out.varint(HBPointURIFormat::zigzag(step(at)));
            at += length;
            deltasFrom = at;
        }
        if (deltasFrom < end)
            writeDeltas(deltasFrom, end);
    }

    void writeDeltas(qsizetype from, qsizetype end)
    {
        writeNamesAndKey(from, end - from, HBPointURIFormat::DeltasRun);
        for (qsizetype at = from; at + 1 < end; ++at)
            m_out.varint(HBPointURIFormat::zigzag(step(at)));
    }

    void writeNamesAndKey(qsizetype from, qsizetype length, HBPointURIFormat::RunKind kind)
    {
        const Entry &first = m_entries[from];
        m_out.runHeader(length, kind);
        m_out.varint(quint64(first.store));
        m_out.varint(quint64(first.entity));
        m_out.varint(HBPointURIFormat::zigzag(first.key));
    }

    void writeTexts(qsizetype from, qsizetype end)
    {
        const auto kind = HBPointURIFormat::RunKind(m_entries[from].entity);
        m_out.runHeader(end - from, kind);
        for (qsizetype at = from; at < end; ++at) {
            const QString &text = m_texts.at(qsizetype(m_entries[at].key));
            if (kind == HBPointURIFormat::Utf8Run)
                m_out.utf8(text.toUtf8());
            else
                m_out.utf16(text);
        }
    }

    // Appends varints, texts and bytes.
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

        void runHeader(qsizetype entries, HBPointURIFormat::RunKind kind) { varint(quint64(entries) << HBPointURIFormat::runKindBits | kind); }

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
