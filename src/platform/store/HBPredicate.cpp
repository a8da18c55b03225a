#include "platform/store/HBPredicate.h"

#include "platform/HBDecimal.h"
#include "platform/store/HBManagedObject.h"
#include "platform/store/HBPredicateParser.h"
#include "platform/store/HBPredicate_p.h"

#include <QDateTime>

namespace {

using Op = HBPredicate::Operator;

std::shared_ptr<HBPredicate::Node> makeNode(HBPredicate::Type type)
{
    auto node = std::make_shared<HBPredicate::Node>();
    node->type = type;
    return node;
}

bool isNumber(const QVariant &v)
{
    switch (v.metaType().id()) {
    case QMetaType::Int: case QMetaType::UInt: case QMetaType::LongLong: case QMetaType::ULongLong:
    case QMetaType::Double: case QMetaType::Float: case QMetaType::Bool: case QMetaType::Long:
    case QMetaType::ULong: case QMetaType::Short: case QMetaType::UShort:
        return true;
    default:
        return v.metaType() == QMetaType::fromType<HBDecimal>();
    }
}

HBDecimal asDecimal(const QVariant &v)
{
    if (v.metaType() == QMetaType::fromType<HBDecimal>())
        return v.value<HBDecimal>();
    if (v.metaType().id() == QMetaType::Double || v.metaType().id() == QMetaType::Float)
        return HBDecimal::fromDouble(v.toDouble());
    return HBDecimal::fromInteger(v.toLongLong());
}

QString foldedForComparison(QString s, int options)
{
    if (options & HBPredicate::DiacriticInsensitive) {
        s = s.normalized(QString::NormalizationForm_D);
        s.removeIf([](QChar c) { return c.category() == QChar::Mark_NonSpacing; });
    }
    if (options & HBPredicate::CaseInsensitive)
        s = s.toCaseFolded();
    return s;
}

QString constantText(const QVariant &value)
{
    const QVariant v = HBPredicate::normalizedValue(value);
    if (!v.isValid())
        return QStringLiteral("nil");
    if (v.metaType() == QMetaType::fromType<HBManagedObjectID>())
        return v.value<HBManagedObjectID>().uriString();
    if (v.metaType() == QMetaType::fromType<HBDecimal>())
        return v.value<HBDecimal>().toString();
    if (v.metaType().id() == QMetaType::QDateTime)
        return QStringLiteral("CAST(\"%1\", \"NSDate\")").arg(v.toDateTime().toUTC().toString(Qt::ISODateWithMs));
    if (v.metaType().id() == QMetaType::QString)
        return QStringLiteral("\"%1\"").arg(v.toString().replace(u'"', QStringLiteral("\\\"")));
    if (v.metaType().id() == QMetaType::Bool)
        return v.toBool() ? QStringLiteral("YES") : QStringLiteral("NO");
    if (isNumber(v))
        return v.toString();
    const QVariantList list = HBPredicate::listElements(v);
    if (list.size() != 1 || list.first() != v) {
        QStringList parts;
        for (const QVariant &e : list)
            parts << constantText(e);
        return QStringLiteral("{%1}").arg(parts.join(QStringLiteral(", ")));
    }
    return v.toString();
}

QString expressionText(const HBPredicate::Expression &e)
{
    if (!e.isKeyPath)
        return constantText(e.constant);
    return e.keyPath.isEmpty() ? QStringLiteral("SELF") : e.keyPath;
}

QString operatorText(Op op, int options)
{
    static const char *const names[] = {"==", "!=", "<", "<=", ">", ">=", "IN", "BEGINSWITH", "ENDSWITH", "CONTAINS"};
    QString text = QString::fromLatin1(names[int(op)]);
    if (options) {
        text += u'[';
        if (options & HBPredicate::CaseInsensitive)
            text += u'c';
        if (options & HBPredicate::DiacriticInsensitive)
            text += u'd';
        text += u']';
    }
    return text;
}

// Order numbers, the sort key of a segment's points, are compared by the
// hundred thousand: signed integers need no decimal.
std::optional<qint64> signedInteger(const QVariant &v)
{
    switch (v.metaType().id()) {
    case QMetaType::Int:
        return *static_cast<const int *>(v.constData());
    case QMetaType::LongLong:
        return *static_cast<const qlonglong *>(v.constData());
    default:
        return std::nullopt;
    }
}

} // namespace

HBPredicate HBPredicate::format(const QString &format, const QVariantList &arguments)
{
    return HBPredicateParser(format, arguments).parse();
}

HBPredicate HBPredicate::truePredicate()
{
    static const HBPredicate p(makeNode(Type::True));
    return p;
}

HBPredicate HBPredicate::falsePredicate()
{
    static const HBPredicate p(makeNode(Type::False));
    return p;
}

HBPredicate HBPredicate::andPredicate(const QList<HBPredicate> &subpredicates)
{
    auto node = makeNode(Type::And);
    node->children = subpredicates;
    return HBPredicate(node);
}

