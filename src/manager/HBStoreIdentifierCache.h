#pragma once

#include <QHash>
#include <QMutex>
#include <QString>

// The identifiers of the period files, noted beside them, so that a start
// need not open every file of a library to learn them.
//
// Object IDs name a point's file by its identifier, which lives inside the
// file; a library of thirty years has over a thousand period files, and
// opening each of them at every start would cost more than most commands
// do. An entry counts only while the file is the one it was noted for
// (same name, same inode): a file that was replaced or restored is opened
// and noted again. A note that was lost (two processes rewriting at once)
// only costs that one opening.
class HBStoreIdentifierCache
{
public:
    explicit HBStoreIdentifierCache(QString path);

    // The identifier noted for the file, or a null string when there is
    // none for the file as it is now.
    QString identifierFor(const QString &filePath) const;
    // Notes a file's identifier, at once and durably enough for a cache.
    void note(const QString &filePath, const QString &identifier);
    // Rewrites the notes when they hold entries for files that are gone or
    // were replaced, or repeat themselves; `files` are those that exist.
    void tidy(const QStringList &files);

private:
    struct Entry
    {
        quint64 inode = 0;
        QString identifier;
    };
    static quint64 inodeOf(const QString &filePath);
    static QByteArray lineOf(const QString &name, const Entry &entry);
    void read();

    const QString m_path;
    mutable QMutex m_lock;
    QHash<QString, Entry> m_entries;   // by file name
    int m_lines = 0;
};
