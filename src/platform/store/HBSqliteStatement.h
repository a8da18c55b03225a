#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>

#include <functional>
#include <vector>

class HBError;
struct sqlite3;
struct sqlite3_stmt;

// Owns one prepared statement and finalises it; binds and reads the few
// value kinds the stores keep.
//
// Bound text and blobs are not copied by SQLite: the statement keeps the
// bytes until the parameter is bound again, which spares an allocation and
// a copy per value when a million rows are written. A string bound again
// while it is the same shared QString (a segment's URI on each of its
// points) is not even converted to UTF-8 again.
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
    // The text write() appends to an emptied buffer the statement keeps
    // for the parameter, so that no allocation is needed once it has grown.
    void bindText(int column, const std::function<void(QByteArray &)> &write);
    void bindBlob(int column, const QByteArray &value);
    void bindVariant(int column, const QVariant &value);   // null, integers, doubles, text, blobs

    // SQLITE_ROW: true; SQLITE_DONE: false with ok set; an error: false with ok cleared
    bool step(bool *ok = nullptr);
    // ready to run again, every parameter back to NULL
    void reset();
    // every parameter back to NULL
    void clearBindings();
    // For one row after another: startRow() makes the statement ready to
    // run again; the row's values are bound; finishRow() sets to NULL the
    // parameters that hold a value of an earlier row only. Rows of one
    // table mostly fill the same columns, and clearing every parameter of
    // every row costs more than binding them.
    void startRow();
    void finishRow();

    bool isNull(int column) const;
    qint64 int64(int column) const;
    double doubleValue(int column) const;
    QString text(int column) const;
    static QString textFromUtf8(QByteArrayView utf8);

    // The domain of the errors of the store files.
    static QString errorDomain() { return QStringLiteral("HBPersistentStoreErrorDomain"); }
    // SQLite says only "unable to open database file" whether a file is
    // missing, forbidden or past the process's limit of open files, and it
    // says so for the write-ahead log and its shared memory too; the
    // system's reason, added here, tells these apart.
    static QString errorMessage(sqlite3 *db, const char *message = nullptr);
    // Runs statements that return no rows.
    static bool execute(sqlite3 *db, const QString &sql, HBError *error);
    // The text's bytes where SQLite keeps them, until the next step or reset.
    QByteArrayView utf8(int column) const;
    QByteArray blob(int column) const;

    sqlite3_stmt *handle() const { return m_stmt; }

private:
    // The bytes bound to the parameter, kept alive for SQLite; null for a
    // parameter out of range.
    QByteArray *kept(int column);
    void bindKept(int column, bool isText);
    // the row whose value the parameter now holds, 0 for NULL
    void noteBound(int column, quint32 row);

    sqlite3 *m_db = nullptr;
    sqlite3_stmt *m_stmt = nullptr;
    QString m_error;
    std::vector<QByteArray> m_kept;       // by parameter number
    std::vector<QString> m_keptText;      // the string m_kept holds as UTF-8
    // by parameter number, the row whose value it holds; 0 for NULL
    std::vector<quint32> m_boundInRow;
    quint32 m_row = 1;
};
