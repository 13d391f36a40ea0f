// SQL Server through ODBC: the driver of the platform (FreeTDS on Linux) under Qt's ODBC driver.
// Statements go to the server exactly as built.

#include "repository/backend.h"
#include "repository/connection.h"
#include "repository/hostprobe.h"
#include "repository/odbcvalue.h"

#include <QRegularExpression>
#include <QSqlQuery>
#include <QSqlRecord>

namespace repo {

namespace {

class OdbcServer final : public Backend {
public:
    using Backend::Backend;

    void open(const ConnectionString &cs)
    {
        QSqlDatabase db = addDatabase(QStringLiteral("QODBC"));
        db.setDatabaseName(sqlServerOdbcText(cs, sqlServerDriver()));
        // An unreachable server should not keep the window blocked for long. Drivers other than
        // FreeTDS (which takes its timeout in the text) end a request unanswered for this long.
        QString options = QStringLiteral("SQL_ATTR_LOGIN_TIMEOUT=5");
        if (!sqlServerDriver().contains(u"tds", Qt::CaseInsensitive) && statementTimeout() > 0)
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
    StreamedRow executeStreamed(const QString &sql) override;
};

// Qt's ODBC driver reads a row's columns only when asked, in order: the leading columns are read
// through it, the last one is left to SQLGetData on the statement's own handle.
StreamedRow OdbcServer::executeStreamed(const QString &sql)
{
    auto q = std::make_unique<QSqlQuery>(database());
    q->setForwardOnly(true);
    const auto failed = [&] {
        const DriverFailure f = sqlServerFailure(q->lastError(), false);
        q.reset();
        fail(f);
    };
    if (!q->exec(sql))
        failed();
    StreamedRow row;
    const QSqlRecord record = q->record();
    const int last = record.count() - 1;
    QStringList names;
    for (int c = 0; c < last; ++c)
        names << record.fieldName(c);
    row.fields.setFields(names);
    if (last < 0)
        return row;
    if (!q->next()) {
        if (q->lastError().isValid())
            failed();
        return row;
    }
    QVariantList values;
    for (int c = 0; c < last; ++c)
        values.append(q->isNull(c) ? QVariant() : q->value(c));
    row.fields.appendRow(std::move(values));
    row.value = odbcValueStream(*this, std::move(q), last);
    return row;
}

} // namespace

std::unique_ptr<Backend> openSqlServer(const ConnectionString &cs, QStringList &errors)
{
    auto server = std::make_unique<OdbcServer>(errors);
    server->open(cs);
    return server;
}

} // namespace repo
