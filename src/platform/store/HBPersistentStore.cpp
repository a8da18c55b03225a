#include "platform/store/HBPersistentStore.h"

#include "platform/HBDecimal.h"
#include "platform/HBLogging.h"
#include "platform/store/HBManagedObject.h"
#include "platform/store/HBLockOrder.h"
#include "platform/store/HBManagedObjectID.h"
#include "platform/store/HBManagedObjectModel.h"
#include "platform/store/HBPersistentStore_p.h"
#include "platform/store/HBPredicate.h"
#include "platform/store/HBSqliteStatementCache.h"
#include "platform/store/HBStoreConnectionLimit.h"

#include <QDataStream>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QDeadlineTimer>
#include <QScopeGuard>
#include <QThread>
#include <QUuid>
#include <QVarLengthArray>

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <optional>
#include <vector>

namespace {

constexpr int kSchemaVersion = 1;
constexpr int kBusyTimeoutMs = 60000;

QString quoted(const QString &name)
{
    return QLatin1Char('"') + name + QLatin1Char('"');
}

struct DatabaseCloser
{
    void operator()(sqlite3 *db) const { sqlite3_close_v2(db); }
};

// SQLite says only "unable to open database file" whether a file is
// missing, forbidden or past the process's limit of open files, and it says
// so for the write-ahead log and its shared memory too; the system's reason
// tells these apart.
QString sqliteMessage(sqlite3 *db, const char *message = nullptr)
{
    QString text = QString::fromUtf8(message ? message : sqlite3_errmsg(db));
    const int primary = sqlite3_errcode(db) & 0xff;
    if (const int systemError = sqlite3_system_errno(db);
        systemError != 0 && (primary == SQLITE_CANTOPEN || primary == SQLITE_IOERR))
        text += QStringLiteral(" (%1)").arg(qt_error_string(systemError));
    return text;
}

QByteArray variantBlob(const QVariant &value)
{
    QByteArray blob;
    QDataStream out(&blob, QIODevice::WriteOnly);
    out.setVersion(QDataStream::Qt_6_4);
    out << value;
    return blob;
}

QVariant variantFromBlob(const QByteArray &blob)
{
    QDataStream in(blob);
    in.setVersion(QDataStream::Qt_6_4);
    QVariant value;
    in >> value;
    return in.status() == QDataStream::Ok ? value : QVariant();
}

// The SQL expression a column is compared through: decimals are kept as
// text and compared as numbers. Fetches name the table "t"; an index
// names no table.
QString comparable(const HBStoreColumn &column, const QString &table = QStringLiteral("t."))
{
    const QString name = table + quoted(column.name);
    if (column.kind == HBStoreColumn::Kind::Attribute && column.type == HBAttributeType::Decimal)
        return QStringLiteral("CAST(%1 AS REAL)").arg(name);
    return name;
}

// The SQL list of the entity numbers a fetch of the entity matches: the
// entity itself and every sub-entity kept in the same table.
QString entityNumbers(const HBEntityDescription *entity)
{
    QStringList numbers;
    for (const HBEntityDescription *e : entity->selfAndDescendants())
        numbers << QString::number(e->entityID());
    return numbers.join(u',');
}

} // namespace

