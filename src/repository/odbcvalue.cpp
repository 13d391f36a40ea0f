// Chunked SQLGetData: the one place that calls the ODBC API itself rather than through Qt.

#include "repository/odbcvalue.h"

#include "errors/hunterr.h"

#include <QSqlResult>
#include <QVariant>

#ifdef PARCELWISE_HAVE_ODBC
#ifdef Q_OS_WIN
#include <windows.h>
#endif
#include <sql.h>
#include <sqlext.h>
#endif

namespace repo {

namespace {

// The value whole, through Qt: what a driver without a handle to lend gets.
std::unique_ptr<ValueReader> wholeValue(Backend &backend, QSqlQuery &q, int column)
{
    const bool null = q.isNull(column);
    const QVariant value = q.value(column);
    if (q.lastError().isValid())
        backend.fail(sqlServerFailure(q.lastError(), false));
    if (null)
        return nullptr;
    return std::make_unique<BytesReader>(value.toByteArray());
}

#ifdef PARCELWISE_HAVE_ODBC

class OdbcValue final : public BackendStream {
public:
    // owned: the statement is finished when the value ends; null when the caller keeps it.
    OdbcValue(Backend &backend, std::unique_ptr<QSqlQuery> owned, SQLHSTMT stmt, int column)
        : BackendStream(backend), m_query(std::move(owned)), m_stmt(stmt), m_column(SQLUSMALLINT(column + 1))
    {
    }
    ~OdbcValue() override { end(); }

    // Asks for the value's length without reading it; false when it is NULL.
    bool probe()
    {
        char none = 0;
        SQLLEN indicator = 0;
        const SQLRETURN rc = SQLGetData(m_stmt, m_column, SQL_C_BINARY, &none, 0, &indicator);
        if (rc == SQL_NO_DATA) {
            m_done = true;
            m_size = 0;
            return true;
        }
        if (!SQL_SUCCEEDED(rc))
            raiseDriver();
        if (indicator == SQL_NULL_DATA)
            return false;
        if (indicator >= 0)
            m_size = indicator;
        m_done = rc == SQL_SUCCESS && indicator == 0;
        return true;
    }

    qint64 read(char *buffer, qint64 max) override
    {
        if (!m_stmt)
            raiseEnded();
        if (m_done || max <= 0)
            return 0;
        SQLLEN indicator = 0;
        const SQLLEN room = SQLLEN(qMin<qint64>(max, 1 << 30));
        const SQLRETURN rc = SQLGetData(m_stmt, m_column, SQL_C_BINARY, buffer, room, &indicator);
        if (rc == SQL_NO_DATA) {
            m_done = true;
            return 0;
        }
        if (!SQL_SUCCEEDED(rc))
            raiseDriver();
        if (indicator == SQL_NULL_DATA) {
            m_done = true;
            return 0;
        }
        // Truncated: the buffer is full and more follows. Otherwise this was the last piece.
        if (rc == SQL_SUCCESS_WITH_INFO && (indicator == SQL_NO_TOTAL || indicator > room))
            return room;
        m_done = true;
        return qint64(qMin<SQLLEN>(indicator, room));
    }

    qint64 size() const override { return m_size; }

    void end() override
    {
        if (m_query)
            m_query->finish();
        m_query.reset();
        m_stmt = nullptr;
    }

private:
    [[noreturn]] void raiseDriver()
    {
        QStringList messages;
        bool linkLost = false;
        SQLCHAR state[6] = {};
        SQLCHAR text[1024] = {};
        SQLINTEGER native = 0;
        SQLSMALLINT length = 0;
        for (SQLSMALLINT i = 1; i < 20; ++i) {
            if (!SQL_SUCCEEDED(SQLGetDiagRecA(SQL_HANDLE_STMT, m_stmt, i, state, &native, text, sizeof text, &length)))
                break;
            messages << QString::fromLocal8Bit(reinterpret_cast<const char *>(text)).trimmed();
            // 08S01 and its kin: the link broke; HYT00/HYT01: it went quiet past the timeout.
            linkLost = linkLost || qstrncmp(reinterpret_cast<const char *>(state), "08", 2) == 0
                       || qstrncmp(reinterpret_cast<const char *>(state), "HYT0", 4) == 0;
        }
        if (messages.isEmpty())
            messages << QStringLiteral("The driver failed while reading a value");
        Backend *owner = backend();
        end();
        const qint32 number = linkLost ? ERR_UNREACHABLE : HuntERR::ERR_GENERAL;
        if (owner)
            owner->fail(number, messages.first(), messages, linkLost);
        HuntERR::raise(number, messages.first(), kProvider);
    }

    std::unique_ptr<QSqlQuery> m_query;
    SQLHSTMT m_stmt;
    SQLUSMALLINT m_column;
    qint64 m_size = -1;
    bool m_done = false;
};

#endif

} // namespace

namespace {

std::unique_ptr<ValueReader> valueStream(Backend &backend, QSqlQuery &q, std::unique_ptr<QSqlQuery> owned, int column)
{
#ifdef PARCELWISE_HAVE_ODBC
    const QVariant handle = q.result() ? q.result()->handle() : QVariant();
    if (handle.isValid() && handle.metaType().sizeOf() == int(sizeof(SQLHSTMT)) && handle.constData()) {
        const SQLHSTMT stmt = *static_cast<const SQLHSTMT *>(handle.constData());
        if (stmt) {
            auto value = std::make_unique<OdbcValue>(backend, std::move(owned), stmt, column);
            if (!value->probe())
                return nullptr;
            return value;
        }
    }
#endif
    return wholeValue(backend, q, column);
}

} // namespace

std::unique_ptr<ValueReader> odbcValueStream(Backend &backend, std::unique_ptr<QSqlQuery> q, int column)
{
    QSqlQuery &query = *q;
    return valueStream(backend, query, std::move(q), column);
}

std::unique_ptr<ValueReader> odbcValueStream(Backend &backend, QSqlQuery &q, int column)
{
    return valueStream(backend, q, nullptr, column);
}

} // namespace repo
