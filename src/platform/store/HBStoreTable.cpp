#include "platform/store/HBStoreTable.h"

#include "platform/HBDecimal.h"
#include "platform/store/HBEntityDescription.h"
#include "platform/store/HBManagedObject.h"
#include "platform/store/HBManagedObjectID.h"
#include "platform/store/HBManagedObjectModel.h"
#include "platform/store/HBStoreSQL.h"

#include <QDataStream>
#include <QIODevice>
#include <QDateTime>
#include <QSet>
#include <QVarLengthArray>

#include <sqlite3.h>

#include <algorithm>
#include <array>

namespace {

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

} // namespace

std::unique_ptr<HBStoreTable> HBStoreTable::build(const HBManagedObjectModel *model, const HBEntityDescription *root,
                                                  const QString &configuration)
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
    return t;
}

bool HBStoreTable::createOrUpgrade(sqlite3 *db, HBError *error)
{
    QSet<QString> existing;
    {
        HBSqliteStatement info(db, QStringLiteral("PRAGMA table_info(%1)").arg(HBStoreSQL::quoted(name)));
        while (info.step())
            existing.insert(info.text(1));
    }
    if (existing.isEmpty()) {
        // a new file: made whole at once, since every change of the schema
        // has SQLite read all of it again
        QStringList definitions{QStringLiteral("Z_PK INTEGER PRIMARY KEY"), QStringLiteral("Z_ENT INTEGER NOT NULL")};
        for (const HBStoreColumn &c : columns)
            definitions << HBStoreSQL::quoted(c.name);
        if (!HBSqliteStatement::execute(db, QStringLiteral("CREATE TABLE %1 (%2)").arg(HBStoreSQL::quoted(name), definitions.join(u", ")),
                                        error))
            return false;
    } else {
        // Columns the model gained since the file was made are added in
        // place; their rows read as nil.
        for (const HBStoreColumn &c : columns) {
            if (existing.contains(c.name))
                continue;
            if (!HBSqliteStatement::execute(db, QStringLiteral("ALTER TABLE %1 ADD COLUMN %2").arg(HBStoreSQL::quoted(name), HBStoreSQL::quoted(c.name)), error))
                return false;
        }
    }
    // Relationship keys are indexed where they are set: most point rows
    // have no symbol, zone, source or event, and a million-point import
    // should not pay an index entry for each of those empty keys.
    for (const HBStoreColumn &c : columns) {
        if (c.kind != HBStoreColumn::Kind::ForeignKey)
            continue;
        if (!HBSqliteStatement::execute(db, QStringLiteral("CREATE INDEX IF NOT EXISTS %1 ON %2 (%3) WHERE %3 IS NOT NULL")
                      .arg(HBStoreSQL::quoted(name + QStringLiteral("_") + c.name + QStringLiteral("_set")), HBStoreSQL::quoted(name),
                           HBStoreSQL::quoted(c.name)),
                  error))
            return false;
    }
    // Compared through the same expression as fetches compare it, so that
    // SQLite's planner sees the index fits.
    for (const HBStoreColumn &c : columns) {
        if (c.kind == HBStoreColumn::Kind::Attribute && c.indexed
            && !HBSqliteStatement::execute(db, QStringLiteral("CREATE INDEX IF NOT EXISTS %1 ON %2 (%3)")
                         .arg(HBStoreSQL::quoted(name + QStringLiteral("_") + c.name), HBStoreSQL::quoted(name), HBStoreSQL::comparable(c, {})),
                     error))
            return false;
    }
    return HBSqliteStatement::execute(db, QStringLiteral("INSERT OR IGNORE INTO Z_PRIMARYKEY (Z_NAME, Z_MAX) VALUES ('%1', 0)").arg(name), error);
}

