#include "platform/store/HBSqliteStatement.h"

#include "platform/HBError.h"

#include <QStringDecoder>

#include <sqlite3.h>

#include <algorithm>

HBSqliteStatement::HBSqliteStatement(sqlite3 *db, const QString &sql)
    : m_db(db)
{
    const QByteArray utf8 = sql.toUtf8();
    if (sqlite3_prepare_v2(db, utf8.constData(), int(utf8.size()), &m_stmt, nullptr) != SQLITE_OK) {
        m_error = QString::fromUtf8(sqlite3_errmsg(db));
        m_stmt = nullptr;
        return;
    }
    const size_t parameters = size_t(sqlite3_bind_parameter_count(m_stmt)) + 1;   // numbered from 1
    m_kept.resize(parameters);
    m_keptText.resize(parameters);
    m_boundInRow.resize(parameters);
}

HBSqliteStatement::HBSqliteStatement(HBSqliteStatement &&other) noexcept
    : m_db(other.m_db)
    , m_stmt(std::exchange(other.m_stmt, nullptr))
    , m_error(std::move(other.m_error))
    , m_kept(std::move(other.m_kept))
    , m_keptText(std::move(other.m_keptText))
    , m_boundInRow(std::move(other.m_boundInRow))
    , m_row(other.m_row)
{
}

HBSqliteStatement &HBSqliteStatement::operator=(HBSqliteStatement &&other) noexcept
{
    if (this != &other) {
        sqlite3_finalize(m_stmt);
        m_db = other.m_db;
        m_stmt = std::exchange(other.m_stmt, nullptr);
        m_error = std::move(other.m_error);
        m_kept = std::move(other.m_kept);
        m_keptText = std::move(other.m_keptText);
        m_boundInRow = std::move(other.m_boundInRow);
        m_row = other.m_row;
    }
    return *this;
}

HBSqliteStatement::~HBSqliteStatement()
{
    sqlite3_finalize(m_stmt);
}

void HBSqliteStatement::noteBound(int column, quint32 row)
{
    if (column > 0 && size_t(column) < m_boundInRow.size())
        m_boundInRow[size_t(column)] = row;
}

void HBSqliteStatement::bindNull(int column)
{
    sqlite3_bind_null(m_stmt, column);
    noteBound(column, 0);
}

void HBSqliteStatement::bindInt64(int column, qint64 value)
{
    sqlite3_bind_int64(m_stmt, column, value);
    noteBound(column, m_row);
}

void HBSqliteStatement::bindDouble(int column, double value)
{
    sqlite3_bind_double(m_stmt, column, value);
    noteBound(column, m_row);
}

QByteArray *HBSqliteStatement::kept(int column)
{
    return column > 0 && size_t(column) < m_kept.size() ? &m_kept[size_t(column)] : nullptr;
}

void HBSqliteStatement::bindKept(int column, bool isText)
{
    const QByteArray &bytes = m_kept[size_t(column)];
    if (isText)
        sqlite3_bind_text(m_stmt, column, bytes.constData(), int(bytes.size()), SQLITE_STATIC);
    else
        sqlite3_bind_blob(m_stmt, column, bytes.constData(), int(bytes.size()), SQLITE_STATIC);
    noteBound(column, m_row);
}

void HBSqliteStatement::bindText(int column, const QString &value)
{
    QByteArray *bytes = kept(column);
    if (!bytes)
        return;
    QString &keptText = m_keptText[size_t(column)];
    if (value.isNull() || value.constData() != keptText.constData() || value.size() != keptText.size()) {
        *bytes = value.toUtf8();
        keptText = value;
    }
    bindKept(column, true);
}

void HBSqliteStatement::bindText(int column, const QByteArray &utf8)
{
    if (QByteArray *bytes = kept(column)) {
        *bytes = utf8;
        m_keptText[size_t(column)] = QString();
        bindKept(column, true);
    }
}

void HBSqliteStatement::bindText(int column, const std::function<void(QByteArray &)> &write)
{
    if (QByteArray *bytes = kept(column)) {
        bytes->resize(0);   // keeps the capacity
        write(*bytes);
        m_keptText[size_t(column)] = QString();
        bindKept(column, true);
    }
}