namespace {

// Every point of a segment names the segment by the same text: a fetch
// hands the rows one shared string per run of equal texts in a column,
// rather than a copy each.
class RepeatedTexts
{
public:
    QString text(const HBSqliteStatement &stmt, int column)
    {
        if (size_t(column) >= m_last.size())
            m_last.resize(size_t(column) + 1);
        auto &[bytes, text] = m_last[size_t(column)];
        const QByteArrayView utf8 = stmt.utf8(column);
        if (bytes.isNull() || utf8 != bytes) {
            bytes = utf8.toByteArray();
            text = HBSqliteStatement::textFromUtf8(utf8);
        }
        return text;
    }

private:
    std::vector<std::pair<QByteArray, QString>> m_last;
};

// Decimals are stored as ASCII text; widening it on the stack spares a
// string per value, and an export reads three for each of a million points.
HBDecimal decimalFromText(QByteArrayView utf8)
{
    constexpr qsizetype kOnStack = 64;
    const bool ascii = std::all_of(utf8.begin(), utf8.end(), [](char c) { return uchar(c) < 0x80; });
    if (!ascii || utf8.size() > kOnStack)
        return HBDecimal::fromString(QString::fromUtf8(utf8));
    std::array<char16_t, kOnStack> units;
    std::copy(utf8.begin(), utf8.end(), units.begin());
    return HBDecimal::fromString(QStringView(units.data(), utf8.size()));
}

// The primary keys of this store's records among a list of IDs or records,
// ascending and each once; nullopt for a list of anything else.
std::optional<std::vector<qint64>> keysInStore(const QVariant &list, quint32 storeToken)
{
    std::vector<qint64> keys;
    const auto add = [&](const HBManagedObjectID &id) {
        if (!id.isNull() && !id.isTemporaryID() && id.storeToken() == storeToken)
            keys.push_back(id.primaryKey());
    };
    if (list.metaType() == QMetaType::fromType<QList<HBManagedObjectID>>()) {
        const auto &ids = *static_cast<const QList<HBManagedObjectID> *>(list.constData());
        keys.reserve(size_t(ids.size()));
        for (const HBManagedObjectID &id : ids)
            add(id);
    } else if (list.metaType() == QMetaType::fromType<QList<HBManagedObject *>>()) {
        for (const HBManagedObject *object : *static_cast<const QList<HBManagedObject *> *>(list.constData())) {
            if (object)
                add(object->objectID());
        }
    } else {
        return std::nullopt;
    }
    // a segment's points were numbered in order when they were saved
    if (!std::is_sorted(keys.begin(), keys.end()))
        std::sort(keys.begin(), keys.end());
    keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
    return keys;
}

// Keys from first to last, every one in between included.
struct KeyRange
{
    qint64 first;
    qint64 last;
};

// The ranges that ascending keys make up, or nothing when they make up
// more than `most`.
std::vector<KeyRange> rangesOf(const std::vector<qint64> &keys, size_t most)
{
    std::vector<KeyRange> ranges;
    for (const qint64 key : keys) {
        if (!ranges.empty() && ranges.back().last + 1 == key) {
            ranges.back().last = key;
            continue;
        }
        if (ranges.size() == most)
            return {};
        ranges.push_back({key, key});
    }
    return ranges;
}

// A condition on `expression` matching exactly the given keys. A segment's
// points lie in one or a few runs of keys per file: a range of keys is
// read straight off the table, where a list of a hundred thousand keys
// would first be parsed and sorted by SQLite.
QString keysCondition(const QString &expression, const std::vector<qint64> &keys, QVariantList *binds)
{
    constexpr size_t kMostRangesWrittenOut = 8;
    if (keys.empty())
        return QStringLiteral("0");
    const std::vector<KeyRange> ranges = rangesOf(keys, kMostRangesWrittenOut);
    if (ranges.empty()) {
        QByteArray json("[");
        for (const qint64 key : keys) {
            if (json.size() > 1)
                json += ',';
            json += QByteArray::number(key);
        }
        json += ']';
        binds->append(QString::fromLatin1(json));
        return QStringLiteral("%1 IN (SELECT value FROM json_each(?))").arg(expression);
    }
    QStringList terms;
    for (const KeyRange &range : ranges) {
        binds->append(range.first);
        binds->append(range.last);
        terms << QStringLiteral("%1 BETWEEN ? AND ?").arg(expression);
    }
    return QLatin1Char('(') + terms.join(QStringLiteral(" OR ")) + QLatin1Char(')');
}

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
                       QStringLiteral("%1: %2").arg(what, sqliteMessage(db.get())));
    }
    bool exec(const QString &sql, HBError *error)
    {
        char *message = nullptr;
        if (sqlite3_exec(db.get(), sql.toUtf8().constData(), nullptr, nullptr, &message) == SQLITE_OK)
            return true;
        if (error)
            *error = HBError(HBPersistentStore::errorDomain(), sqlite3_errcode(db.get()), sqliteMessage(db.get(), message));
        sqlite3_free(message);
        return false;
    }

    // Laid out at first use: a start registers every period file of a
    // library, and most of them are not used before the process ends.
    HBStoreTable *table(const HBEntityDescription *entity)
    {
        buildTables();
        return tableByRoot.value(entity->rootEntity());
    }
    void buildTables();
    void buildTable(const HBEntityDescription *root, const QString &configuration);
    bool open(const QString &path, HBError *error);
    bool checkSchema(const QString &path, HBError *error);
    // the statements of the store's own tables; a table's own wait for its first use
    void prepareKeyStatements();
    void close();
    bool createOrUpgradeTable(HBStoreTable &t, HBError *error);
    bool prepareStatements(HBStoreTable &t, HBError *error);
    bool ready(HBStoreTable &t, HBError *error)
    {
        t.prepared = t.prepared || prepareStatements(t, error);
        return t.prepared;
    }
    bool bindRow(HBStoreTable &t, HBSqliteStatement &stmt, int firstParameter, const HBEntityDescription *entity,
                 const HBRowValues &values);
    bool insertWith(HBStoreTable &t, HBSqliteStatement &s, std::span<const HBStoreTransaction::NewRow> rows);
    static void bindValue(const HBStoreColumn &column, HBSqliteStatement &stmt, int parameter, const QVariant &value);
    HBStoreRow readRow(const HBStoreTable &t, const HBSqliteStatement &stmt, RepeatedTexts &texts) const;
    // An empty table answers a fetch at once: a segment's points ask every
    // point file for their extras, which most files have none of, and
    // writing out the question would cost more than the answer.
    static bool isEmpty(HBStoreTable &t)
    {
        bool ok = false;
        const bool found = t.anyRow.step(&ok);
        t.anyRow.reset();
        return ok && !found;
    }
    std::optional<QString> compile(const HBStoreTable &t, const HBPredicate &p, QVariantList *binds) const;
    std::optional<QString> compileComparison(const HBStoreTable &t, const HBPredicate &p, QVariantList *binds) const;
};

