#include "platform/store/HBSaveNote.h"

#include "platform/HBLogging.h"
#include "platform/store/HBPersistentStore.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <atomic>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString kNotePrefix = QStringLiteral("UnfinishedSave-");

HBError systemError(const QString &what)
{
    const int code = errno;
    return HBError(HBPersistentStore::errorDomain(), code, QStringLiteral("%1: %2").arg(what, qt_error_string(code)));
}

bool syncFolder(const QString &folder)
{
    const int fd = ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool ok = ::fsync(fd) == 0;
    ::close(fd);
    return ok;
}

// A save removes its note before releasing the lock: a note opened just
// before that and locked just after is no longer in the folder.
bool stillInPlace(int fd, const QString &path)
{
    struct stat opened = {}, named = {};
    return ::fstat(fd, &opened) == 0 && ::stat(QFile::encodeName(path).constData(), &named) == 0
           && opened.st_ino == named.st_ino && opened.st_dev == named.st_dev;
}

QJsonArray storeRowsToJson(const QList<HBSaveNote::StoreRows> &stores)
{
    QJsonArray list;
    for (const HBSaveNote::StoreRows &s : stores) {
        QJsonArray rows;
        for (const HBSaveNote::Rows &r : s.rows)
            rows.append(QJsonArray{r.entityName, double(r.first), double(r.last)});
        list.append(QJsonObject{{QStringLiteral("path"), s.path},
                                {QStringLiteral("configuration"), s.configuration},
                                {QStringLiteral("rows"), rows}});
    }
    return list;
}

QList<HBSaveNote::StoreRows> storeRowsFromJson(const QJsonArray &list)
{
    QList<HBSaveNote::StoreRows> stores;
    for (const QJsonValue &value : list) {
        const QJsonObject o = value.toObject();
        HBSaveNote::StoreRows s{o.value(QStringLiteral("path")).toString(),
                                o.value(QStringLiteral("configuration")).toString(), {}};
        for (const QJsonValue &row : o.value(QStringLiteral("rows")).toArray()) {
            const QJsonArray r = row.toArray();
            s.rows.append({r.at(0).toString(), qint64(r.at(1).toDouble()), qint64(r.at(2).toDouble())});
        }
        stores.append(s);
    }
    return stores;
}

} // namespace

HBSaveNote::HBSaveNote() = default;

HBSaveNote::~HBSaveNote()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

QList<HBSaveNote::Rows> HBSaveNote::runsOfKeys(const QString &entityName, std::vector<qint64> keys)
{
    // a save's keys mostly come in the order they were handed out
    if (!std::is_sorted(keys.begin(), keys.end()))
        std::sort(keys.begin(), keys.end());
    QList<Rows> runs;
    for (const qint64 key : keys) {
        if (!runs.isEmpty() && runs.last().last + 1 >= key)
            runs.last().last = key;
        else
            runs.append({entityName, key, key});
    }
    return runs;
}

QByteArray HBSaveNote::serialised() const
{
    return QJsonDocument(QJsonObject{{QStringLiteral("token"), token},
                                     {QStringLiteral("lastStore"), lastStorePath},
                                     {QStringLiteral("undo"), storeRowsToJson(undo)},
                                     {QStringLiteral("redo"), storeRowsToJson(redo)}})
        .toJson(QJsonDocument::Compact);
}

bool HBSaveNote::parse(const QByteArray &text)
{
    const QJsonObject o = QJsonDocument::fromJson(text).object();
    token = o.value(QStringLiteral("token")).toString();
    lastStorePath = o.value(QStringLiteral("lastStore")).toString();
    undo = storeRowsFromJson(o.value(QStringLiteral("undo")).toArray());
    redo = storeRowsFromJson(o.value(QStringLiteral("redo")).toArray());
    return !token.isEmpty() && !lastStorePath.isEmpty();
}

bool HBSaveNote::write(const QString &folder, HBError *error)
{
    static std::atomic<int> serial{0};
    const QString name = kNotePrefix + QStringLiteral("%1-%2").arg(QCoreApplication::applicationPid()).arg(++serial);
    // Written under a name no reader looks at, and renamed once locked and
    // synced, so that no process ever repairs a note still being written.
    const QString draft = folder + QStringLiteral("/.") + name;
    const QByteArray bytes = serialised();
    m_fd = ::open(QFile::encodeName(draft).constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    const auto fail = [&](const QString &what) {
        if (error)
            *error = systemError(what);
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = -1;
        ::unlink(QFile::encodeName(draft).constData());
        return false;
    };
    if (m_fd < 0)
        return fail(QStringLiteral("The save note %1 could not be made").arg(draft));
    if (::flock(m_fd, LOCK_EX) != 0 || ::write(m_fd, bytes.constData(), size_t(bytes.size())) != bytes.size()
        || ::fsync(m_fd) != 0)
        return fail(QStringLiteral("The save note %1 could not be written").arg(draft));
    m_path = folder + u'/' + name;
    if (::rename(QFile::encodeName(draft).constData(), QFile::encodeName(m_path).constData()) != 0 || !syncFolder(folder))
        return fail(QStringLiteral("The save note %1 could not be put in place").arg(m_path));
    return true;
}

void HBSaveNote::remove()
{
    if (m_path.isEmpty())
        return;
    if (::unlink(QFile::encodeName(m_path).constData()) != 0)
        qCWarning(hbStore).noquote() << systemError(QStringLiteral("The save note %1 could not be removed").arg(m_path)).localizedDescription();
    m_path.clear();
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = -1;
}

std::vector<std::unique_ptr<HBSaveNote>> HBSaveNote::abandoned(const QString &folder)
{
    std::vector<std::unique_ptr<HBSaveNote>> notes;
    const QStringList names = QDir(folder).entryList({kNotePrefix + u'*'}, QDir::Files, QDir::Name);
    for (const QString &name : names) {
        auto note = std::make_unique<HBSaveNote>();
        note->m_path = folder + u'/' + name;
        note->m_fd = ::open(QFile::encodeName(note->m_path).constData(), O_RDWR | O_CLOEXEC);
        if (note->m_fd < 0 || ::flock(note->m_fd, LOCK_EX | LOCK_NB) != 0 || !stillInPlace(note->m_fd, note->m_path))
            continue;   // its save is still running, or has finished meanwhile
        QFile file;
        QByteArray text;
        if (file.open(note->m_fd, QIODevice::ReadOnly, QFileDevice::DontCloseHandle))
            text = file.readAll();
        if (!note->parse(text)) {
            qCWarning(hbStore).noquote() << "The save note" << note->m_path << "cannot be read; it is left in place.";
            continue;
        }
        notes.push_back(std::move(note));
    }
    return notes;
}
