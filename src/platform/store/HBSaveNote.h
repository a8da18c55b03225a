#pragma once

#include "platform/HBError.h"

#include <QList>
#include <QString>

#include <memory>
#include <utility>
#include <vector>

// A note, beside the store files, that a save across several files is
// under way.
//
// Records in one file refer to records in another (a point names its
// segment), so such a save commits the referring files first and the
// referred-to file last: whatever stops it, no record is left referring to
// one that was never saved. What a cut-off save leaves behind is listed
// here: the rows it added before its last commit, to take out again if the
// save never reached the last file, and the rows it takes out after that
// commit, to take out if it did. A token the save writes into the last file
// tells which happened.
//
// The note is written durably and locked before the first commit, and
// removed after the last; while its process saves, the lock keeps other
// processes from repairing a save that is still running.
class HBSaveNote
{
public:
    // A run of keys of one table, first to last.
    struct Rows
    {
        QString entityName;
        qint64 first = 0;
        qint64 last = 0;
    };
    struct StoreRows
    {
        QString path;
        QString configuration;
        QList<Rows> rows;
    };

    HBSaveNote();
    ~HBSaveNote();   // releases the lock; the file stays until remove()
    HBSaveNote(const HBSaveNote &) = delete;
    HBSaveNote &operator=(const HBSaveNote &) = delete;

    // Keys of one table, in any order, as runs of consecutive keys.
    static QList<Rows> runsOfKeys(const QString &entityName, std::vector<qint64> keys);

    QString token;
    QString lastStorePath;
    QList<StoreRows> undo;   // added before the last commit
    QList<StoreRows> redo;   // taken out after it

    // Writes the note into the folder, synced, and keeps it locked.
    bool write(const QString &folder, HBError *error);
    void remove();
    // The notes in the folder that no running process holds, each locked
    // for the caller; notes that cannot be read are logged and left.
    static std::vector<std::unique_ptr<HBSaveNote>> abandoned(const QString &folder);

private:
    QByteArray serialised() const;
    bool parse(const QByteArray &text);

    int m_fd = -1;
    QString m_path;
};
