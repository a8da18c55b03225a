// Two ways in, chosen by the first byte. Even: the rest is a stored value;
// the readers must agree on it, and a value they accept must come back
// from its own entries written anew. Odd: the rest is a list of texts, one
// a line, which must come back exactly. Besides memory faults, a broken
// promise traps.

#include "model/HBPointURIList.h"
#include "platform/store/HBManagedObjectID.h"

#include <cstddef>
#include <cstdint>

namespace {

void check(bool condition)
{
    if (!condition)
        __builtin_trap();
}

// Valid values may expand enormously; building more entries than this
// would only measure the allocator.
constexpr qsizetype largestDecoded = 100'000;

// Reading a value as parts (store, entity, key) or texts must name the same
// entries, in the same order, as reading it as texts.
bool partsRebuildTheTexts(QByteArrayView data, const QStringList &texts)
{
    QStringList rebuilt;
    const auto decoded = HBPointURIList::decodeIDs(
        data,
        [&rebuilt](QStringView store, QStringView entity) {
            return [&rebuilt, prefix = QStringLiteral("x-hbgps://%1/%2/p").arg(store, entity)](qint64 key) {
                rebuilt << prefix + QString::number(key);
                return HBManagedObjectID();
            };
        },
        [&rebuilt](const QString &text) {
            rebuilt << text;
            return HBManagedObjectID();
        });
    return decoded && decoded->size() == texts.size() && rebuilt == texts;
}

void readStoredValue(QByteArrayView data)
{
    const qsizetype count = HBPointURIList::count(data);
    const std::optional<QString> last = HBPointURIList::stringAt(data, count - 1);
    if (count < 0 || count > largestDecoded) {
        check(count != 0 && (count < 0) == !last);
        return;
    }
    const std::optional<QStringList> texts = HBPointURIList::decodeStrings(data);
    const std::optional<QList<QUrl>> uris = HBPointURIList::decode(data);
    check(texts && uris && texts->size() == count && uris->size() == count);
    check(count == 0 ? !last : last == texts->last());
    check(HBPointURIList::decodeStrings(HBPointURIList::encode(*texts)) == texts);
    check(partsRebuildTheTexts(data, *texts));
}

void writeTexts(QByteArrayView data)
{
    const QStringList texts = QString::fromUtf8(data).split(u'\n');
    const QByteArray encoded = HBPointURIList::encode(texts);
    check(HBPointURIList::decodeStrings(encoded) == texts);
    check(HBPointURIList::count(encoded) == texts.size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    if (size == 0)
        return 0;
    const QByteArrayView rest(reinterpret_cast<const char *>(bytes + 1), qsizetype(size - 1));
    if (bytes[0] & 1)
        writeTexts(rest);
    else
        readStoredValue(rest);
    return 0;
}
