#include "platform/store/HBPersistentStore.h"

#include "platform/HBDecimal.h"
#include "platform/HBLogging.h"
#include "platform/store/HBManagedObject.h"
#include "platform/store/HBLockOrder.h"
#include "platform/store/HBManagedObjectID.h"
#include "platform/store/HBManagedObjectModel.h"
#include "platform/store/HBStoreSQL.h"
#include "platform/store/HBStoreTable.h"
#include "platform/store/HBPredicate.h"
#include "platform/store/HBSqliteStatementCache.h"
#include "platform/store/HBStoreConnectionLimit.h"
#include "platform/store/HBStoreFileOpener.h"

#include <QScopeGuard>
#include <QVarLengthArray>

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <optional>
#include <vector>

namespace {

struct DatabaseCloser
{
    void operator()(sqlite3 *db) const { sqlite3_close_v2(db); }
};

} // namespace

struct HBPersistentStore::Private
{
    std::unique_ptr<sqlite3, DatabaseCloser> db;
    QString identifier;
    // the identifier as interned for object IDs, read without the store's lock
    std::atomic<quint32> identifierToken{0};

    void setIdentifier(const QString &text)
    {
        identifier = text;
        identifierToken = HBManagedObjectID::internStoreIdentifier(text);
    }
    QHash<const HBEntityDescription *, HBStoreTable *> tableByRoot;
    std::vector<std::unique_ptr<HBStoreTable>> tables;
    HBSqliteStatement reserveKeys;
    HBSqliteStatement readMaxKey;
    HBSqliteStatementCache queries;
    const HBManagedObjectModel *model = nullptr;
    QString configuration;
    // whether this process has brought the file's schema up to date and
    // read its identifier; until then the identifier is the one it was
    // known by
    bool schemaChecked = false;
    // calls under way on the connection, which must not be closed under them
    int inUse = 0;

    HBError sqliteError(const QString &what) const
    {
        return HBError(HBPersistentStore::errorDomain(), sqlite3_errcode(db.get()),
                       QStringLiteral("%1: %2").arg(what, HBSqliteStatement::errorMessage(db.get())));
    }
    bool exec(const QString &sql, HBError *error) { return HBSqliteStatement::execute(db.get(), sql, error); }

    // Laid out at first use: a start registers every period file of a
    // library, and most of them are not used before the process ends.
    HBStoreTable *table(const HBEntityDescription *entity)
    {
        buildTables();
        return tableByRoot.value(entity->rootEntity());
    }
    void buildTables();
    bool open(const QString &path, HBError *error);
    bool checkSchema(const QString &path, HBError *error);
    // the statements of the store's own tables; a table's own wait for its first use
    void prepareKeyStatements();
    void close();
    bool ready(HBStoreTable &t, HBError *error) { return t.ready(db.get(), error); }
};

HBPersistentStore::HBPersistentStore(const HBManagedObjectModel *model, QString path, QString configurationName)
    : d(std::make_unique<Private>())
    , m_model(model)
    , m_path(std::move(path))
    , m_configuration(std::move(configurationName))
{
    d->model = model;
    d->configuration = m_configuration;
}

HBPersistentStore::~HBPersistentStore()
{
    HBStoreConnectionLimit::shared().didClose(this);
    QMutexLocker lock(&m_mutex);
    d->close();
}

namespace {

// SQLite counts every allocation for its memory statistics under one
// process-wide lock, on which stores written side by side would queue. The
// statistics are never read, so they are switched off before the library
// starts (afterwards the setting is refused, harmlessly).
void configureSqliteOnce()
{
    static const bool configured = [] {
        sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
        return true;
    }();
    Q_UNUSED(configured);
}

// Marks a connection as in use for the length of a call, which holds the
// store's lock.
class InUse
{
public:
    explicit InUse(int &count)
        : m_count(count)
    {
        HB_WILL_LOCK(Store);
        ++m_count;
    }
    ~InUse()
    {
        --m_count;
        HB_DID_UNLOCK(Store);
    }
    InUse(const InUse &) = delete;
    InUse &operator=(const InUse &) = delete;

private:
    int &m_count;
};

} // namespace

