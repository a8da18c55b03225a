#include "platform/store/HBSqliteStatementCache.h"

HBSqliteStatementCache::HBSqliteStatementCache(sqlite3 *db)
    : m_db(db)
{
}

HBSqliteStatement &HBSqliteStatementCache::statement(const QString &sql)
{
    if (const auto found = m_statements.find(sql); found != m_statements.end()) {
        found->second->reset();
        return *found->second;
    }
    if (sql.size() > longestKeptSQL) {
        m_unkept = HBSqliteStatement(m_db, sql);
        return m_unkept;
    }
    auto prepared = std::make_unique<HBSqliteStatement>(m_db, sql);
    if (!prepared->isValid()) {
        m_unkept = std::move(*prepared);
        return m_unkept;
    }
    if (m_oldestFirst.size() >= capacity)
        m_statements.erase(m_oldestFirst.takeFirst());
    m_oldestFirst.append(sql);
    HBSqliteStatement &kept = *prepared;
    m_statements.emplace(sql, std::move(prepared));
    return kept;
}

void HBSqliteStatementCache::clear()
{
    m_statements.clear();
    m_oldestFirst.clear();
    m_unkept = HBSqliteStatement();
}
