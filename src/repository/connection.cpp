#include "repository/connection.h"

#include "repository/backend.h"

#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QSettings>

#include <chrono>
#include <thread>
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
    RetryPolicy policy;
    qint64 retries = 0;
    bool lost = false; // closed by a try again that could not open it
    QStringList following; // the statements batched after the last streamed one, not yet taken
};

namespace {

// Runs a statement; when the connection broke under it, opens it afresh as the policy allows and
// sends the statement again. What still fails is raised as it failed.
template <typename Run>
auto withRetries(Connection &cn, Run run) -> decltype(run())
{
    int tried = 0;
    for (;;) {
        try {
            return run();
        } catch (const HuntERR::Error &) {
            if (!cn.lastFailureBroken() || !cn.reopenAfterBreak(&tried))
                throw;
        }
    }
}

RetryPolicy &defaultPolicy()
{
    static RetryPolicy policy;
    return policy;
}

} // namespace

void setDefaultRetryPolicy(const RetryPolicy &policy)
{
    defaultPolicy() = policy;
}

Connection::Connection() : d(std::make_unique<Impl>())
{
    d->policy = defaultPolicy();
}

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
    return withRetries(*this, [&] { return backendFor(sql).execute(sql); });
}

StreamedRow Connection::executeStreamed(const QString &sql)
{
    return withRetries(*this, [&] { return backendFor(sql).executeStreamed(sql); });
}

Backend &Connection::backendFor(const QString &sql)
{
    Backend &backend = ready();
    backend.endStream();
    traceStatement(sql);
    return backend;
}

Backend &Connection::ready()
{
    // The server was still away when the last statement gave up: one more try to open, without
    // pauses, so that a server that came back is used again and one that did not costs each
    // later statement no more than its own failure to connect.
    if (!d->backend && d->lost) {
        open();
        d->lost = false;
    }
    if (!d->backend)
        raiseUnusable();
    d->backend->statementBegins();
    d->errors.clear();
    return *d->backend;
}

void Connection::setRetryPolicy(RetryPolicy policy)
{
    d->policy = std::move(policy);
}

const RetryPolicy &Connection::retryPolicy() const
{
    return d->policy;
}

qint64 Connection::retries() const
{
    return d->retries;
}

bool Connection::lastFailureBroken() const
{
    return d->backend && d->backend->failedBroken();
}

bool Connection::reopenAfterBreak(int *tried)
{
    const RetryPolicy &p = d->policy;
    std::exception_ptr failedOpen;
    while (*tried < p.retries) {
        // Doubling for each try, never past a day (--retry-wait 3600 with 100 tries would overflow).
        const int wait = int(qMin<qint64>(qint64(p.firstWaitMs) << qMin(*tried, 20), 86400000));
        if (++*tried == 1 && p.statementsRetried)
            ++*p.statementsRetried;
        ++d->retries;
        if (!p.pause)
            std::this_thread::sleep_for(std::chrono::milliseconds(wait));
        else if (!p.pause(wait))
            break;
        close();
        d->lost = true;
        try {
            open();
            d->lost = false;
            return true;
        } catch (...) {
            failedOpen = std::current_exception(); // the server is still away: the next pause is longer
        }
    }
    if (failedOpen)
        std::rethrow_exception(failedOpen);
    return false;
}

StreamedRow Connection::executeStreamed(const QString &sql, const QStringList &following, const QStringList &ahead)
{
    // Sent ahead with the statements before it: read from the batch, the results it passes over
    // dropped. On a reopened connection no batch is pending: the backend sends it on its own.
    const qsizetype at = d->following.indexOf(sql);
    if (at >= 0 && d->following.mid(at + 1, following.size()) == following) {
        d->following.remove(0, at + 1);
        traceStatement(sql);
        return withRetries(*this, [&] { return ready().followingStreamed(sql, int(at)); });
    }
    bool first = true;
    return withRetries(*this, [&] {
        Backend &backend = backendFor(sql);
        const QStringList batch = std::exchange(first, false) ? following + ahead : following;
        d->following = batch;
        return backend.executeBatch(sql, batch);
    });
}

RecordSet Connection::followingResult()
{
    if (d->following.isEmpty())
        HuntERR::raise(HuntERR::ERR_GENERAL, QStringLiteral("No statement follows the last one sent"), kProvider);
    const QString sql = d->following.takeFirst();
    traceStatement(sql);
    return withRetries(*this, [&] { return ready().followingResult(sql); });
}

bool Connection::takesBatches() const
{
    return d->backend && d->backend->takesBatches();
}

QList<RecordSet> Connection::executeAll(const QStringList &statements)
{
    return withRetries(*this, [&] {
        Backend &backend = ready();
        backend.endStream();
        for (const QString &sql : statements)
            traceStatement(sql);
        return backend.executeAll(statements);
    });
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

namespace {
int &timeoutSetting()
{
    static int seconds = -1;
    return seconds;
}
} // namespace

void setStatementTimeout(int seconds)
{
    timeoutSetting() = qMax(0, seconds);
}

int statementTimeout()
{
    if (timeoutSetting() >= 0)
        return timeoutSetting();
    bool ok = false;
    const int setting = QSettings().value(QStringLiteral("odbc/timeout")).toInt(&ok);
    return ok && setting >= 0 ? setting : 600;
}

RetryPolicy installedRetryPolicy()
{
    RetryPolicy p;
    p.retries = 3;
    const QSettings settings;
    bool ok = false;
    const int retries = settings.value(QStringLiteral("odbc/retries")).toInt(&ok);
    if (ok && retries >= 0 && retries <= 100)
        p.retries = retries;
    const double wait = settings.value(QStringLiteral("odbc/retry-wait")).toDouble(&ok);
    if (ok && wait >= 0 && wait <= 3600)
        p.firstWaitMs = qRound(wait * 1000);
    return p;
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
