#include "platform/store/HBStoreFileOpener.h"

#include "platform/HBLogging.h"
#include "platform/store/HBPersistentStore.h"
#include "platform/store/HBSqliteStatement.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QThread>
#include <QUuid>

#include <sqlite3.h>

namespace {

constexpr int kSchemaVersion = 1;
constexpr int kBusyTimeoutMs = 60000;

bool fail(HBError *error, HBError failure)
{
    if (error)
        *error = std::move(failure);
    return false;
}

bool makeBookkeepingTables(sqlite3 *db, HBError *error)
{
    return HBSqliteStatement::execute(db, QStringLiteral("CREATE TABLE IF NOT EXISTS Z_METADATA (Z_VERSION INTEGER, Z_UUID TEXT)"), error)
        && HBSqliteStatement::execute(db, QStringLiteral("CREATE TABLE IF NOT EXISTS Z_PRIMARYKEY (Z_NAME TEXT PRIMARY KEY, Z_MAX INTEGER)"),
                                      error)
        && HBSqliteStatement::execute(db, QStringLiteral("CREATE TABLE IF NOT EXISTS Z_SAVELOG (Z_TOKEN TEXT PRIMARY KEY)"), error);
}

} // namespace

sqlite3 *HBStoreFileOpener::open(const QString &path, HBError *error)
{
    sqlite3 *db = nullptr;
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    const int rc = sqlite3_open_v2(QFile::encodeName(path).constData(), &db, flags, nullptr);
    if (rc != SQLITE_OK) {
        fail(error, HBError(HBPersistentStore::errorDomain(), rc, HBSqliteStatement::errorMessage(db)));
        sqlite3_close_v2(db);
        return nullptr;
    }
    sqlite3_busy_timeout(db, kBusyTimeoutMs);
    // The write-ahead journal lets readers of one coordinator go on while
    // another writes. FULL sync makes each commit durable before the next
    // file's begins: a save across files commits them in an order that is
    // only safe if a later commit cannot outlive an earlier one through a
    // power loss. Pages of 16 KiB (for new files; a file keeps the size it
    // was made with) quarter the pages, and the writes, of a save of many
    // rows.
    const QString setUp = QStringLiteral("PRAGMA page_size = 16384; PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL; "
                                         "PRAGMA foreign_keys = OFF");
    // Turning a new file's journal to write-ahead does not wait for a
    // process that is doing the same to the same file, as every other
    // statement does: two programs started at once would find it locked.
    QDeadlineTimer patience(kBusyTimeoutMs);
    while (!HBSqliteStatement::execute(db, setUp, error)) {
        if ((sqlite3_errcode(db) & 0xff) != SQLITE_BUSY || patience.hasExpired()) {
            sqlite3_close_v2(db);
            return nullptr;
        }
        QThread::msleep(5);
    }
    return db;
}

std::optional<QString> HBStoreFileOpener::readOrMintIdentifier(sqlite3 *db, const QString &path,
                                                               const QString &knownIdentifier, HBError *error)
{
    if (!makeBookkeepingTables(db, error))
        return std::nullopt;
    HBSqliteStatement meta(db, QStringLiteral("SELECT Z_VERSION, Z_UUID FROM Z_METADATA"));
    if (meta.step()) {
        if (meta.int64(0) > kSchemaVersion) {
            fail(error, HBError(HBPersistentStore::errorDomain(), SQLITE_ERROR,
                                QStringLiteral("The store was written by a newer version (schema %1).").arg(meta.int64(0))));
            return std::nullopt;
        }
        if (!knownIdentifier.isEmpty() && knownIdentifier != meta.text(1))
            qCWarning(hbStore).noquote() << "The store file" << path << "is no longer the file it was:" << knownIdentifier
                                         << "is now" << meta.text(1);
        return meta.text(1);
    }
    const QString minted = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    HBSqliteStatement insert(db, QStringLiteral("INSERT INTO Z_METADATA VALUES (?, ?)"));
    insert.bindInt64(1, kSchemaVersion);
    insert.bindText(2, minted);
    bool ok = false;
    insert.step(&ok);
    if (!ok) {
        fail(error, HBError(HBPersistentStore::errorDomain(), sqlite3_errcode(db),
                            QStringLiteral("metadata: %1").arg(HBSqliteStatement::errorMessage(db))));
        return std::nullopt;
    }
    return minted;
}