void HBPersistentStore::Private::buildTables()
{
    if (tables.empty()) {
        for (const HBEntityDescription *root : model->rootEntitiesForConfiguration(configuration)) {
            tables.push_back(HBStoreTable::build(model, root, configuration));
            tableByRoot.insert(root, tables.back().get());
        }
    }
}

bool HBPersistentStore::Private::open(const QString &path, HBError *error)
{
    db.reset(HBStoreFileOpener::open(path, error));
    return db != nullptr;
}

// In one transaction: the file's identifier read or minted, the tables
// made or given their new columns.
bool HBPersistentStore::Private::checkSchema(const QString &path, HBError *error)
{
    if (!exec(QStringLiteral("BEGIN IMMEDIATE"), error))
        return false;
    auto schemaOk = [&] {
        const std::optional<QString> fileIdentifier = HBStoreFileOpener::readOrMintIdentifier(db.get(), path, identifier, error);
        if (!fileIdentifier)
            return false;
        setIdentifier(*fileIdentifier);
        return std::all_of(tables.begin(), tables.end(), [&](const auto &t) { return t->createOrUpgrade(db.get(), error); });
    };
    if (!schemaOk()) {
        exec(QStringLiteral("ROLLBACK"), nullptr);
        return false;
    }
    return exec(QStringLiteral("COMMIT"), error);
}

void HBPersistentStore::Private::prepareKeyStatements()
{
    reserveKeys = HBSqliteStatement(db.get(), QStringLiteral("UPDATE Z_PRIMARYKEY SET Z_MAX = Z_MAX + ? WHERE Z_NAME = ?"));
    queries = HBSqliteStatementCache(db.get());
    readMaxKey = HBSqliteStatement(db.get(), QStringLiteral("SELECT Z_MAX FROM Z_PRIMARYKEY WHERE Z_NAME = ?"));
}

// Statements first: SQLite closes a connection only once they are finalised.
void HBPersistentStore::Private::close()
{
    for (auto &t : tables)
        t->finalizeStatements();
    reserveKeys = {};
    readMaxKey = {};
    queries.clear();
    db.reset();
}

bool HBPersistentStore::load(HBError *error)
{
    QMutexLocker lock(&m_mutex);
    return connect(error);
}

void HBPersistentStore::loadLater(const QString &identifier)
{
    QMutexLocker lock(&m_mutex);
    d->setIdentifier(identifier);
}

bool HBPersistentStore::connect(HBError *error)
{
    if (d->db) {
        HBStoreConnectionLimit::shared().didUse(this);
        return true;
    }
    configureSqliteOnce();
    d->buildTables();
    HBError failure;
    const InUse use(d->inUse);
    const bool ok = d->open(m_path, &failure) && (d->schemaChecked || d->checkSchema(m_path, &failure));
    if (!ok) {
        // The cause goes into the detailed errors, which the store-error log prints.
        if (error) {
            *error = HBError(errorDomain(), failure.code(), QStringLiteral("The store file %1 could not be opened.").arg(m_path),
                             failure.localizedDescription());
            error->setDetailedErrors({failure});
        }
        d->close();
        return false;
    }
    d->schemaChecked = true;
    d->prepareKeyStatements();
    HBStoreConnectionLimit::shared().didUse(this);
    return true;
}

bool HBPersistentStore::closeConnectionIfIdle()
{
    if (!m_mutex.try_lock())
        return false;
    const bool idle = d->inUse == 0 && (!d->db || sqlite3_get_autocommit(d->db.get()));
    if (idle)
        d->close();
    m_mutex.unlock();
    return idle;
}

bool HBPersistentStore::isConnected() const
{
    QMutexLocker lock(&m_mutex);
    return d->db != nullptr;
}

bool HBPersistentStore::holdsEntity(const HBEntityDescription *entity) const
{
    return m_model->configurationContains(m_configuration, entity)
        && m_model->configurationContains(m_configuration, entity->rootEntity());
}

quint32 HBPersistentStore::identifierToken() const
{
    return d->identifierToken.load();
}

QString HBPersistentStore::identifier() const
{
    QMutexLocker lock(&m_mutex);
    return d->identifier;
}

