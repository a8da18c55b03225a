#pragma once

#include "platform/store/HBSqliteStatement.h"

#include <QList>
#include <QString>

#include <memory>
#include <unordered_map>

struct sqlite3;

// The queries a store prepared lately, by their SQL text. A fetch that
// runs again and again (the symbol of each imported waypoint, the points
// of each exported segment) then skips SQLite's parser and planner.
// Statements are handed out reset and with no parameter bound.
class HBSqliteStatementCache
{
public:
    // Enough for the queries one kind of work repeats.
    static constexpr qsizetype capacity = 32;
    // A text made for one long list of keys is not worth keeping.
    static constexpr qsizetype longestKeptSQL = 4096;

    explicit HBSqliteStatementCache(sqlite3 *db = nullptr);

    // Valid until the next call; check isValid() and errorString().
    HBSqliteStatement &statement(const QString &sql);
    // Finalises every statement, as closing the database requires.
    void clear();

private:
    sqlite3 *m_db = nullptr;
    std::unordered_map<QString, std::unique_ptr<HBSqliteStatement>> m_statements;
    QList<QString> m_oldestFirst;
    HBSqliteStatement m_unkept;
};
