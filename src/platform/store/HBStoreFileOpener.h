#pragma once

#include "platform/HBError.h"

#include <QString>

#include <optional>

struct sqlite3;

// What every store file is before it holds any records: a SQLite file with
// a write-ahead journal and full sync, its own bookkeeping tables, a schema
// version and an identifier that stays with the file.
class HBStoreFileOpener
{
public:
    // The connection, or null with error set. A connection that failed to
    // open is closed here.
    static sqlite3 *open(const QString &path, HBError *error);

    // Inside the caller's transaction: the bookkeeping tables made, the
    // file's identifier read or, for a new file, minted. A file written by
    // a newer version is refused. knownIdentifier is what the file was
    // known by; a replaced file's own identifier wins, with a warning.
    static std::optional<QString> readOrMintIdentifier(sqlite3 *db, const QString &path, const QString &knownIdentifier,
                                                       HBError *error);
};
