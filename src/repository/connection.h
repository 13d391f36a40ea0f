#pragma once
// The data path: connections opened from ADO-style connection strings, statements executed into
// record sets read forwards by field name. One code path, Qt SQL, for both kinds of server:
//  - SQL Server through ODBC (FreeTDS on Linux, the SQL Server driver on Windows);
//  - the embedded server: a folder whose <name>.sqlite files are its databases, read-only.
// Failures are raised as HuntERR::Error with the numbers the procedures react to.
//
// Threads: a Connection, its record sets and its streamed rows belong to the thread that opened
// it, which also closes it (Qt's database connections are per thread); connections on different
// threads run at once. Failures are raised, never put on the error trail.

#include "errors/hunterr.h"
#include "repository/connectionstring.h"
#include "repository/recordset.h"
#include "repository/valuereader.h"

#include <QString>
#include <QStringList>
#include <memory>

namespace repo {

constexpr qint32 ERR_UNREACHABLE = -2147467259;    // server unreachable or access refused
constexpr qint32 ERR_LOGIN_REJECTED = -2147217843; // login rejected
constexpr qint32 ERR_NO_OBJECT = -2147217865;      // object does not exist
constexpr qint32 ERR_COMMAND = -2147217900;        // error in the command

constexpr int adStateClosed = 0;
constexpr int adStateOpen = 1;
constexpr int adUseClient = 3;



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
    // executeStreamed(sql), with following (a statement that needs nothing sql gives) sent in the
    // same batch where the server takes several statements at once (SQL Server: one round trip
    // for both); elsewhere following is sent when followingResult asks for it. followingResult()
    // then gives its record set, once the streamed value is read or dropped; it is also sent on
    // its own if another statement ran in between. Each statement is traced as it is taken:
    // following when followingResult asks for it, so the trace reads alike on every server (and a
    // batch whose following result is never asked for leaves it untraced, though it was sent).
    StreamedRow executeStreamed(const QString &sql, const QString &following);
    RecordSet followingResult();
    // Whether the server takes several statements in one batch (SQL Server; not the embedded one).
    bool takesBatches() const;
    // The statements' record sets, in order, the statements sent in one batch where the server
    // takes several, else one at a time; each is traced. Raises at the first failure (which of
    // them failed is then best told by sending each alone).
    QList<RecordSet> executeAll(const QStringList &statements);
    bool isEmbedded() const;
    // The embedded server's folder, absolute; "" for SQL Server (and before the first open).
    QString embeddedFolder() const;

    QString typeName() const override { return QStringLiteral("Connection"); }
    QStringList errorDescriptions() const override;
    void rollbackTrans() override;

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};

// Every statement the tool sends, exactly as built, appended one per line to this file ("" = off).
// Initialised from PARCELWISE_TRACE_SQL.
void setTraceFile(const QString &path);
QString traceFile();

// The ODBC driver used for SQL Server: PARCELWISE_ODBC_DRIVER, else the setting, else the platform's.
QString sqlServerDriver();
// The driver used for the embedded server's files: "QSQLITE" (default) or "SQLite3" through ODBC
// (PARCELWISE_EMBEDDED_DRIVER=odbc), so tests can exercise the ODBC path with real data.
QString embeddedDriver();
void setEmbeddedDriver(const QString &driver);

} // namespace repo
