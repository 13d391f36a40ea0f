#pragma once
// The data path: connections opened from ADO-style connection strings, statements executed into
// record sets read forwards by field name. One code path, Qt SQL, for both kinds of server:
//  - SQL Server through ODBC (FreeTDS on Linux, the SQL Server driver on Windows);
//  - the embedded server: a folder whose <name>.sqlite files are its databases, read-only.
// Failures are raised as HuntERR::Error with the numbers the procedures react to.
//
// Threads: a Connection, its record sets and its streamed rows belong to the thread that opened
// it, which also closes it (Qt's database connections are per thread); connections on different
// threads run at once. Failures are raised, never put on the error trail. A retry policy's
// pause runs on the connection's thread. The process-wide settings below (trace file, timeout,
// drivers) are set on the main thread before connections are opened.

#include "errors/hunterr.h"
#include "repository/connectionstring.h"
#include "repository/recordset.h"
#include "repository/valuereader.h"

#include <QString>
#include <QStringList>
#include <atomic>
#include <functional>
#include <memory>

namespace repo {

class Backend;

constexpr qint32 ERR_UNREACHABLE = -2147467259;    // server unreachable or access refused
constexpr qint32 ERR_LOGIN_REJECTED = -2147217843; // login rejected
constexpr qint32 ERR_NO_OBJECT = -2147217865;      // object does not exist
constexpr qint32 ERR_COMMAND = -2147217900;        // error in the command

constexpr int adStateClosed = 0;
constexpr int adStateOpen = 1;
constexpr int adUseClient = 3;



// How a statement whose connection broke under it (a dropped link, a server failing over, a
// statement unanswered past the timeout) is tried again: the connection is opened afresh with the
// same text after a pause of firstWaitMs, then twice that, and so on, up to retries times. An
// error the server answered with is never tried again.
struct RetryPolicy {
    int retries = 0;
    int firstWaitMs = 1000;
    // Waits ms milliseconds; false when the caller is to give up instead (a run being stopped).
    // Called on the connection's own thread. Empty: a plain sleep.
    std::function<bool(int ms)> pause;
    // Counts the statements that had to be sent again, across every connection given this
    // policy (shared between threads, so atomic); may be null.
    std::shared_ptr<std::atomic<qint64>> statementsRetried;
};

// One row whose last column is read in chunks (see Connection::executeStreamed).
struct StreamedRow {
    RecordSet fields;                    // the other columns; eof when the statement gave no row
    std::unique_ptr<ValueReader> value;  // the last column; null when it is NULL or there is no row
};

class Connection : public HuntERR::DbObject {
public:
    Connection();
    ~Connection() override;
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    QString connectionString; // the property; open("") uses it
    int cursorLocation = adUseClient;

    int state() const override;
    void open(const QString &connectionText = {});
    void close();
    RecordSet execute(const QString &sql);
    // Runs sql (sent and traced exactly as execute sends it) for its one row and hands back the
    // row's other columns with a reader for its last column, so a document's bytes go to their
    // file a chunk at a time and are never held whole. The reader keeps the statement open: it
    // must be read or dropped before the connection runs anything else (a statement run
    // meanwhile ends it, and it then raises when read).
    StreamedRow executeStreamed(const QString &sql);
    // executeStreamed(sql), with following (statements that need nothing sql gives) sent in the
    // same batch where the server takes several statements at once (SQL Server: one round trip
    // for all); elsewhere each is sent when it is asked for. followingResult() gives the next of
    // them as a record set, once the streamed value is read or dropped. A later one that is
    // itself streamed is asked for by executeStreamed with its own text and, as its following,
    // the statements sent right behind it: it is then read from the batch, and the results of the
    // statements passed over are dropped. Any other statement ends the batch; what it held is
    // then sent on its own when asked for. Each statement is traced as it is taken, so the trace
    // reads alike on every server (a statement of a batch never asked for stays untraced, though
    // it was sent). ahead: more statements for the batch, behind following, taken the same way,
    // that go only the first time: when the connection broke and sql is sent again, it goes with
    // following alone, so that what broke the link once (a reply too large for it, say) does not
    // take the statements ahead down with it; they are sent on their own when asked for.
    StreamedRow executeStreamed(const QString &sql, const QStringList &following, const QStringList &ahead = {});
    RecordSet followingResult();
    // Whether the server takes several statements in one batch (SQL Server; not the embedded one).
    bool takesBatches() const;
    // The statements' record sets, in order, the statements sent in one batch where the server
    // takes several, else one at a time; each is traced. Raises at the first failure (which of
    // them failed is then best told by sending each alone).
    QList<RecordSet> executeAll(const QStringList &statements);
    // Statements (every one of the above) that fail because the connection broke are tried
    // again under this policy. The policy stays with the connection until it is set again.
    void setRetryPolicy(RetryPolicy policy);
    const RetryPolicy &retryPolicy() const;
    // The tries again this connection made so far (each pause and reopening counts one).
    qint64 retries() const;
    // Whether the last failure of a statement or of its streamed value was the connection
    // breaking (the policy's test, for a caller that reads a streamed value).
    bool lastFailureBroken() const;
    // After such a failure: waits as the policy says for the tries already made (*tried, counted
    // up here) and opens the connection afresh. False when the policy allows no more tries or the
    // pause says to give up; raises the reopening's own failure when the last try could not open.
    bool reopenAfterBreak(int *tried);
    bool isEmbedded() const;
    // The embedded server's folder, absolute; "" for SQL Server (and before the first open).
    QString embeddedFolder() const;

    QString typeName() const override { return QStringLiteral("Connection"); }
    QStringList errorDescriptions() const override;
    void rollbackTrans() override;

private:
    // The open backend, ready for a statement (a connection lost by a try again is opened first).
    Backend &ready();
    // ready(), with the value still streaming ended and sql traced.
    Backend &backendFor(const QString &sql);

    struct Impl;
    std::unique_ptr<Impl> d;
};

// Every statement the tool sends, exactly as built, appended one per line to this file ("" = off).
// Initialised from PARCELWISE_TRACE_SQL.
void setTraceFile(const QString &path);
QString traceFile();

// How long a SQL Server statement may go unanswered before it fails as a broken connection, in
// seconds (0: no limit), for connections opened afterwards: what was set, else the setting
// odbc/timeout, else 600.
void setStatementTimeout(int seconds);
int statementTimeout();
// The installation's retry policy for exports: the settings odbc/retries (default 3) and
// odbc/retry-wait in seconds (default 1), without a pause function or counter.
RetryPolicy installedRetryPolicy();
// The policy every connection made afterwards starts with (none until set): the command line sets
// its own, so that signing in and reading the tree survive a dropped link as the export does.
void setDefaultRetryPolicy(const RetryPolicy &policy);

// The ODBC driver used for SQL Server: PARCELWISE_ODBC_DRIVER, else the setting, else the platform's.
QString sqlServerDriver();
// The driver used for the embedded server's files: "QSQLITE" (default) or "SQLite3" through ODBC
// (PARCELWISE_EMBEDDED_DRIVER=odbc), so tests can exercise the ODBC path with real data.
QString embeddedDriver();
void setEmbeddedDriver(const QString &driver);

} // namespace repo