void HBPersistentStore::Private::buildTable(const HBEntityDescription *root, const QString &configuration)
{
    auto t = std::make_unique<HBStoreTable>();
    t->root = root;
    t->name = root->name();
    const QList<const HBEntityDescription *> family = root->selfAndDescendants();
    // Columns only for the entities this store may hold: a point file has
    // no room for a waypoint's source and event.
    for (const HBEntityDescription *e : family) {
        if (!model->configurationContains(configuration, e))
            continue;
        for (const HBPropertyDescription *p : e->properties()) {
            if (!p->isStored() || t->columnByName.contains(p->name))
                continue;
            HBStoreColumn c;
            c.name = p->name;
            c.type = p->attributeType;
            c.kind = p->isRelationship ? HBStoreColumn::Kind::ForeignKey : HBStoreColumn::Kind::Attribute;
            c.destination = p->destinationEntity;
            c.indexed = p->isIndexed;
            t->columnByName.insert(c.name, int(t->columns.size()));
            t->columns.push_back(c);
            if (p->isRelationship) {
                c.kind = HBStoreColumn::Kind::ForeignEntity;
                c.name = p->name + QStringLiteral("__ent");
                t->columns.push_back(c);
            }
        }
    }
    for (const HBEntityDescription *e : family) {
        std::vector<int> slotOf(t->columns.size(), -1);
        for (size_t i = 0; i < t->columns.size(); ++i) {
            const HBStoreColumn &c = t->columns[i];
            const QString propertyName = c.kind == HBStoreColumn::Kind::ForeignEntity ? c.name.chopped(5) : c.name;
            if (const HBPropertyDescription *p = e->propertyNamed(propertyName); p && p->isStored())
                slotOf[i] = p->index;
        }
        std::vector<int> columnOf(size_t(e->propertyCount()), -1);
        for (size_t i = 0; i < slotOf.size(); ++i) {
            if (slotOf[i] >= 0 && t->columns[i].kind != HBStoreColumn::Kind::ForeignEntity)
                columnOf[size_t(slotOf[i])] = int(i);
        }
        t->columnsBySlot.insert(e->entityID(), std::move(columnOf));
        t->slotsByEntity.insert(e->entityID(), std::move(slotOf));
    }
    tableByRoot.insert(root, t.get());
    tables.push_back(std::move(t));
}

