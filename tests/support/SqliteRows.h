#pragma once

#include <QFile>
#include <QString>

#include <sqlite3.h>

// Row counts read with SQLite itself, past the library, so that a test sees
// what is really in a file. -1 when the file or table cannot be read.
inline qint64 rowsIn(const QString &path, const QString &table, const QString &where = {})
{
    sqlite3 *db = nullptr;
    qint64 count = -1;
    if (sqlite3_open_v2(QFile::encodeName(path).constData(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
        QString sql = QStringLiteral("SELECT COUNT(*) FROM \"%1\"").arg(table);
        if (!where.isEmpty())
            sql += QStringLiteral(" WHERE ") + where;
        sqlite3_stmt *stmt = nullptr;
        if (sqlite3_prepare_v2(db, qPrintable(sql), -1, &stmt, nullptr) == SQLITE_OK && sqlite3_step(stmt) == SQLITE_ROW)
            count = sqlite3_column_int64(stmt, 0);
        sqlite3_finalize(stmt);
    }
    sqlite3_close(db);
    return count;
}

// Runs statements on a file past the library, as another program would;
// false when they fail.
inline bool execIn(const QString &path, const QString &sql)
{
    sqlite3 *db = nullptr;
    bool ok = sqlite3_open_v2(QFile::encodeName(path).constData(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK
        && sqlite3_exec(db, qPrintable(sql), nullptr, nullptr, nullptr) == SQLITE_OK;
    sqlite3_close(db);
    return ok;
}

// The first column of the first row a query gives, read past the library;
// -1 when the file or query cannot be read.
inline qint64 integerIn(const QString &path, const QString &sql)
{
    sqlite3 *db = nullptr;
    qint64 value = -1;
    if (sqlite3_open_v2(QFile::encodeName(path).constData(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
        sqlite3_stmt *stmt = nullptr;
        if (sqlite3_prepare_v2(db, qPrintable(sql), -1, &stmt, nullptr) == SQLITE_OK && sqlite3_step(stmt) == SQLITE_ROW)
            value = sqlite3_column_int64(stmt, 0);
        sqlite3_finalize(stmt);
    }
    sqlite3_close(db);
    return value;
}