bool HBStoreTable::prepare(sqlite3 *db, HBError *error)
{
    QStringList names{QStringLiteral("Z_PK"), QStringLiteral("Z_ENT")};
    QStringList assignments;
    for (const HBStoreColumn &c : columns) {
        names << HBStoreSQL::quoted(c.name);
        assignments << HBStoreSQL::quoted(c.name) + QStringLiteral(" = ?");
    }
    const QString placeholders = QStringLiteral("(%1)").arg(QStringList(names.size(), QStringLiteral("?")).join(u','));
    // A refused row stops its statement without undoing the rows it already
    // wrote; the transaction around it is rolled back anyway. Undoing just the
    // statement would make SQLite copy every page a statement touches to a
    // temporary file first: for a million points, some 800 MB of writes.
    const QString insertInto = QStringLiteral("INSERT OR FAIL INTO %1 (%2) VALUES ").arg(HBStoreSQL::quoted(name), names.join(u','));
    insert = HBSqliteStatement(db, insertInto + placeholders);
    constexpr int kRowsPerInsertMany = 32;
    const int rowsThatFit = sqlite3_limit(db, SQLITE_LIMIT_VARIABLE_NUMBER, -1) / int(names.size());
    rowsPerInsertMany = rowsThatFit >= 2 ? std::min(kRowsPerInsertMany, rowsThatFit) : 0;
    if (rowsPerInsertMany > 0)
        insertMany = HBSqliteStatement(db, insertInto + QStringList(rowsPerInsertMany, placeholders).join(u','));
    update = HBSqliteStatement(db, QStringLiteral("UPDATE %1 SET Z_ENT = ?%2 WHERE Z_PK = ?")
                                               .arg(HBStoreSQL::quoted(name),
                                                    assignments.isEmpty() ? QString() : QStringLiteral(", ") + assignments.join(u',')));
    remove = HBSqliteStatement(db, QStringLiteral("DELETE FROM %1 WHERE Z_PK = ?").arg(HBStoreSQL::quoted(name)));
    byKey = HBSqliteStatement(db, QStringLiteral("SELECT %1 FROM %2 t WHERE Z_PK = ?")
                                              .arg(names.join(u','), HBStoreSQL::quoted(name)));
    anyRow = HBSqliteStatement(db, QStringLiteral("SELECT 1 FROM %1 LIMIT 1").arg(HBStoreSQL::quoted(name)));
    std::vector<const HBSqliteStatement *> prepared{&insert, &update, &remove, &byKey, &anyRow};
    if (rowsPerInsertMany > 0)
        prepared.push_back(&insertMany);
    for (const HBSqliteStatement *s : prepared) {
        if (!s->isValid()) {
            if (error)
                *error = HBError(HBSqliteStatement::errorDomain(), SQLITE_ERROR, s->errorString());
            return false;
        }
    }
    return true;
}

void HBStoreTable::finalizeStatements()
{
    for (HBSqliteStatement *s : {&insert, &insertMany, &update, &remove, &byKey, &anyRow})
        *s = {};
    prepared = false;
}

bool HBStoreTable::isEmpty()
{
    bool ok = false;
    const bool found = anyRow.step(&ok);
    anyRow.reset();
    return ok && !found;
}

void HBStoreTable::bindRow(HBSqliteStatement &stmt, int first, const HBEntityDescription *entity,
                           const HBRowValues &values) const
{
    const std::vector<int> &columnOf = columnsBySlot[entity->entityID()];
    for (const auto &[slot, value] : values) {
        const int i = slot >= 0 && size_t(slot) < columnOf.size() ? columnOf[size_t(slot)] : -1;
        if (i >= 0 && value.isValid())
            bindValue(columns[size_t(i)], stmt, first + i, value);
    }
}

void HBStoreTable::bindValue(const HBStoreColumn &c, HBSqliteStatement &stmt, int parameter,
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

QString HBStoreTable::RepeatedTexts::text(const HBSqliteStatement &stmt, int column)
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

HBStoreRow HBStoreTable::readRow(const HBSqliteStatement &stmt, const HBManagedObjectModel *model, quint32 storeToken,
                                 RepeatedTexts &texts) const
{
    HBStoreRow row;
    row.primaryKey = stmt.int64(0);
    row.entity = model->entityWithID(int(stmt.int64(1)));
    if (!row.entity)
        return row;
    const std::vector<int> &slotOf = slotsByEntity[row.entity->entityID()];
    // the columns with values first, so that the row gets room for exactly
    // those: a million points are read at once
    QVarLengthArray<size_t, 32> present;
    for (size_t i = 0; i < columns.size(); ++i) {
        if (slotOf[i] >= 0 && columns[i].kind != HBStoreColumn::Kind::ForeignEntity && !stmt.isNull(int(i) + 2))
            present.append(i);
    }
    row.values.reserve(size_t(present.size()));
    for (const size_t i : present) {
        const int column = int(i) + 2;
        const HBStoreColumn &c = columns[i];
        QVariant value;
        if (c.kind == HBStoreColumn::Kind::ForeignKey) {
            const HBEntityDescription *destination = c.destination;
            if (!stmt.isNull(column + 1)) {
                if (const HBEntityDescription *e = model->entityWithID(int(stmt.int64(column + 1))))
                    destination = e;
            }
            value = QVariant::fromValue(HBManagedObjectID::permanentID(destination, storeToken, stmt.int64(column)));
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

bool HBStoreTable::insertWith(HBSqliteStatement &s, std::span<const HBStoreTransaction::NewRow> rows) const
{
    const int parametersPerRow = int(columns.size()) + 2;
    s.startRow();
    for (size_t i = 0; i < rows.size(); ++i) {
        const int first = int(i) * parametersPerRow + 1;
        s.bindInt64(first, rows[i].primaryKey);
        s.bindInt64(first + 1, rows[i].entity->entityID());
        bindRow(s, first + 2, rows[i].entity, *rows[i].values);
    }
    s.finishRow();
    bool ok = false;
    s.step(&ok);
    return ok;
}