bool HBPersistentStore::Private::createOrUpgradeTable(HBStoreTable &t, HBError *error)
{
    QSet<QString> existing;
    {
        HBSqliteStatement info(db.get(), QStringLiteral("PRAGMA table_info(%1)").arg(quoted(t.name)));
        while (info.step())
            existing.insert(info.text(1));
    }
    if (existing.isEmpty()) {
        // a new file: made whole at once, since every change of the schema
        // has SQLite read all of it again
        QStringList columns{QStringLiteral("Z_PK INTEGER PRIMARY KEY"), QStringLiteral("Z_ENT INTEGER NOT NULL")};
        for (const HBStoreColumn &c : t.columns)
            columns << quoted(c.name);
        if (!exec(QStringLiteral("CREATE TABLE %1 (%2)").arg(quoted(t.name), columns.join(u", ")), error))
            return false;
    } else {
        // Columns the model gained since the file was made are added in
        // place; their rows read as nil.
        for (const HBStoreColumn &c : t.columns) {
            if (existing.contains(c.name))
                continue;
            if (!exec(QStringLiteral("ALTER TABLE %1 ADD COLUMN %2").arg(quoted(t.name), quoted(c.name)), error))
                return false;
        }
    }
    // Relationship keys are indexed where they are set: most point rows
    // have no symbol, zone, source or event, and a million-point import
    // should not pay an index entry for each of those empty keys.
    for (const HBStoreColumn &c : t.columns) {
        if (c.kind != HBStoreColumn::Kind::ForeignKey)
            continue;
        if (!exec(QStringLiteral("CREATE INDEX IF NOT EXISTS %1 ON %2 (%3) WHERE %3 IS NOT NULL")
                      .arg(quoted(t.name + QStringLiteral("_") + c.name + QStringLiteral("_set")), quoted(t.name),
                           quoted(c.name)),
                  error))
            return false;
    }
    // Compared through the same expression as fetches compare it, so that
    // SQLite's planner sees the index fits.
    for (const HBStoreColumn &c : t.columns) {
        if (c.kind == HBStoreColumn::Kind::Attribute && c.indexed
            && !exec(QStringLiteral("CREATE INDEX IF NOT EXISTS %1 ON %2 (%3)")
                         .arg(quoted(t.name + QStringLiteral("_") + c.name), quoted(t.name), comparable(c, {})),
                     error))
            return false;
    }
    return exec(QStringLiteral("INSERT OR IGNORE INTO Z_PRIMARYKEY (Z_NAME, Z_MAX) VALUES ('%1', 0)").arg(t.name), error);
}

bool HBPersistentStore::Private::prepareStatements(HBStoreTable &t, HBError *error)
{
    QStringList names{QStringLiteral("Z_PK"), QStringLiteral("Z_ENT")};
    QStringList assignments;
    for (const HBStoreColumn &c : t.columns) {
        names << quoted(c.name);
        assignments << quoted(c.name) + QStringLiteral(" = ?");
    }
    const QString placeholders = QStringLiteral("(%1)").arg(QStringList(names.size(), QStringLiteral("?")).join(u','));
    // A refused row stops its statement without undoing the rows it already
    // wrote; the transaction around it is rolled back anyway. Undoing just the
    // statement would make SQLite copy every page a statement touches to a
    // temporary file first: for a million points, some 800 MB of writes.
    const QString insertInto = QStringLiteral("INSERT OR FAIL INTO %1 (%2) VALUES ").arg(quoted(t.name), names.join(u','));
    t.insert = HBSqliteStatement(db.get(), insertInto + placeholders);
    constexpr int kRowsPerInsertMany = 32;
    const int rowsThatFit = sqlite3_limit(db.get(), SQLITE_LIMIT_VARIABLE_NUMBER, -1) / int(names.size());
    t.rowsPerInsertMany = rowsThatFit >= 2 ? std::min(kRowsPerInsertMany, rowsThatFit) : 0;
    if (t.rowsPerInsertMany > 0)
        t.insertMany = HBSqliteStatement(db.get(), insertInto + QStringList(t.rowsPerInsertMany, placeholders).join(u','));
    t.update = HBSqliteStatement(db.get(), QStringLiteral("UPDATE %1 SET Z_ENT = ?%2 WHERE Z_PK = ?")
                                               .arg(quoted(t.name),
                                                    assignments.isEmpty() ? QString() : QStringLiteral(", ") + assignments.join(u',')));
    t.remove = HBSqliteStatement(db.get(), QStringLiteral("DELETE FROM %1 WHERE Z_PK = ?").arg(quoted(t.name)));
    t.byKey = HBSqliteStatement(db.get(), QStringLiteral("SELECT %1 FROM %2 t WHERE Z_PK = ?")
                                              .arg(names.join(u','), quoted(t.name)));
    t.anyRow = HBSqliteStatement(db.get(), QStringLiteral("SELECT 1 FROM %1 LIMIT 1").arg(quoted(t.name)));
    std::vector<const HBSqliteStatement *> prepared{&t.insert, &t.update, &t.remove, &t.byKey, &t.anyRow};
    if (t.rowsPerInsertMany > 0)
        prepared.push_back(&t.insertMany);
    for (const HBSqliteStatement *s : prepared) {
        if (!s->isValid()) {
            if (error)
                *error = HBError(HBPersistentStore::errorDomain(), SQLITE_ERROR, s->errorString());
            return false;
        }
    }
    return true;
}

