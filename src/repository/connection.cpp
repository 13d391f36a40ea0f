#include "repository/connection.h"

#include "repository/backend.h"

#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QSettings>

#include <utility>

namespace repo {

namespace {

constexpr qint32 adErrObjectOpen = 3705;
constexpr qint32 adErrInvalidConnection = 3709;

const QString kQSqlite = QStringLiteral("QSQLITE");

QString &traceFileSetting()
{
    static QString path = qEnvironmentVariable("PARCELWISE_TRACE_SQL");
    return path;
}

QString &embeddedDriverSetting()
{
    static QString driver = [] {
        const QString env = qEnvironmentVariable("PARCELWISE_EMBEDDED_DRIVER").trimmed();
        if (env.isEmpty() || env.compare(kQSqlite, Qt::CaseInsensitive) == 0)
            return kQSqlite;
        if (env.compare(u"odbc", Qt::CaseInsensitive) == 0)
            return QStringLiteral("SQLite3");
        return env; // the name of another SQLite ODBC driver
    }();
    return driver;
}

void traceStatement(const QString &sql)
{
    const QString path = traceFile();
    if (path.isEmpty())
        return;
    // Parallel exports trace from several threads: one whole line at a time.
    static QMutex lock;
    const QMutexLocker locked(&lock);
    QFile f(path);
    if (f.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text))
        f.write(sql.toUtf8() + '\n');
}

[[noreturn]] void raiseUnusable()
{
    HuntERR::raise(adErrInvalidConnection,
                   QStringLiteral("The connection cannot be used to perform this operation. It is either closed "
                                  "or invalid in this context."),
                   kAdoConnection);
}

} // namespace

struct Connection::Impl {
    std::unique_ptr<Backend> backend;
    bool embedded = false;
    QString folder; // the embedded server's, absolute
    QStringList errors; // messages of the last failure (ADO's Errors collection)
    QString following;  // the statement batched after the last streamed one, not yet taken
};

Connection::Connection() : d(std::make_unique<Impl>()) {}

Connection::~Connection()
{
    close();
}

int Connection::state() const
{
    return d->backend ? adStateOpen : adStateClosed;
}

bool Connection::isEmbedded() const
{
    return d->embedded;
}

QString Connection::embeddedFolder() const
{
    return d->embedded ? d->folder : QString();
}

void Connection::open(const QString &connectionText)
{
    if (d->backend)
        HuntERR::raise(adErrObjectOpen, QStringLiteral("Operation is not allowed when the object is open."),
                       kAdoConnection);
    if (!connectionText.isEmpty())
        connectionString = connectionText;
    d->errors.clear();

    const ConnectionString cs = ConnectionString::parse(connectionString);
    const QString source = cs.dataSource.trimmed();
    const QFileInfo server(source);
    d->embedded = !source.isEmpty() && server.isDir();
    d->folder = server.absoluteFilePath();
    if (d->embedded) {
        d->backend = openEmbeddedServer(cs, d->folder, d->errors);
    } else if (looksLikeFolderPath(source)) {
        d->errors = {QStringLiteral("SQL Server does not exist or access denied.")};
        HuntERR::raise(ERR_UNREACHABLE, d->errors.first(), kProvider);
    } else {
        d->backend = openSqlServer(cs, d->errors);
    }
}

void Connection::close()
{
    if (d->backend)
        d->backend->endStream();
    d->backend.reset();
}

RecordSet Connection::execute(const QString &sql)
{
    if (!d->backend)
        raiseUnusable();
    d->backend->endStream();
    traceStatement(sql);
    d->errors.clear();
    return d->backend->execute(sql);
}

StreamedRow Connection::executeStreamed(const QString &sql)
{
    if (!d->backend)
        raiseUnusable();
    d->backend->endStream();
    traceStatement(sql);
    d->errors.clear();
    return d->backend->executeStreamed(sql);
}

StreamedRow Connection::executeStreamed(const QString &sql, const QString &following)
{
    if (!d->backend)
        raiseUnusable();
    d->backend->endStream();
    traceStatement(sql);
    d->errors.clear();
    d->following = following;
    return d->backend->executeBatch(sql, following);
}

RecordSet Connection::followingResult()
{
    if (!d->backend)
        raiseUnusable();
    const QString sql = std::exchange(d->following, QString());
    if (sql.isEmpty())
        HuntERR::raise(HuntERR::ERR_GENERAL, QStringLiteral("No statement follows the last one sent"), kProvider);
    traceStatement(sql);
    d->errors.clear();
    return d->backend->followingResult(sql);
}

bool Connection::takesBatches() const
{
    return d->backend && d->backend->takesBatches();
}

QList<RecordSet> Connection::executeAll(const QStringList &statements)
{
    if (!d->backend)
        raiseUnusable();
    d->backend->endStream();
    for (const QString &sql : statements)
        traceStatement(sql);
    d->errors.clear();
    return d->backend->executeAll(statements);
}

QStringList Connection::errorDescriptions() const
{
    return d->errors;
}

void Connection::rollbackTrans()
{
    if (!d->backend)
        raiseUnusable();
    // The tool never begins a transaction, so there is never one to roll back.
    HuntERR::raise(HuntERR::ERR_NOT_PASSED_ON, QStringLiteral("No transaction is active."), kProvider);
}

// --- Settings ------------------------------------------------------------------------------

void setTraceFile(const QString &path)
{
    traceFileSetting() = path;
}

QString traceFile()
{
    return traceFileSetting();
}

QString sqlServerDriver()
{
    const QString env = qEnvironmentVariable("PARCELWISE_ODBC_DRIVER").trimmed();
    if (!env.isEmpty())
        return env;
    const QString setting = QSettings().value(QStringLiteral("odbc/driver")).toString().trimmed();
    if (!setting.isEmpty())
        return setting;
#ifdef Q_OS_WIN
    return QStringLiteral("SQL Server");
#else
    return QStringLiteral("FreeTDS");
#endif
}

QString embeddedDriver()
{
    return embeddedDriverSetting();
}

void setEmbeddedDriver(const QString &driver)
{
    const QString d = driver.trimmed();
    embeddedDriverSetting() = d.isEmpty() ? kQSqlite : d;
}

} // namespace repo
