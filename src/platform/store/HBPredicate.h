#pragma once

#include <QList>
#include <QString>
#include <QVariant>

#include <functional>
#include <memory>

class HBManagedObject;

// A condition on records or plain values, written in the small predicate
// language the library uses:
//
//   comparison  key.path OP value     OP: == = != <> < <= > >= IN
//                                         BEGINSWITH ENDSWITH CONTAINS, each with [c] [d] [cd]
//   value       %@ (the next argument), nil / NULL, TRUE / FALSE, a number, a quoted text, or a key path
//   key path    name(.name)*, or SELF / self alone or in front of a path
//   compounds   AND &&, OR ||, NOT !, parentheses, TRUEPREDICATE, FALSEPREDICATE
//
// A predicate is an immutable tree; copies share it. The object store
// compiles the tree to SQL for what is saved and evaluates it in memory
// for unsaved changes, so both must agree.
class HBPredicate
{
public:
    enum class Type { Invalid, True, False, Comparison, And, Or, Not };
    enum class Operator { Equal, NotEqual, Less, LessOrEqual, Greater, GreaterOrEqual, In, BeginsWith, EndsWith, Contains };
    enum Option { CaseInsensitive = 1, DiacriticInsensitive = 2 };

    // One side of a comparison: a key path ("self" alone for the object
    // itself) or a constant.
    struct Expression
    {
        bool isKeyPath = false;
        QString keyPath;        // without a leading "self."; empty means the object itself
        QVariant constant;
        bool isSelf() const { return isKeyPath && keyPath.isEmpty(); }
    };

    HBPredicate() = default;   // Invalid
    static HBPredicate format(const QString &format, const QVariantList &arguments = {});
    static HBPredicate truePredicate();
    static HBPredicate falsePredicate();
    static HBPredicate andPredicate(const QList<HBPredicate> &subpredicates);
    static HBPredicate orPredicate(const QList<HBPredicate> &subpredicates);
    static HBPredicate notPredicate(const HBPredicate &predicate);
    static HBPredicate comparison(const Expression &left, Operator op, const Expression &right, int options = 0);

    bool isValid() const { return type() != Type::Invalid; }
    QString errorString() const;
    Type type() const;
    QList<HBPredicate> subpredicates() const;
    Operator comparisonOperator() const;
    int options() const;
    Expression left() const;
    Expression right() const;

    // The predicate as text, for logs and tests.
    QString predicateFormat() const;

    // Resolves a key path (without "self.") on the evaluated object.
    using KeyPathResolver = std::function<QVariant(const QString &keyPath)>;
    bool evaluate(const QVariant &self, const KeyPathResolver &resolve) const;
    bool evaluateWithObject(const HBManagedObject *object) const;
    bool evaluateWithValue(const QVariant &value) const;   // key paths read nothing

    // The comparison rules, shared with sorting: numbers of any kind compare
    // by value, records compare by object ID, nil equals only nil.
    static bool valuesEqual(const QVariant &a, const QVariant &b, int options = 0);
    static int compareValues(const QVariant &a, const QVariant &b, bool *comparable = nullptr);
    // The elements of an IN operand: lists of any element type, or one value.
    static QVariantList listElements(const QVariant &value);
    // A record (or its ID) as its current ID, everything else as it is.
    static QVariant normalizedValue(const QVariant &value);

    // Whether both are copies of one predicate: cheaper than comparing
    // formats when a predicate holds a hundred thousand IDs.
    bool sharesTreeWith(const HBPredicate &other) const { return m_node == other.m_node; }

    friend bool operator==(const HBPredicate &a, const HBPredicate &b)
    {
        return a.predicateFormat() == b.predicateFormat();
    }

    struct Node;   // the shared tree; defined in HBPredicate_p.h

private:
    explicit HBPredicate(std::shared_ptr<const Node> node) : m_node(std::move(node)) {}
    std::shared_ptr<const Node> m_node;
    friend class HBPredicateParser;
};

Q_DECLARE_METATYPE(HBPredicate)
