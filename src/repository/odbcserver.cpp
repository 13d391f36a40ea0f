// SQL Server through ODBC: the driver of the platform (FreeTDS on Linux) under Qt's ODBC driver.
// Statements go to the server exactly as built.

#include "repository/backend.h"
#include "repository/connection.h"
#include "repository/hostprobe.h"
#include "repository/odbcvalue.h"

#include <QRegularExpression>
#include <QSqlQuery>
#include <QSqlRecord>

#include <utility>

namespace repo {

namespace {

// Moves to the statement's next result with columns: the driver may hand out what ended a
// statement (its row count) as a result of its own. False when none is left or the driver failed.
bool nextSelect(QSqlQuery &q)
{
    bool next = q.nextResult();
    while (next && !q.isSelect())
        next = q.nextResult();
    return next;
}

class OdbcServer final : public Backend {
public:
    using Backend::Backend;
    ~OdbcServer() override { endStream(); } // the value, then the batch's statement, before the connection

    void open(const ConnectionString &cs)
    {
        QSqlDatabase db = addDatabase(QStringLiteral("QODBC"));
        db.setDatabaseName(sqlServerOdbcText(cs, sqlServerDriver()));
        // An unreachable server should not keep the window blocked for long. Drivers other than
        // FreeTDS (which takes its timeout in the text) end a request unanswered for this long.
        QString options = QStringLiteral("SQL_ATTR_LOGIN_TIMEOUT=5");
        if (!isFreeTds(sqlServerDriver()) && statementTimeout() > 0)
            options += QStringLiteral(";SQL_ATTR_CONNECTION_TIMEOUT=%1").arg(statementTimeout());
        db.setConnectOptions(options);
        if (!db.open())
            fail(withReason(sqlServerFailure(db.lastError(), true), cs));
    }

    // A server that was never reached: the reason in place of the driver's general words.
    static DriverFailure withReason(DriverFailure f, const ConnectionString &cs)
    {
        const bool answered = f.messages.join(u' ').contains(QRegularExpression(
            QStringLiteral("Login failed|Cannot open database"), QRegularExpression::CaseInsensitiveOption));
        if (f.number != ERR_UNREACHABLE || answered)
            return f;
        const ServerAddress a = serverAddress(cs.dataSource);
        const QString reason = tcpFailureReason(a.host, a.port.toInt());
        if (!reason.isEmpty()) {
            f.description = reason;
            f.messages.prepend(reason);
        }
        return f;
    }

    RecordSet execute(const QString &sql) override { return run(sql, sqlServerFailure); }
    StreamedRow executeStreamed(const QString &sql) override { return streamed(sql, {}); }
    StreamedRow executeBatch(const QString &sql, const QStringList &following) override
    {
        return streamed(sql, following);
    }
    RecordSet followingResult(const QString &following) override;
    StreamedRow followingStreamed(const QString &following, int skipped) override;
    bool takesBatches() const override { return true; }
    QList<RecordSet> executeAll(const QStringList &statements) override;

protected:
    void endBatch() override
    {
        if (m_batch)
            m_batch->finish(); // the results not read yet are dropped with it
        m_batch.reset();
    }

private:
    StreamedRow streamed(const QString &sql, const QStringList &following);
    // The batch moved on to the result of its next statement, past skipped ones; null when the
    // batch is gone or gave no such result (the statement is then sent alone). Raises the failure
    // of the statement where it ran in the batch.
    std::unique_ptr<QSqlQuery> nextInBatch(int skipped);
    // The current result's row into row, its last column left to stream (*last: its index, -1
    // when there is no row); false when the driver failed reading it.
    static bool leadingColumns(QSqlQuery &q, StreamedRow &row, int *last);
    // The driver reads past the end of a result without rows into the next one: a failure there
    // may be a later statement's. Sent alone, the statement tells whether it was its own; the
    // batch is let go of, so each later statement is sent alone, with its own failure.
    StreamedRow alone(std::unique_ptr<QSqlQuery> &q, const QString &sql)
    {
        q.reset();
        return streamed(sql, {});
    }
    // The statement's failure raised, the statement let go of first.
    [[noreturn]] void failWith(std::unique_ptr<QSqlQuery> &q)
    {
        const DriverFailure f = sqlServerFailure(q->lastError(), false);
        q.reset();
        fail(f);
    }