void HBSqliteStatement::bindBlob(int column, const QByteArray &value)
{
    if (QByteArray *bytes = kept(column)) {
        *bytes = value;
        m_keptText[size_t(column)] = QString();
        bindKept(column, false);
    }
}

void HBSqliteStatement::bindVariant(int column, const QVariant &value)
{
    switch (value.metaType().id()) {
    case QMetaType::UnknownType:
        bindNull(column);
        break;
    case QMetaType::Bool: case QMetaType::Int: case QMetaType::UInt: case QMetaType::LongLong:
    case QMetaType::ULongLong: case QMetaType::Long: case QMetaType::ULong:
        bindInt64(column, value.toLongLong());
        break;
    case QMetaType::Double: case QMetaType::Float:
        bindDouble(column, value.toDouble());
        break;
    case QMetaType::QByteArray:
        bindBlob(column, value.toByteArray());
        break;
    default:
        bindText(column, value.toString());
        break;
    }
}

bool HBSqliteStatement::step(bool *ok)
{
    const int rc = sqlite3_step(m_stmt);
    if (ok)
        *ok = rc == SQLITE_ROW || rc == SQLITE_DONE;
    if (rc != SQLITE_ROW && rc != SQLITE_DONE)
        m_error = QString::fromUtf8(sqlite3_errmsg(m_db));
    return rc == SQLITE_ROW;
}

void HBSqliteStatement::clearBindings()
{
    if (m_stmt)
        sqlite3_clear_bindings(m_stmt);
    std::fill(m_boundInRow.begin(), m_boundInRow.end(), 0);
}

void HBSqliteStatement::reset()
{
    sqlite3_reset(m_stmt);
    clearBindings();
}

void HBSqliteStatement::startRow()
{
    sqlite3_reset(m_stmt);
    ++m_row;
}

void HBSqliteStatement::finishRow()
{
    for (size_t column = 1; column < m_boundInRow.size(); ++column) {
        if (m_boundInRow[column] != 0 && m_boundInRow[column] != m_row)
            bindNull(int(column));
    }
}

bool HBSqliteStatement::isNull(int column) const { return sqlite3_column_type(m_stmt, column) == SQLITE_NULL; }
qint64 HBSqliteStatement::int64(int column) const { return sqlite3_column_int64(m_stmt, column); }
double HBSqliteStatement::doubleValue(int column) const { return sqlite3_column_double(m_stmt, column); }

QString HBSqliteStatement::text(int column) const
{
    return textFromUtf8(utf8(column));
}

// QString::fromUtf8 would take a leading U+FEFF for a byte order mark and
// drop it; a stored text keeps every character it was given.
QString HBSqliteStatement::textFromUtf8(QByteArrayView utf8)
{
    if (!utf8.startsWith("\xEF\xBB\xBF"))
        return QString::fromUtf8(utf8);
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::ConvertInitialBom);
    return decoder.decode(utf8);
}

QByteArrayView HBSqliteStatement::utf8(int column) const
{
    const auto *bytes = reinterpret_cast<const char *>(sqlite3_column_text(m_stmt, column));
    return QByteArrayView(bytes, sqlite3_column_bytes(m_stmt, column));
}

QByteArray HBSqliteStatement::blob(int column) const
{
    const auto *bytes = static_cast<const char *>(sqlite3_column_blob(m_stmt, column));
    return QByteArray(bytes, sqlite3_column_bytes(m_stmt, column));
}

QString HBSqliteStatement::errorMessage(sqlite3 *db, const char *message)
{
    QString text = QString::fromUtf8(message ? message : sqlite3_errmsg(db));
    const int primary = sqlite3_errcode(db) & 0xff;
    if (const int systemError = sqlite3_system_errno(db);
        systemError != 0 && (primary == SQLITE_CANTOPEN || primary == SQLITE_IOERR))
        text += QStringLiteral(" (%1)").arg(qt_error_string(systemError));
    return text;
}

bool HBSqliteStatement::execute(sqlite3 *db, const QString &sql, HBError *error)
{
    char *message = nullptr;
    if (sqlite3_exec(db, sql.toUtf8().constData(), nullptr, nullptr, &message) == SQLITE_OK)
        return true;
    if (error)
        *error = HBError(errorDomain(), sqlite3_errcode(db), errorMessage(db, message));
    sqlite3_free(message);
    return false;
}
