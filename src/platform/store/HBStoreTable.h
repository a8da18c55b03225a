#pragma once

#include "platform/HBError.h"
#include "platform/store/HBAttributeType.h"
#include "platform/store/HBSqliteStatement.h"
#include "platform/store/HBStoreRow.h"
#include "platform/store/HBStoreTransaction.h"

#include <QHash>
#include <QList>
#include <QString>

#include <memory>
#include <span>
#include <utility>
#include <vector>

class HBEntityDescription;
class HBManagedObjectModel;
struct sqlite3;

// How one root entity's table is laid out: every stored property of the
// root and its sub-entities, by name, in column order after Z_PK and Z_ENT.
// A to-one relationship takes two columns: the destination's primary key
// and its entity number (needed where the destination has sub-entities).
struct HBStoreColumn
{
    enum class Kind { Attribute, ForeignKey, ForeignEntity };
    QString name;
    Kind kind = Kind::Attribute;
    HBAttributeType type = HBAttributeType::String;
    const HBEntityDescription *destination = nullptr;
    bool indexed = false;
};

// One root entity's table in one store file: its columns, and the
// statements that write and read its rows on the file's connection.
class HBStoreTable
{
public:
    // The layout for the entities of the configuration under the root.
    static std::unique_ptr<HBStoreTable> build(const HBManagedObjectModel *model, const HBEntityDescription *root,
                                               const QString &configuration);
    // Makes the table, or adds the columns the model gained since the file
    // was made, and the indexes; inside the caller's transaction.
    bool createOrUpgrade(sqlite3 *db, HBError *error);
    // Prepared on the table's first use after the connection opened: a
    // connection that is opened again and again (one of many period files)
    // mostly writes or reads just one table, and the statement that inserts
    // many rows at once takes SQLite longer to prepare than a few rows take
    // to write.
    bool ready(sqlite3 *db, HBError *error)
    {
        prepared = prepared || prepare(db, error);
        return prepared;
    }
    // Before the connection closes.
    void finalizeStatements();
    // An empty table answers a fetch at once: a segment's points ask every
    // point file for their extras, which most files have none of, and
    // writing out the question would cost more than the answer.
    bool isEmpty();

    // Every point of a segment names the segment by the same text: a fetch
    // hands the rows one shared string per run of equal texts in a column,
    // rather than a copy each.
    class RepeatedTexts
    {
    public:
        QString text(const HBSqliteStatement &stmt, int column);

    private:
        std::vector<std::pair<QByteArray, QString>> m_last;
    };
    HBStoreRow readRow(const HBSqliteStatement &stmt, const HBManagedObjectModel *model, quint32 storeToken,
                       RepeatedTexts &texts) const;
    // Binds only the values that are set: the statement's bindings were
    // cleared, so every other column is written as NULL.
    void bindRow(HBSqliteStatement &stmt, int firstParameter, const HBEntityDescription *entity,
                 const HBRowValues &values) const;
    // The rows fill the statement's rows of parameters one after the other.
    bool insertWith(HBSqliteStatement &s, std::span<const HBStoreTransaction::NewRow> rows) const;

    const HBEntityDescription *root = nullptr;
    QString name;
    std::vector<HBStoreColumn> columns;
    // per entity ID: for each column the property slot it stores, or -1
    QHash<int, std::vector<int>> slotsByEntity;
    // per entity ID: for each property slot the column that stores it, or -1
    QHash<int, std::vector<int>> columnsBySlot;
    QHash<QString, int> columnByName;
    HBSqliteStatement insert;
    // Inserts rowsPerInsertMany rows at once (unset when fewer than two
    // fit SQLite's limit on parameters): SQLite then finds each row's place
    // from the last and ends its statement once for all of them, which a
    // million points would otherwise pay for one by one.
    HBSqliteStatement insertMany;
    int rowsPerInsertMany = 0;
    HBSqliteStatement update;
    HBSqliteStatement remove;
    HBSqliteStatement byKey;
    HBSqliteStatement anyRow;
    bool prepared = false;

private:
    bool prepare(sqlite3 *db, HBError *error);
    static void bindValue(const HBStoreColumn &column, HBSqliteStatement &stmt, int parameter, const QVariant &value);
};