// Binds only the values that are set: the statement's bindings were
// cleared, so every other column is written as NULL.
bool HBPersistentStore::Private::bindRow(HBStoreTable &t, HBSqliteStatement &stmt, int first,
                                         const HBEntityDescription *entity, const HBRowValues &values)
{
    const std::vector<int> &columnOf = t.columnsBySlot[entity->entityID()];
    for (const auto &[slot, value] : values) {
        const int i = slot >= 0 && size_t(slot) < columnOf.size() ? columnOf[size_t(slot)] : -1;
        if (i >= 0 && value.isValid())
            bindValue(t.columns[size_t(i)], stmt, first + i, value);
    }
    return true;
}

void HBPersistentStore::Private::bindValue(const HBStoreColumn &c, HBSqliteStatement &stmt, int parameter,
                                           const QVariant &value)
{
    const QVariant *v = &value;
    if (c.kind == HBStoreColumn::Kind::ForeignKey) {
        const HBManagedObjectID id = v->metaType() == QMetaType::fromType<HBManagedObject *>()
                                         ? (v->value<HBManagedObject *>() ? v->value<HBManagedObject *>()->objectID() : HBManagedObjectID())
                                         : v->value<HBManagedObjectID>();
        if (id.isNull() || id.isTemporaryID())
            return;
        stmt.bindInt64(parameter, id.primaryKey());
        stmt.bindInt64(parameter + 1, id.entity()->entityID());
        return;
    }
    switch (c.type) {
    case HBAttributeType::Decimal: {
        const HBDecimal d = v->metaType() == QMetaType::fromType<HBDecimal>() ? v->value<HBDecimal>()
                                                                             : HBDecimal::fromString(v->toString());
        if (!d.isNaN())
            stmt.bindText(parameter, [&d](QByteArray &text) { d.appendLatin1(text); });
        break;
    }
    case HBAttributeType::Date:
        stmt.bindInt64(parameter, v->toDateTime().toMSecsSinceEpoch());
        break;
    case HBAttributeType::Variant:
        stmt.bindBlob(parameter, variantBlob(*v));
        break;
    case HBAttributeType::Binary:
        stmt.bindBlob(parameter, v->toByteArray());
        break;
    case HBAttributeType::Double:
        stmt.bindDouble(parameter, v->toDouble());
        break;
    case HBAttributeType::Integer:
    case HBAttributeType::Boolean:
        stmt.bindInt64(parameter, v->toLongLong());
        break;
    case HBAttributeType::String:
        // the string itself, not a copy: the statement knows it again by
        // its data when every point of a segment binds the segment's URI
        if (v->metaType().id() == QMetaType::QString)
            stmt.bindText(parameter, *static_cast<const QString *>(v->constData()));
        else
            stmt.bindText(parameter, v->toString());
        break;
    }
}

HBStoreRow HBPersistentStore::Private::readRow(const HBStoreTable &t, const HBSqliteStatement &stmt,
                                               RepeatedTexts &texts) const
{
    HBStoreRow row;
    row.primaryKey = stmt.int64(0);
    row.entity = model->entityWithID(int(stmt.int64(1)));
    if (!row.entity)
        return row;
    const std::vector<int> &slotOf = t.slotsByEntity[row.entity->entityID()];
    // the columns with values first, so that the row gets room for exactly
    // those: a million points are read at once
    QVarLengthArray<size_t, 32> present;
    for (size_t i = 0; i < t.columns.size(); ++i) {
        if (slotOf[i] >= 0 && t.columns[i].kind != HBStoreColumn::Kind::ForeignEntity && !stmt.isNull(int(i) + 2))
            present.append(i);
    }
    row.values.reserve(size_t(present.size()));
    for (const size_t i : present) {
        const int column = int(i) + 2;
        const HBStoreColumn &c = t.columns[i];
        QVariant value;
        if (c.kind == HBStoreColumn::Kind::ForeignKey) {
            const HBEntityDescription *destination = c.destination;
            if (!stmt.isNull(column + 1)) {
                if (const HBEntityDescription *e = model->entityWithID(int(stmt.int64(column + 1))))
                    destination = e;
            }
            value = QVariant::fromValue(HBManagedObjectID::permanentID(destination, identifierToken.load(), stmt.int64(column)));
        } else {
            switch (c.type) {
            case HBAttributeType::Decimal:
                value = QVariant::fromValue(decimalFromText(stmt.utf8(column)));
                break;
            case HBAttributeType::Date:
                value = QDateTime::fromMSecsSinceEpoch(stmt.int64(column), Qt::UTC);
                break;
            case HBAttributeType::Variant:
                value = variantFromBlob(stmt.blob(column));
                break;
            case HBAttributeType::Binary:
                value = stmt.blob(column);
                break;
            case HBAttributeType::Double:
                value = stmt.doubleValue(column);
                break;
            case HBAttributeType::Integer:
                value = stmt.int64(column);
                break;
            case HBAttributeType::Boolean:
                value = stmt.int64(column) != 0;
                break;
            case HBAttributeType::String:
                value = texts.text(stmt, column);
                break;
            }
        }
        row.values.emplace_back(slotOf[i], std::move(value));
    }
    return row;
}

