#pragma once

#include "platform/store/HBAttributeType.h"
#include "platform/store/HBSqliteStatement.h"

#include <QHash>
#include <QList>
#include <QString>

#include <vector>

class HBEntityDescription;

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

struct HBStoreTable
{
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
    // Prepared on the table's first use after the connection opened: a
    // connection that is opened again and again (one of many period files)
    // mostly writes or reads just one table, and the statement that inserts
    // many rows at once takes SQLite longer to prepare than a few rows take
    // to write.
    bool prepared = false;
};
