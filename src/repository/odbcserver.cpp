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
    StreamedRow executeBatch(const QString &sql, const QString &following) override { return streamed(sql, following); }
    RecordSet followingResult(const QString &following) override;
    bool takesBatches() const override { return true; }
    QList<RecordSet> executeAll(const QStringList &statements) override;

protected:
    void endBatch() override
    {
        if (m_batch)
            m_batch->finish(); // the results not read yet are dropped with it
        m_batch.reset();
        m_followingFailure = DriverFailure();
    }

private:
    StreamedRow streamed(const QString &sql, const QString &following);
    StreamedRow ownRow(std::unique_ptr<QSqlQuery> &q, const QString &sql);
    // The statement's failure raised, the statement let go of first.
    [[noreturn]] void failWith(std::unique_ptr<QSqlQuery> &q)
    {
        const DriverFailure f = sqlServerFailure(q->lastError(), false);
        q.reset();
        fail(f);
    }

    std::unique_ptr<QSqlQuery> m_batch; // a batch whose following result is still to be read
    DriverFailure m_followingFailure;   // or the failure that result is (number 0: none)
};

// Qt's ODBC driver reads a row's columns only when asked, in order: the leading columns are read
// through it, the last one is left to SQLGetData on the statement's own handle. With following,
// both statements go in one batch (one round trip); the statement is kept for its next result.
StreamedRow OdbcServer::streamed(const QString &sql, const QString &following)
{
    auto q = std::make_unique<QSqlQuery>(database());
    q->setForwardOnly(true);
    const auto keep = [&] {
        if (!following.isEmpty())
            m_batch = std::move(q);
    };
    if (!q->exec(following.isEmpty() ? sql : sql + QStringLiteral(";\n") + following))
        failWith(q);
    StreamedRow row;
    const QSqlRecord record = q->record();
    const int last = record.count() - 1;
    QStringList names;
    for (int c = 0; c < last; ++c)
        names << record.fieldName(c);
    row.fields.setFields(names);
    if (last < 0) {
        keep();
        return row;
    }
    if (!q->next()) {
        if (q->lastError().isValid() && !following.isEmpty())
            return ownRow(q, sql);
        if (q->lastError().isValid())
            failWith(q);
        keep();
        return row;
    }
    QVariantList values;
    for (int c = 0; c < last; ++c)
        values.append(q->isNull(c) ? QVariant() : q->value(c));
    row.fields.appendRow(std::move(values));
    if (following.isEmpty()) {
        row.value = odbcValueStream(*this, std::move(q), last);
        return row;
    }
    row.value = odbcValueStream(*this, *q, last); // ends any value before it, and its batch
    keep();
    return row;
}

// The driver reads past the end of a result without rows into the next one: a failure there may
// be the following statement's. Sent alone, the statement tells whether it was its own; if not,
// the following statement's result is that failure.
StreamedRow OdbcServer::ownRow(std::unique_ptr<QSqlQuery> &q, const QString &sql)
{
    const DriverFailure f = sqlServerFailure(q->lastError(), false);
    q.reset();
    StreamedRow row = streamed(sql, {});
    m_followingFailure = f;
    return row;
}

RecordSet OdbcServer::followingResult(const QString &following)
{
    endValue();
    if (m_followingFailure.number != 0)
        fail(std::exchange(m_followingFailure, DriverFailure()));
    std::unique_ptr<QSqlQuery> q = std::move(m_batch);
    if (!q)
        return Backend::followingResult(following); // another statement ended the batch
    if (nextSelect(*q)) {
        RecordSet rs;
        if (!readRows(*q, rs))
            failWith(q);
        q->finish();
        return rs;
    }
    if (q->lastError().isValid()) // the statement failed where it ran, in the batch
        failWith(q);
    q.reset(); // the driver gave no second result: sent on its own
    return Backend::followingResult(following);
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
