#pragma once

#include "platform/store/HBPredicate.h"
#include "platform/store/HBSortDescriptor.h"

#include <QString>
#include <QVariantList>

#include <optional>

class HBEntityDescription;
class HBStoreTable;
struct HBStoreColumn;

// The SQL a store file runs for a fetch: conditions written from
// predicates, so that the file filters its rows itself, with the values as
// parameters.
class HBStoreSQL
{
public:
    static QString quoted(const QString &name);
    // The SQL expression a column is compared through: decimals are kept as
    // text and compared as numbers. Fetches name the table "t."; an index
    // names none.
    static QString comparable(const HBStoreColumn &column, const QString &table = QStringLiteral("t."));
    // The SQL list of the entity numbers a fetch of the entity matches: the
    // entity itself and every sub-entity kept in the same table.
    static QString entityNumbers(const HBEntityDescription *entity);
    // The condition on the table's rows, for the file whose records carry
    // the store token; nullopt when the predicate cannot be written as SQL
    // (the rows are then judged in memory). Records of other files, unsaved
    // records and anything that is no record match nothing here.
    static std::optional<QString> condition(const HBStoreTable &t, const HBPredicate &p, quint32 storeToken,
                                            QVariantList *binds)
    {
        return compile(t, p, storeToken, binds);
    }
    // Every column of the table's rows that meet the condition, in the
    // order of the sort descriptors where SQLite is to sort them (sorted
    // says so), at most `limit` (0: all).
    static QString select(const HBStoreTable &t, const QString &condition, const QList<HBSortDescriptor> &sort, int limit,
                          bool *sorted);

private:
    static std::optional<QString> compile(const HBStoreTable &t, const HBPredicate &p, quint32 storeToken, QVariantList *binds);
    static std::optional<QString> compileComparison(const HBStoreTable &t, const HBPredicate &p, quint32 storeToken,
                                                    QVariantList *binds);
};
