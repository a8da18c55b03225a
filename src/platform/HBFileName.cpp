#include "platform/HBFileName.h"

#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// A byte b that is no part of a valid UTF-8 character is U+EF00 + b
// (b >= 0x80, so U+EF80..U+EFFF).
constexpr char16_t kEscapeBase = 0xEF00;
constexpr char32_t kFirstEscape = 0xEF80;
constexpr char32_t kLastEscape = 0xEFFF;

bool isContinuation(char byte)
{
    return (uchar(byte) & 0xC0) == 0x80;
}

// The character at i and the number of its bytes, or 0 bytes where no
// valid UTF-8 character starts (overlong forms, surrogates and values past
// U+10FFFF are not valid).
std::pair<char32_t, qsizetype> characterAt(QByteArrayView bytes, qsizetype i)
{
    const uchar lead = uchar(bytes[i]);
    if (lead < 0x80)
        return {lead, 1};
    const qsizetype length = lead >= 0xF8 ? 0 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 0;
    if (length == 0 || i + length > bytes.size())
        return {0, 0};
    char32_t character = lead & (0x7F >> length);
    for (qsizetype k = 1; k < length; ++k) {
        if (!isContinuation(bytes[i + k]))
            return {0, 0};
        character = (character << 6) | (uchar(bytes[i + k]) & 0x3F);
    }
    constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (character < kSmallest[length] || character > 0x10FFFF || (character >= 0xD800 && character <= 0xDFFF))
        return {0, 0};
    return {character, length};
}

} // namespace

QString HBFileName::decode(QByteArrayView bytes)
{
    QString name;
    name.reserve(bytes.size());
    for (qsizetype i = 0; i < bytes.size();) {
        const auto [character, length] = characterAt(bytes, i);
        if (length == 0 || (character >= kFirstEscape && character <= kLastEscape)) {
            name += QChar(char16_t(kEscapeBase + uchar(bytes[i])));
            ++i;
            continue;
        }
        if (QChar::requiresSurrogates(character)) {
            name += QChar(QChar::highSurrogate(character));
            name += QChar(QChar::lowSurrogate(character));
        } else {
            name += QChar(char16_t(character));
        }
        i += length;
    }
    return name;
}

QByteArray HBFileName::encode(QStringView name)
{
    QByteArray bytes;
    qsizetype start = 0;
    for (qsizetype i = 0; i < name.size(); ++i) {
        const char16_t unit = name[i].unicode();
        if (unit >= kFirstEscape && unit <= kLastEscape) {
            bytes += name.sliced(start, i - start).toUtf8();
            bytes += char(unit - kEscapeBase);
            start = i + 1;
        }
    }
    return bytes + name.sliced(start).toUtf8();
}

bool HBFileName::openForReading(QFile &file, const QString &name, QString *error)
{
    const int descriptor = ::open(encode(name).constData(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        if (error)
            *error = qt_error_string(errno);
        return false;
    }
    file.open(descriptor, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle);
    return true;
}

HBFileName::Status HBFileName::status(const QString &name)
{
    struct stat info;
    if (::stat(encode(name).constData(), &info) != 0)
        return {};
    const qint64 modifiedMs = qint64(info.st_mtim.tv_sec) * 1000 + info.st_mtim.tv_nsec / 1000000;
    return {true, S_ISDIR(info.st_mode), qint64(info.st_size), QDateTime::fromMSecsSinceEpoch(modifiedMs, Qt::UTC)};
}
