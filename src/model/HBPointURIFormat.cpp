#include "model/HBPointURIFormat.h"

#include "platform/HBLogging.h"

#include <algorithm>
#include <array>

namespace HBPointURIFormat {

quint64 zigzag(quint64 value)
{
    return (value << 1) ^ quint64(qint64(value) >> 63);
}

quint64 unzigzag(quint64 value)
{
    return (value >> 1) ^ (0 - (value & 1));
}

bool isPlainName(QStringView name)
{
    return !name.isEmpty() && std::ranges::all_of(name, [](QChar c) {
        const char16_t u = c.unicode();
        return (u >= u'a' && u <= u'z') || (u >= u'A' && u <= u'Z') || (u >= u'0' && u <= u'9') || u == u'_'
               || u == u'-';
    });
}

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

}
