// SQL Server through ODBC: the driver of the platform (FreeTDS on Linux) under Qt's ODBC driver.
// Statements go to the server exactly as built.

#include "repository/backend.h"
#include "repository/connection.h"

namespace repo {

namespace {

class OdbcServer final : public Backend {
public:
    using Backend::Backend;

    void open(const ConnectionString &cs)
    {
        QSqlDatabase db = addDatabase(QStringLiteral("QODBC"));
        db.setDatabaseName(sqlServerOdbcText(cs, sqlServerDriver()));
        // An unreachable server should not keep the window blocked for long.
        db.setConnectOptions(QStringLiteral("SQL_ATTR_LOGIN_TIMEOUT=5"));
        if (!db.open())
            fail(sqlServerFailure(db.lastError(), true));
    }

    RecordSet execute(const QString &sql) override { return run(sql, sqlServerFailure); }
};

} // namespace

std::unique_ptr<Backend> openSqlServer(const ConnectionString &cs, QStringList &errors)
{
    auto server = std::make_unique<OdbcServer>(errors);
    server->open(cs);
    return server;
}

} // namespace repo