bool HBPersistentStore::setIdentifier(const QString &identifier)
{
    QMutexLocker lock(&m_mutex);
    if (identifier == d->identifier)
        return true;
    const InUse use(d->inUse);
    HBError error;
    if (!connect(&error)) {
        qCWarning(hbStore).noquote() << error.localizedDescription() << error.localizedFailureReason();
        return false;
    }
    if (identifier == d->identifier)
        return true;
    HBSqliteStatement update(d->db.get(), QStringLiteral("UPDATE Z_METADATA SET Z_UUID = ?"));
    update.bindText(1, identifier);
    bool ok = false;
    update.step(&ok);
    if (!ok) {
        qCWarning(hbStore) << "The identifier of" << m_path << "could not be written:" << update.errorString();
        return false;
    }
    d->setIdentifier(identifier);
    return true;
}

std::optional<qint64> HBPersistentStore::reservePrimaryKeys(const HBEntityDescription *entity, qint64 count, HBError *error)
{
    QMutexLocker lock(&m_mutex);
    HBStoreTable *t = d->table(entity);
    if (!t) {
        if (error)
            *error = HBError(errorDomain(), SQLITE_MISUSE, QStringLiteral("%1 holds no %2").arg(m_path, entity->name()));
        return std::nullopt;
    }
    const InUse use(d->inUse);
    if (!connect(error))
        return std::nullopt;
    const bool ownTransaction = sqlite3_get_autocommit(d->db.get());
    if (ownTransaction && !d->exec(QStringLiteral("BEGIN IMMEDIATE"), error))
        return std::nullopt;
    d->reserveKeys.reset();
    d->reserveKeys.bindInt64(1, count);
    d->reserveKeys.bindText(2, t->name);
    bool ok = false;
    d->reserveKeys.step(&ok);
    d->readMaxKey.reset();
    d->readMaxKey.bindText(1, t->name);
    const bool haveRow = ok && d->readMaxKey.step(&ok);
    const qint64 max = haveRow ? d->readMaxKey.int64(0) : 0;
    d->readMaxKey.reset();
    if (!haveRow) {
        if (error)
            *error = d->sqliteError(QStringLiteral("reserving primary keys"));
        if (ownTransaction)
            d->exec(QStringLiteral("ROLLBACK"), nullptr);
        return std::nullopt;
    }
    if (ownTransaction && !d->exec(QStringLiteral("COMMIT"), error))
        return std::nullopt;
    return max - count + 1;
}

HBPersistentStore::FetchResult HBPersistentStore::fetchRows(const HBEntityDescription *entity, const HBPredicate &predicate,
                                                            const QList<HBSortDescriptor> &sortDescriptors, int fetchLimit)
{
    QMutexLocker lock(&m_mutex);
    FetchResult result;
    HBStoreTable *t = d->table(entity);
    if (!t || !m_model->configurationContains(m_configuration, entity))
        return result;
    QString where = QStringLiteral("t.Z_ENT IN (%1)").arg(HBStoreSQL::entityNumbers(entity));
    QVariantList binds;
    if (predicate.isValid()) {
        const auto condition = HBStoreSQL::condition(*t, predicate, d->identifierToken.load(), &binds);
        // IDs of other files match nothing here, and asking every file for
        // the extras of a segment's points would open them all
        if (condition == QLatin1String("0"))
            return result;
        if (condition)
            where += QStringLiteral(" AND (%1)").arg(*condition);
        else
            binds.clear();
        result.filtered = condition.has_value();
    }
    const InUse use(d->inUse);
    if (!connect(&result.error)) {
        result.ok = false;
        return result;
    }
    if (!d->ready(*t, &result.error)) {
        result.ok = false;
        return result;
    }
    if (t->isEmpty())
        return result;
    const QString sql = HBStoreSQL::select(*t, where, sortDescriptors, result.filtered ? fetchLimit : 0, &result.sorted);
    HBSqliteStatement &select = d->queries.statement(sql);
    // a statement left stepping would hold its read transaction open
    const auto resetWhenDone = qScopeGuard([&select] { select.reset(); });
    if (!select.isValid()) {
        result.ok = false;
        result.error = HBError(errorDomain(), SQLITE_ERROR, select.errorString());
        return result;
    }
    for (int i = 0; i < binds.size(); ++i)
        select.bindVariant(i + 1, binds.at(i));
    bool ok = true;
    HBStoreTable::RepeatedTexts texts;
    while (select.step(&ok))
        result.rows.append(t->readRow(select, d->model, d->identifierToken.load(), texts));
    if (!ok) {
        result.ok = false;
        result.error = HBError(errorDomain(), SQLITE_ERROR, select.errorString());
    }
    return result;
}

