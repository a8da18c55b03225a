#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>

struct sqlite3;
struct sqlite3_stmt;

// Owns one prepared statement and finalises it; binds and reads the few
// value kinds the stores keep.
class HBSqliteStatement
{
public:
    HBSqliteStatement() = default;
    HBSqliteStatement(sqlite3 *db, const QString &sql);
    HBSqliteStatement(HBSqliteStatement &&other) noexcept;
    HBSqliteStatement &operator=(HBSqliteStatement &&other) noexcept;
    HBSqliteStatement(const HBSqliteStatement &) = delete;
    HBSqliteStatement &operator=(const HBSqliteStatement &) = delete;
    ~HBSqliteStatement();

    bool isValid() const { return m_stmt != nullptr; }
    QString errorString() const { return m_error; }

    void bindNull(int column);
    void bindInt64(int column, qint64 value);
    void bindDouble(int column, double value);
    void bindText(int column, const QString &value);
    void bindText(int column, const QByteArray &utf8);
    void bindBlob(int column, const QByteArray &value);
    void bindVariant(int column, const QVariant &value);   // null, integers, doubles, text, blobs

    // SQLITE_ROW: true; SQLITE_DONE: false with ok set; an error: false with ok cleared
    bool step(bool *ok = nullptr);
    void reset();
    // every parameter back to NULL
    void clearBindings();

    bool isNull(int column) const;
    qint64 int64(int column) const;
    double doubleValue(int column) const;
    QString text(int column) const;
    QByteArray blob(int column) const;

    sqlite3_stmt *handle() const { return m_stmt; }

private:
    sqlite3 *m_db = nullptr;
    sqlite3_stmt *m_stmt = nullptr;
    QString m_error;
};