std::optional<QString> HBPersistentStore::Private::compile(const HBStoreTable &t, const HBPredicate &p,
                                                          QVariantList *binds) const
{
    using Type = HBPredicate::Type;
    switch (p.type()) {
    case Type::Invalid:
        return std::nullopt;
    case Type::True:
        return QStringLiteral("1");
    case Type::False:
        return QStringLiteral("0");
    case Type::Not: {
        const auto inner = compile(t, p.subpredicates().first(), binds);
        return inner ? std::optional(QStringLiteral("NOT (%1)").arg(*inner)) : std::nullopt;
    }
    case Type::And:
    case Type::Or: {
        QStringList parts;
        for (const HBPredicate &child : p.subpredicates()) {
            const auto part = compile(t, child, binds);
            if (!part)
                return std::nullopt;
            parts << QStringLiteral("(%1)").arg(*part);
        }
        if (parts.isEmpty())
            return QString::fromLatin1(p.type() == Type::And ? "1" : "0");
        return parts.join(p.type() == Type::And ? QStringLiteral(" AND ") : QStringLiteral(" OR "));
    }
    case Type::Comparison:
        return compileComparison(t, p, binds);
    }
    return std::nullopt;
}

std::optional<QString> HBPersistentStore::Private::compileComparison(const HBStoreTable &t, const HBPredicate &p,
                                                                    QVariantList *binds) const
{
    using Op = HBPredicate::Operator;
    HBPredicate::Expression left = p.left(), right = p.right();
    Op op = p.comparisonOperator();
    if (!left.isKeyPath && right.isKeyPath && op != Op::In) {
        std::swap(left, right);
        // never destroyed, like the operators below
        static const auto &mirrored = *new QHash<Op, Op>{{Op::Less, Op::Greater}, {Op::Greater, Op::Less},
                                                         {Op::LessOrEqual, Op::GreaterOrEqual},
                                                         {Op::GreaterOrEqual, Op::LessOrEqual}};
        op = mirrored.value(op, op);
    }
    if (!left.isKeyPath || right.isKeyPath || p.options() != 0)
        return std::nullopt;
    if (op == Op::BeginsWith || op == Op::EndsWith || op == Op::Contains)
        return std::nullopt;

    // What the key path names: the row itself, an attribute or a to-one key.
    QString expression;
    const HBStoreColumn *column = nullptr;
    if (left.isSelf()) {
        expression = QStringLiteral("t.Z_PK");
    } else {
        const int index = t.columnByName.value(left.keyPath, -1);
        if (index < 0)
            return std::nullopt;
        column = &t.columns[size_t(index)];
        expression = comparable(*column);
    }
    const bool isKey = !column || column->kind == HBStoreColumn::Kind::ForeignKey;

    // A record's ID matches rows of this store only; IDs of other stores,
    // unsaved records and non-IDs match nothing here.
    auto sqlValue = [&](const QVariant &raw, bool *matchable) -> QVariant {
        const QVariant v = HBPredicate::normalizedValue(raw);
        *matchable = true;
        if (isKey) {
            const HBManagedObjectID id = v.value<HBManagedObjectID>();
            if (v.metaType() != QMetaType::fromType<HBManagedObjectID>() || id.isTemporaryID()
                || id.storeToken() != identifierToken.load()) {
                *matchable = false;
                return {};
            }
            return id.primaryKey();
        }
        switch (column->type) {
        case HBAttributeType::Decimal:
            if (v.metaType() == QMetaType::fromType<HBDecimal>())
                return v.value<HBDecimal>().toDouble();
            return v.toDouble();
        case HBAttributeType::Date:
            if (v.metaType().id() != QMetaType::QDateTime) {
                *matchable = false;
                return {};
            }
            return v.toDateTime().toMSecsSinceEpoch();
        case HBAttributeType::Boolean:
            return qint64(v.toBool());
        default:
            return v;
        }
    };

    if (op == Op::In && isKey) {
        if (const std::optional<std::vector<qint64>> keys = keysInStore(right.constant, identifierToken.load()))
            return keysCondition(expression, *keys, binds);
    }
    if (op == Op::In) {
        QJsonArray array;
        for (const QVariant &element : HBPredicate::listElements(right.constant)) {
            bool matchable = false;
            const QVariant v = sqlValue(element, &matchable);
            if (matchable && v.isValid())
                array.append(QJsonValue::fromVariant(v));
        }
        if (array.isEmpty())
            return QStringLiteral("0");
        binds->append(QString::fromUtf8(QJsonDocument(array).toJson(QJsonDocument::Compact)));
        return QStringLiteral("%1 IN (SELECT value FROM json_each(?))").arg(expression);
    }

    if (!HBPredicate::normalizedValue(right.constant).isValid()) {
        if (op == Op::Equal)
            return expression + QStringLiteral(" IS NULL");
        if (op == Op::NotEqual)
            return expression + QStringLiteral(" IS NOT NULL");
        return QStringLiteral("0");
    }
    bool matchable = false;
    const QVariant value = sqlValue(right.constant, &matchable);
    if (!matchable)
        return QString::fromLatin1(op == Op::NotEqual ? "1" : "0");
    // Never destroyed: a fetch still running on a context's thread when the
    // process exits compiles its query after static objects are torn down.
    static const auto &sqlOperators = *new QHash<Op, QString>{
        {Op::Equal, QStringLiteral("=")}, {Op::NotEqual, QStringLiteral("<>")},
        {Op::Less, QStringLiteral("<")}, {Op::LessOrEqual, QStringLiteral("<=")},
        {Op::Greater, QStringLiteral(">")}, {Op::GreaterOrEqual, QStringLiteral(">=")}};
    binds->append(value);
    // nil differs from every value, as it does in memory
    if (op == Op::NotEqual)
        return QStringLiteral("(%1 IS NULL OR %1 <> ?)").arg(expression);
    return QStringLiteral("%1 %2 ?").arg(expression, sqlOperators.value(op));
}

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
        for (const HBEntityDescription *root : model->rootEntitiesForConfiguration(configuration))
            buildTable(root, configuration);
    }
}