std::optional<HBStoreRow> HBPersistentStore::rowForObjectID(const HBManagedObjectID &objectID, HBError *error)
{
    QMutexLocker lock(&m_mutex);
    HBStoreTable *t = d->table(objectID.entity());
    const InUse use(d->inUse);
    if (!t || !connect(error) || !d->ready(*t, error))
        return std::nullopt;
    t->byKey.reset();
    t->byKey.bindInt64(1, objectID.primaryKey());
    bool ok = false;
    std::optional<HBStoreRow> row;
    HBStoreTable::RepeatedTexts texts;
    if (t->byKey.step(&ok))
        row = t->readRow(t->byKey, d->model, d->identifierToken.load(), texts);
    else if (!ok && error)
        *error = HBError(errorDomain(), SQLITE_ERROR, t->byKey.errorString());
    t->byKey.reset();
    return row;
}

qint64 HBPersistentStore::countRows(const HBEntityDescription *entity)
{
    QMutexLocker lock(&m_mutex);
    const HBStoreTable *t = d->table(entity);
    const InUse use(d->inUse);
    if (!t || !connect(nullptr))
        return 0;
    HBSqliteStatement &count = d->queries.statement(
        QStringLiteral("SELECT COUNT(*) FROM %1 WHERE Z_ENT IN (%2)").arg(HBStoreSQL::quoted(t->name), HBStoreSQL::entityNumbers(entity)));
    const qint64 rows = count.step() ? count.int64(0) : 0;
    count.reset();
    return rows;
}

bool HBPersistentStore::beginTransaction(HBError *error)
{
    m_mutex.lock();
    {
        const InUse use(d->inUse);
        if (connect(error) && d->exec(QStringLiteral("BEGIN IMMEDIATE"), error)) {
            HB_WILL_LOCK(Store);
            return true;
        }
    }
    m_mutex.unlock();
    return false;
}

bool HBPersistentStore::commit(HBError *error)
{
    const bool ok = d->exec(QStringLiteral("COMMIT"), error);
    if (!ok)
        d->exec(QStringLiteral("ROLLBACK"), nullptr);
    HB_DID_UNLOCK(Store);
    m_mutex.unlock();
    return ok;
}

void HBPersistentStore::rollback()
{
    d->exec(QStringLiteral("ROLLBACK"), nullptr);
    HB_DID_UNLOCK(Store);
    m_mutex.unlock();
}

bool HBPersistentStore::insertRows(std::span<const HBStoreTransaction::NewRow> rows, HBError *error)
{
    for (size_t first = 0; first < rows.size();) {
        HBStoreTable *t = d->table(rows[first].entity);
        if (!t) {
            if (error)
                *error = HBError(errorDomain(), SQLITE_MISUSE,
                                 QStringLiteral("%1 holds no %2").arg(m_path, rows[first].entity->name()));
            return false;
        }
        if (!d->ready(*t, error))
            return false;
        // the rows of this table that come next, as many as one statement takes
        size_t end = first + 1;
        while (end < rows.size() && end - first < size_t(t->rowsPerInsertMany)
               && rows[end].entity->rootEntity() == t->root)
            ++end;
        const std::span<const HBStoreTransaction::NewRow> run = rows.subspan(first, end - first);
        const bool many = t->rowsPerInsertMany > 0 && run.size() == size_t(t->rowsPerInsertMany);
        const auto inserted = [&](HBSqliteStatement &s, std::span<const HBStoreTransaction::NewRow> some) {
            if (t->insertWith(s, some))
                return true;
            if (error) {
                QString what = QStringLiteral("inserting %1 %2").arg(some.front().entity->name())
                                   .arg(some.front().primaryKey);
                if (some.size() > 1)
                    what += QStringLiteral(" to %1").arg(some.back().primaryKey);
                *error = d->sqliteError(what);
            }
            return false;
        };
        if (many) {
            if (!inserted(t->insertMany, run))
                return false;
        } else {
            for (size_t i = 0; i < run.size(); ++i) {
                if (!inserted(t->insert, run.subspan(i, 1)))
                    return false;
            }
        }
        first = end;
    }
    return true;
}

