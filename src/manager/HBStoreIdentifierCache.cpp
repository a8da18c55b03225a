#include "manager/HBStoreIdentifierCache.h"

#include "platform/HBLogging.h"

#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <sys/stat.h>

HBStoreIdentifierCache::HBStoreIdentifierCache(QString path)
    : m_path(std::move(path))
{
    read();
}

QByteArray HBStoreIdentifierCache::lineOf(const QString &name, const Entry &entry)
{
    return name.toUtf8() + '\t' + QByteArray::number(entry.inode) + '\t' + entry.identifier.toLatin1() + '\n';
}

quint64 HBStoreIdentifierCache::inodeOf(const QString &filePath)
{
    struct stat status = {};
    return ::stat(QFile::encodeName(filePath).constData(), &status) == 0 ? quint64(status.st_ino) : 0;
}

// One line per file: its name, its inode and its identifier, separated by
// tabs; a later line for the same name wins.
void HBStoreIdentifierCache::read()
{
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly))
        return;
    while (!file.atEnd()) {
        const QList<QByteArray> fields = file.readLine().trimmed().split('\t');
        ++m_lines;
        bool ok = false;
        const quint64 inode = fields.value(1).toULongLong(&ok);
        if (fields.size() == 3 && ok && !fields[0].isEmpty() && !fields[2].isEmpty())
            m_entries.insert(QString::fromUtf8(fields[0]), {inode, QString::fromLatin1(fields[2])});
    }
}

QString HBStoreIdentifierCache::identifierFor(const QString &filePath) const
{
    QMutexLocker lock(&m_lock);
    const auto it = m_entries.constFind(QFileInfo(filePath).fileName());
    if (it == m_entries.constEnd() || it->inode == 0 || it->inode != inodeOf(filePath))
        return {};
    return it->identifier;
}

void HBStoreIdentifierCache::note(const QString &filePath, const QString &identifier)
{
    const QString name = QFileInfo(filePath).fileName();
    const Entry entry{inodeOf(filePath), identifier};
    QMutexLocker lock(&m_lock);
    const auto it = m_entries.constFind(name);
    if (entry.inode == 0 || (it != m_entries.constEnd() && it->inode == entry.inode && it->identifier == identifier))
        return;
    m_entries.insert(name, entry);
    QFile file(m_path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Append)) {
        file.write(lineOf(name, entry));
        ++m_lines;
    }
}

void HBStoreIdentifierCache::tidy(const QStringList &files)
{
    QMutexLocker lock(&m_lock);
    QHash<QString, Entry> current;
    for (const QString &filePath : files) {
        const QString name = QFileInfo(filePath).fileName();
        const auto it = m_entries.constFind(name);
        if (it != m_entries.constEnd() && it->inode == inodeOf(filePath))
            current.insert(name, *it);
    }
    if (current.size() == m_lines)
        return;
    QSaveFile file(m_path);
    if (!file.open(QIODevice::WriteOnly))
        return;
    for (auto it = current.constBegin(); it != current.constEnd(); ++it)
        file.write(lineOf(it.key(), *it));
    if (!file.commit()) {
        qCWarning(hbManager).noquote() << "The identifiers of the point files could not be noted in" << m_path << ":"
                                       << file.errorString();
        return;
    }
    m_entries = current;
    m_lines = int(current.size());
}