bool HBPersistentStore::Private::open(const QString &path, HBError *error)
{
    sqlite3 *raw = nullptr;
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    const int rc = sqlite3_open_v2(QFile::encodeName(path).constData(), &raw, flags, nullptr);
    db.reset(raw);
    if (rc != SQLITE_OK) {
        if (error)
            *error = HBError(HBPersistentStore::errorDomain(), rc, sqliteMessage(raw));
        return false;
    }
    sqlite3_busy_timeout(raw, kBusyTimeoutMs);
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
    while (!exec(setUp, error)) {
        if ((sqlite3_errcode(raw) & 0xff) != SQLITE_BUSY || patience.hasExpired())
            return false;
        QThread::msleep(5);
    }
    return true;
}

// In one transaction: the tables made or given their new columns, the
// identifier read or, for a new file, minted. A file whose identifier
// differs from the one it was known by was replaced since: its own wins.
bool HBPersistentStore::Private::checkSchema(const QString &path, HBError *error)
{
    if (!exec(QStringLiteral("BEGIN IMMEDIATE"), error))
        return false;
    auto schemaOk = [&] {
        if (!exec(QStringLiteral("CREATE TABLE IF NOT EXISTS Z_METADATA (Z_VERSION INTEGER, Z_UUID TEXT)"), error)
            || !exec(QStringLiteral("CREATE TABLE IF NOT EXISTS Z_PRIMARYKEY (Z_NAME TEXT PRIMARY KEY, Z_MAX INTEGER)"), error)
            || !exec(QStringLiteral("CREATE TABLE IF NOT EXISTS Z_SAVELOG (Z_TOKEN TEXT PRIMARY KEY)"), error))
            return false;
        HBSqliteStatement meta(db.get(), QStringLiteral("SELECT Z_VERSION, Z_UUID FROM Z_METADATA"));
        if (meta.step()) {
            if (meta.int64(0) > kSchemaVersion) {
                if (error)
                    *error = HBError(HBPersistentStore::errorDomain(), SQLITE_ERROR,
                                     QStringLiteral("The store was written by a newer version (schema %1).").arg(meta.int64(0)));
                return false;
            }
            if (!identifier.isEmpty() && identifier != meta.text(1))
                qCWarning(hbStore).noquote() << "The store file" << path << "is no longer the file it was:" << identifier
                                             << "is now" << meta.text(1);
            setIdentifier(meta.text(1));
        } else {
            setIdentifier(QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper());
            HBSqliteStatement insert(db.get(), QStringLiteral("INSERT INTO Z_METADATA VALUES (?, ?)"));
            insert.bindInt64(1, kSchemaVersion);
            insert.bindText(2, identifier);
            bool ok = false;
            insert.step(&ok);
            if (!ok) {
                if (error)
                    *error = sqliteError(QStringLiteral("metadata"));
                return false;
            }
        }
        for (const auto &t : tables) {
            if (!createOrUpgradeTable(*t, error))
                return false;
        }
        return true;
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
    for (auto &t : tables) {
        for (HBSqliteStatement *s : {&t->insert, &t->insertMany, &t->update, &t->remove, &t->byKey, &t->anyRow})
            *s = {};
        t->prepared = false;
    }
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
    QString where = QStringLiteral("t.Z_ENT IN (%1)").arg(entityNumbers(entity));
    QVariantList binds;
    if (predicate.isValid()) {
        const auto condition = d->compile(*t, predicate, &binds);
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
    if (Private::isEmpty(*t))
        return result;
    QStringList order;
    bool wholeNumbers = true;
    for (const HBSortDescriptor &s : sortDescriptors) {
        const int index = t->columnByName.value(s.key, -1);
        if (index < 0)
            continue;
        const HBStoreColumn &c = t->columns[size_t(index)];
        wholeNumbers = wholeNumbers && c.kind == HBStoreColumn::Kind::Attribute
                       && (c.type == HBAttributeType::Integer || c.type == HBAttributeType::Date);
        order << comparable(c) + (s.ascending ? QStringLiteral(" ASC") : QStringLiteral(" DESC"));
    }
    // Whole numbers compare alike here and in memory, and SQLite's sorter
    // keeps ties in the order of its scan, as a stable sort of the scanned
    // rows does. Unless rows are cut off, the caller sorts them: a
    // segment's points come nearly in order already, and the sorter would
    // copy every row of a hundred thousand.
    if (!order.isEmpty() && wholeNumbers && !(fetchLimit > 0 && result.filtered)) {
        order.clear();
        result.sorted = false;
    }
    QStringList names{QStringLiteral("t.Z_PK"), QStringLiteral("t.Z_ENT")};
    for (const HBStoreColumn &c : t->columns)
        names << QStringLiteral("t.") + quoted(c.name);
    QString sql = QStringLiteral("SELECT %1 FROM %2 t WHERE %3").arg(names.join(u','), quoted(t->name), where);
    if (!order.isEmpty())
        sql += QStringLiteral(" ORDER BY ") + order.join(u',');
    if (fetchLimit > 0 && result.filtered)
        sql += QStringLiteral(" LIMIT %1").arg(fetchLimit);
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
    RepeatedTexts texts;
    while (select.step(&ok))
        result.rows.append(d->readRow(*t, select, texts));
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
    RepeatedTexts texts;
    if (t->byKey.step(&ok))
        row = d->readRow(*t, t->byKey, texts);
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
        QStringLiteral("SELECT COUNT(*) FROM %1 WHERE Z_ENT IN (%2)").arg(quoted(t->name), entityNumbers(entity)));
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
            if (d->insertWith(*t, s, some))
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

// The rows fill the statement's rows of parameters one after the other.
bool HBPersistentStore::Private::insertWith(HBStoreTable &t, HBSqliteStatement &s, std::span<const HBStoreTransaction::NewRow> rows)
{
    const int parametersPerRow = int(t.columns.size()) + 2;
    s.startRow();
    for (size_t i = 0; i < rows.size(); ++i) {
        const int first = int(i) * parametersPerRow + 1;
        s.bindInt64(first, rows[i].primaryKey);
        s.bindInt64(first + 1, rows[i].entity->entityID());
        bindRow(t, s, first + 2, rows[i].entity, *rows[i].values);
    }
    s.finishRow();
    bool ok = false;
    s.step(&ok);
    return ok;
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
    d->bindRow(*t, s, 2, entity, values);
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
    HBSqliteStatement s(d->db.get(), QStringLiteral("DELETE FROM %1 WHERE Z_PK BETWEEN ? AND ?").arg(quoted(t->name)));
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