bool HBPersistentStore::updateRow(qint64 primaryKey, const HBEntityDescription *entity, const HBRowValues &values,
                                  HBError *error)
{
    HBStoreTable *t = d->table(entity);
    if (!t || !d->ready(*t, error))
        return false;
    HBSqliteStatement &s = t->update;
    s.startRow();
    s.bindInt64(1, entity->entityID());
    t->bindRow(s, 2, entity, values);
    s.bindInt64(int(t->columns.size()) + 2, primaryKey);
    s.finishRow();
    bool ok = false;
    s.step(&ok);
    if (!ok && error)
        *error = d->sqliteError(QStringLiteral("updating %1 %2").arg(entity->name()).arg(primaryKey));
    return ok;
}

bool HBPersistentStore::deleteRow(qint64 primaryKey, const HBEntityDescription *entity, HBError *error)
{
    HBStoreTable *t = d->table(entity);
    if (!t || !d->ready(*t, error))
        return false;
    HBSqliteStatement &s = t->remove;
    s.reset();
    s.bindInt64(1, primaryKey);
    bool ok = false;
    s.step(&ok);
    if (!ok && error)
        *error = d->sqliteError(QStringLiteral("deleting %1 %2").arg(entity->name()).arg(primaryKey));
    return ok;
}

bool HBPersistentStore::deleteRows(const HBEntityDescription *entity, qint64 firstKey, qint64 lastKey, HBError *error,
                                   qint64 *deleted)
{
    const HBStoreTable *t = d->table(entity);
    if (!t)
        return false;
    HBSqliteStatement s(d->db.get(), QStringLiteral("DELETE FROM %1 WHERE Z_PK BETWEEN ? AND ?").arg(HBStoreSQL::quoted(t->name)));
    s.bindInt64(1, firstKey);
    s.bindInt64(2, lastKey);
    bool ok = false;
    s.step(&ok);
    if (!ok && error)
        *error = d->sqliteError(QStringLiteral("deleting %1 %2 to %3").arg(entity->name()).arg(firstKey).arg(lastKey));
    if (ok && deleted)
        *deleted = sqlite3_changes64(d->db.get());
    return ok;
}

bool HBPersistentStore::recordSaveToken(const QString &token, const QStringList &forget, HBError *error)
{
    HBSqliteStatement drop(d->db.get(), QStringLiteral("DELETE FROM Z_SAVELOG WHERE Z_TOKEN = ?"));
    for (const QString &old : forget) {
        drop.reset();
        drop.bindText(1, old);
        bool ok = false;
        drop.step(&ok);
        if (!ok) {
            if (error)
                *error = d->sqliteError(QStringLiteral("forgetting a save"));
            return false;
        }
    }
    HBSqliteStatement insert(d->db.get(), QStringLiteral("INSERT OR REPLACE INTO Z_SAVELOG VALUES (?)"));
    insert.bindText(1, token);
    bool ok = false;
    insert.step(&ok);
    if (!ok && error)
        *error = d->sqliteError(QStringLiteral("recording a save"));
    return ok;
}

std::optional<bool> HBPersistentStore::holdsSaveToken(const QString &token, HBError *error)
{
    QMutexLocker lock(&m_mutex);
    const InUse use(d->inUse);
    if (!connect(error))
        return std::nullopt;
    HBSqliteStatement s(d->db.get(), QStringLiteral("SELECT 1 FROM Z_SAVELOG WHERE Z_TOKEN = ?"));
    s.bindText(1, token);
    bool ok = false;
    const bool found = s.step(&ok);
    if (!found && !ok) {
        if (error)
            *error = d->sqliteError(QStringLiteral("looking for a save"));
        return std::nullopt;
    }
    return found;
}