HBPredicate HBPredicate::orPredicate(const QList<HBPredicate> &subpredicates)
{
    auto node = makeNode(Type::Or);
    node->children = subpredicates;
    return HBPredicate(node);
}

HBPredicate HBPredicate::notPredicate(const HBPredicate &predicate)
{
    auto node = makeNode(Type::Not);
    node->children = {predicate};
    return HBPredicate(node);
}

HBPredicate HBPredicate::comparison(const Expression &left, Operator op, const Expression &right, int options)
{
    auto node = makeNode(Type::Comparison);
    node->left = left;
    node->op = op;
    node->right = right;
    node->options = options;
    return HBPredicate(node);
}

HBPredicate::Type HBPredicate::type() const
{
    if (!m_node)
        return Type::Invalid;
    if (m_node->type != Type::Invalid) {
        for (const HBPredicate &child : m_node->children) {
            if (!child.isValid())
                return Type::Invalid;
        }
    }
    return m_node->type;
}

QString HBPredicate::errorString() const
{
    if (!m_node)
        return QStringLiteral("empty predicate");
    if (!m_node->error.isEmpty())
        return m_node->error;
    for (const HBPredicate &child : m_node->children) {
        if (!child.isValid())
            return child.errorString();
    }
    return QString();
}

QList<HBPredicate> HBPredicate::subpredicates() const { return m_node ? m_node->children : QList<HBPredicate>(); }
HBPredicate::Operator HBPredicate::comparisonOperator() const { return m_node ? m_node->op : Operator::Equal; }
int HBPredicate::options() const { return m_node ? m_node->options : 0; }
HBPredicate::Expression HBPredicate::left() const { return m_node ? m_node->left : Expression(); }
HBPredicate::Expression HBPredicate::right() const { return m_node ? m_node->right : Expression(); }

QString HBPredicate::predicateFormat() const
{
    switch (type()) {
    case Type::Invalid:
        return QString();
    case Type::True:
        return QStringLiteral("TRUEPREDICATE");
    case Type::False:
        return QStringLiteral("FALSEPREDICATE");
    case Type::Not:
        return QStringLiteral("NOT %1").arg(m_node->children.first().predicateFormat());
    case Type::And:
    case Type::Or: {
        QStringList parts;
        for (const HBPredicate &child : m_node->children) {
            const bool compound = child.type() == Type::And || child.type() == Type::Or;
            parts << (compound ? QStringLiteral("(%1)").arg(child.predicateFormat()) : child.predicateFormat());
        }
        return parts.join(type() == Type::And ? QStringLiteral(" AND ") : QStringLiteral(" OR "));
    }
    case Type::Comparison:
        return QStringLiteral("%1 %2 %3")
            .arg(expressionText(m_node->left), operatorText(m_node->op, m_node->options), expressionText(m_node->right));
    }
    return QString();
}

QVariant HBPredicate::normalizedValue(const QVariant &value)
{
    const QMetaType managedObject = QMetaType::fromType<HBManagedObject *>();
    // record classes register a conversion of their pointers to the base
    if (value.metaType() == managedObject
        || ((value.metaType().flags() & QMetaType::IsPointer) && QMetaType::canConvert(value.metaType(), managedObject))) {
        const HBManagedObject *object = value.value<HBManagedObject *>();
        return object ? QVariant::fromValue(object->objectID()) : QVariant();
    }
    return value;
}

QVariantList HBPredicate::listElements(const QVariant &value)
{
    if (value.metaType() == QMetaType::fromType<QList<HBManagedObjectID>>()) {
        QVariantList list;
        for (const HBManagedObjectID &id : value.value<QList<HBManagedObjectID>>())
            list.append(QVariant::fromValue(id));
        return list;
    }
    if (value.metaType() == QMetaType::fromType<QList<HBManagedObject *>>()) {
        QVariantList list;
        for (HBManagedObject *object : value.value<QList<HBManagedObject *>>())
            list.append(QVariant::fromValue(object));
        return list;
    }
    if (value.metaType().id() == QMetaType::QStringList) {
        QVariantList list;
        for (const QString &s : value.toStringList())
            list.append(s);
        return list;
    }
    if (value.metaType().id() == QMetaType::QVariantList)
        return value.toList();
    return {value};
}

int HBPredicate::compareValues(const QVariant &rawA, const QVariant &rawB, bool *comparable)
{
    if (const std::optional<qint64> ia = signedInteger(rawA)) {
        if (const std::optional<qint64> ib = signedInteger(rawB)) {
            if (comparable)
                *comparable = true;
            return *ia < *ib ? -1 : (*ia > *ib ? 1 : 0);
        }
    }
    const QVariant a = normalizedValue(rawA);
    const QVariant b = normalizedValue(rawB);
    auto result = [comparable](bool ok, int order) {
        if (comparable)
            *comparable = ok;
        return order;
    };
    if (!a.isValid() || !b.isValid())
        return result(false, 0);
    if (isNumber(a) && isNumber(b)) {
        const HBDecimal da = asDecimal(a), db = asDecimal(b);
        return result(!da.isNaN() && !db.isNaN(), da < db ? -1 : (db < da ? 1 : 0));
    }
    if (a.metaType().id() == QMetaType::QDateTime && b.metaType().id() == QMetaType::QDateTime) {
        const qint64 ta = a.toDateTime().toMSecsSinceEpoch(), tb = b.toDateTime().toMSecsSinceEpoch();
        return result(true, ta < tb ? -1 : (ta > tb ? 1 : 0));
    }
    if (a.metaType().id() == QMetaType::QString && b.metaType().id() == QMetaType::QString)
        return result(true, a.toString().compare(b.toString()));
    return result(false, 0);
}