    std::unique_ptr<QSqlQuery> m_batch; // a batch whose later results may still be asked for
};

bool OdbcServer::leadingColumns(QSqlQuery &q, StreamedRow &row, int *last)
{
    const QSqlRecord record = q.record();
    *last = record.count() - 1;
    QStringList names;
    for (int c = 0; c < *last; ++c)
        names << record.fieldName(c);
    row.fields.setFields(names);
    if (*last < 0)
        return true;
    if (!q.next()) {
        *last = -1;
        return !q.lastError().isValid();
    }
    QVariantList values;
    for (int c = 0; c < *last; ++c)
        values.append(q.isNull(c) ? QVariant() : q.value(c));
    row.fields.appendRow(std::move(values));
    return true;
}

// Qt's ODBC driver reads a row's columns only when asked, in order: the leading columns are read
// through it, the last one is left to SQLGetData on the statement's own handle. With following,
// every statement goes in one batch (one round trip); the statement is kept for its next results.
StreamedRow OdbcServer::streamed(const QString &sql, const QStringList &following)
{
    auto q = std::make_unique<QSqlQuery>(database());
    q->setForwardOnly(true);
    if (!q->exec((QStringList{sql} + following).join(QStringLiteral(";\n"))))
        failWith(q);
    StreamedRow row;
    int last = -1;
    if (!leadingColumns(*q, row, &last)) {
        if (following.isEmpty())
            failWith(q);
        return alone(q, sql);
    }
    if (following.isEmpty()) {
        if (last >= 0)
            row.value = odbcValueStream(*this, std::move(q), last);
        return row;
    }
    if (last >= 0)
        row.value = odbcValueStream(*this, *q, last); // ends any value before it, and its batch
    m_batch = std::move(q);
    return row;
}

std::unique_ptr<QSqlQuery> OdbcServer::nextInBatch(int skipped)
{
    std::unique_ptr<QSqlQuery> q = std::move(m_batch);
    for (int i = 0; q && i <= skipped; ++i) {
        if (nextSelect(*q))
            continue;
        if (i == skipped && q->lastError().isValid())
            failWith(q);
        q.reset();
    }
    return q;
}

StreamedRow OdbcServer::followingStreamed(const QString &following, int skipped)
{
    endValue();
    std::unique_ptr<QSqlQuery> q = nextInBatch(skipped);
    if (!q)
        return Backend::followingStreamed(following, skipped);
    StreamedRow row;
    int last = -1;
    if (!leadingColumns(*q, row, &last))
        return alone(q, following);
    if (last >= 0)
        row.value = odbcValueStream(*this, *q, last);
    m_batch = std::move(q);
    return row;
}

RecordSet OdbcServer::followingResult(const QString &following)
{
    endValue();
    std::unique_ptr<QSqlQuery> q = nextInBatch(0);
    if (!q)
        return Backend::followingResult(following);
    RecordSet rs;
    if (!readRows(*q, rs))
        failWith(q);
    m_batch = std::move(q); // a later statement of the batch may still be asked for
    return rs;
}

QList<RecordSet> OdbcServer::executeAll(const QStringList &statements)
{
    QList<RecordSet> results;
    DriverFailure failure;
    {
        QSqlQuery q(database());
        q.setForwardOnly(true);
        bool ok = q.exec(statements.join(QStringLiteral(";\n")));
        while (ok && results.size() < statements.size()) {
            RecordSet rs;
            ok = readRows(q, rs);
            results.append(rs);
            if (ok && results.size() < statements.size())
                ok = nextSelect(q);
        }
        if (!ok)
            failure = sqlServerFailure(q.lastError(), false);
        q.finish();
    }
    if (failure.number != 0 || results.size() != statements.size())
        fail(failure.number != 0 ? failure : DriverFailure{HuntERR::ERR_GENERAL, QStringLiteral("A batch gave fewer results than it held statements"), {}});
    return results;
}

} // namespace

std::unique_ptr<Backend> openSqlServer(const ConnectionString &cs, QStringList &errors)
{
    auto server = std::make_unique<OdbcServer>(errors);
    server->open(cs);
    return server;
}

} // namespace repo
