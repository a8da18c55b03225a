#include "platform/store/HBStoreSQL.h"

#include "platform/HBDecimal.h"
#include "platform/store/HBEntityDescription.h"
#include "platform/store/HBManagedObject.h"
#include "platform/store/HBManagedObjectID.h"
#include "platform/store/HBStoreTable.h"

#include <QDateTime>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <vector>

namespace {

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

QString HBStoreSQL::select(const HBStoreTable &t, const QString &condition, const QList<HBSortDescriptor> &sort, int limit,
                          bool *sorted)
{
    QStringList order;
    bool wholeNumbers = true;
    for (const HBSortDescriptor &s : sort) {
        const int index = t.columnByName.value(s.key, -1);
        if (index < 0)
            continue;
        const HBStoreColumn &c = t.columns[size_t(index)];
        wholeNumbers = wholeNumbers && c.kind == HBStoreColumn::Kind::Attribute
                       && (c.type == HBAttributeType::Integer || c.type == HBAttributeType::Date);
        order << comparable(c) + (s.ascending ? QStringLiteral(" ASC") : QStringLiteral(" DESC"));
    }
    // Whole numbers compare alike here and in memory, and SQLite's sorter
    // keeps ties in the order of its scan, as a stable sort of the scanned
    // rows does. Unless rows are cut off, the caller sorts them: a
    // segment's points come nearly in order already, and the sorter would
    // copy every row of a hundred thousand.
    *sorted = true;
    if (!order.isEmpty() && wholeNumbers && limit <= 0) {
        order.clear();
        *sorted = false;
    }
    QStringList names{QStringLiteral("t.Z_PK"), QStringLiteral("t.Z_ENT")};
    for (const HBStoreColumn &c : t.columns)
        names << QStringLiteral("t.") + quoted(c.name);
    QString sql = QStringLiteral("SELECT %1 FROM %2 t WHERE %3").arg(names.join(u','), quoted(t.name), condition);
    if (!order.isEmpty())
        sql += QStringLiteral(" ORDER BY ") + order.join(u',');
    if (limit > 0)
        sql += QStringLiteral(" LIMIT %1").arg(limit);
    return sql;
}

QString HBStoreSQL::quoted(const QString &name)
{
    return QLatin1Char('"') + name + QLatin1Char('"');
}

// The SQL expression a column is compared through: decimals are kept as
// text and compared as numbers. Fetches name the table "t"; an index
// names no table.
QString HBStoreSQL::comparable(const HBStoreColumn &column, const QString &table)
{
    const QString name = table + quoted(column.name);
    if (column.kind == HBStoreColumn::Kind::Attribute && column.type == HBAttributeType::Decimal)
        return QStringLiteral("CAST(%1 AS REAL)").arg(name);
    return name;
}

// The SQL list of the entity numbers a fetch of the entity matches: the
// entity itself and every sub-entity kept in the same table.
QString HBStoreSQL::entityNumbers(const HBEntityDescription *entity)
{
    QStringList numbers;
    for (const HBEntityDescription *e : entity->selfAndDescendants())
        numbers << QString::number(e->entityID());
    return numbers.join(u',');
}

std::optional<QString> HBStoreSQL::compile(const HBStoreTable &t, const HBPredicate &p, quint32 storeToken,
                                           QVariantList *binds)
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
        const auto inner = compile(t, p.subpredicates().first(), storeToken, binds);
        return inner ? std::optional(QStringLiteral("NOT (%1)").arg(*inner)) : std::nullopt;
    }
    case Type::And:
    case Type::Or: {
        QStringList parts;
        for (const HBPredicate &child : p.subpredicates()) {
            const auto part = compile(t, child, storeToken, binds);
            if (!part)
                return std::nullopt;
            parts << QStringLiteral("(%1)").arg(*part);
        }
        if (parts.isEmpty())
            return QString::fromLatin1(p.type() == Type::And ? "1" : "0");
        return parts.join(p.type() == Type::And ? QStringLiteral(" AND ") : QStringLiteral(" OR "));
    }
    case Type::Comparison:
        return compileComparison(t, p, storeToken, binds);
    }
    return std::nullopt;
}

std::optional<QString> HBStoreSQL::compileComparison(const HBStoreTable &t, const HBPredicate &p, quint32 storeToken,
                                                     QVariantList *binds)
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
                || id.storeToken() != storeToken) {
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
        if (const std::optional<std::vector<qint64>> keys = keysInStore(right.constant, storeToken))
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