bool HBPredicate::valuesEqual(const QVariant &rawA, const QVariant &rawB, int options)
{
    const QVariant a = normalizedValue(rawA);
    const QVariant b = normalizedValue(rawB);
    if (!a.isValid() || !b.isValid())
        return a.isValid() == b.isValid();
    if (a.metaType() == QMetaType::fromType<HBManagedObjectID>() || b.metaType() == QMetaType::fromType<HBManagedObjectID>())
        return a.metaType() == b.metaType() && a.value<HBManagedObjectID>() == b.value<HBManagedObjectID>();
    if (options && a.metaType().id() == QMetaType::QString && b.metaType().id() == QMetaType::QString)
        return foldedForComparison(a.toString(), options) == foldedForComparison(b.toString(), options);
    bool comparable = false;
    const int order = compareValues(a, b, &comparable);
    return comparable ? order == 0 : a == b;
}

bool HBPredicate::evaluate(const QVariant &self, const KeyPathResolver &resolve) const
{
    switch (type()) {
    case Type::Invalid:
    case Type::False:
        return false;
    case Type::True:
        return true;
    case Type::Not:
        return !m_node->children.first().evaluate(self, resolve);
    case Type::And:
        return std::all_of(m_node->children.begin(), m_node->children.end(),
                           [&](const HBPredicate &p) { return p.evaluate(self, resolve); });
    case Type::Or:
        return std::any_of(m_node->children.begin(), m_node->children.end(),
                           [&](const HBPredicate &p) { return p.evaluate(self, resolve); });
    case Type::Comparison:
        break;
    }
    auto value = [&](const Expression &e) -> QVariant {
        if (!e.isKeyPath)
            return e.constant;
        return e.isSelf() ? self : resolve(e.keyPath);
    };
    const QVariant l = value(m_node->left);
    const QVariant r = value(m_node->right);
    const int options = m_node->options;
    bool comparable = false;
    switch (m_node->op) {
    case Op::Equal:
        return valuesEqual(l, r, options);
    case Op::NotEqual:
        return !valuesEqual(l, r, options);
    case Op::Less:
        return compareValues(l, r, &comparable) < 0 && comparable;
    case Op::LessOrEqual:
        return compareValues(l, r, &comparable) <= 0 && comparable;
    case Op::Greater:
        return compareValues(l, r, &comparable) > 0 && comparable;
    case Op::GreaterOrEqual:
        return compareValues(l, r, &comparable) >= 0 && comparable;
    case Op::In: {
        if (m_node->right.isKeyPath)
            break;
        std::call_once(m_node->idSetOnce, [this] {
            const QVariantList elements = listElements(m_node->right.constant);
            m_node->rightIsAllIDs = !elements.isEmpty();
            for (const QVariant &e : elements) {
                if (e.metaType() != QMetaType::fromType<HBManagedObjectID>()) {
                    m_node->rightIsAllIDs = false;
                    m_node->idSet.clear();
                    return;
                }
                m_node->idSet.insert(e.value<HBManagedObjectID>());
            }
        });
        const QVariant lv = normalizedValue(l);
        if (m_node->rightIsAllIDs)
            return lv.metaType() == QMetaType::fromType<HBManagedObjectID>() && m_node->idSet.contains(lv.value<HBManagedObjectID>());
        const QVariantList elements = listElements(r);
        return std::any_of(elements.begin(), elements.end(), [&](const QVariant &e) { return valuesEqual(lv, e, options); });
    }
    case Op::BeginsWith:
    case Op::EndsWith:
    case Op::Contains: {
        if (l.metaType().id() != QMetaType::QString || r.metaType().id() != QMetaType::QString)
            return false;
        const QString ls = foldedForComparison(l.toString(), options);
        const QString rs = foldedForComparison(r.toString(), options);
        if (m_node->op == Op::BeginsWith)
            return ls.startsWith(rs);
        return m_node->op == Op::EndsWith ? ls.endsWith(rs) : ls.contains(rs);
    }
    }
    return false;
}

bool HBPredicate::evaluateWithObject(const HBManagedObject *object) const
{
    return evaluate(QVariant::fromValue(const_cast<HBManagedObject *>(object)),
                    [object](const QString &keyPath) { return object ? object->valueForKeyPath(keyPath) : QVariant(); });
}

bool HBPredicate::evaluateWithValue(const QVariant &value) const
{
    return evaluate(value, [](const QString &) { return QVariant(); });
}
