#pragma once
// How one open connection reaches its server: a Qt SQL connection of its own, opened by one of
// the two kinds of server, statements run on it, and failures raised with the numbers the
// procedures react to. Connection holds one and only dispatches to it.

#include "repository/connection.h"
#include "repository/connectionstring.h"
#include "repository/drivers.h"
#include "repository/recordset.h"
#include "repository/valuereader.h"

#include <QSqlDatabase>
#include <QStringList>

#include <memory>

class QSqlQuery;

namespace repo {

class Backend;

// A value still being read on its backend's statement. The backend ends it before it runs
// anything else or goes away; an ended stream raises when read.
class BackendStream : public ValueReader {
public:
    explicit BackendStream(Backend &backend);
    ~BackendStream() override;
    // Lets go of the statement; further reads raise.
    virtual void end() = 0;

protected:
    [[noreturn]] void raiseEnded() const;
    Backend *backend() const { return m_backend; } // null once ended

private:
    Backend *m_backend;
    friend class Backend;
};

// Where the errors say they come from, as the data-access layer names itself.
extern const QString kProvider;
extern const QString kAdoConnection;

class Backend {
public:
    // errors: the connection's list of messages of the last failure (ADO's Errors collection).
    explicit Backend(QStringList &errors);
    virtual ~Backend();
    Backend(const Backend &) = delete;
    Backend &operator=(const Backend &) = delete;

    virtual RecordSet execute(const QString &sql) = 0;
    // The statement's one row with its last column as a reader. This default reads the row whole;
    // the servers that can read a value in pieces do so.
    virtual StreamedRow executeStreamed(const QString &sql);
    // executeStreamed(sql) with following sent in the same batch, where the server takes several
    // statements at once; this default sends each only when it is asked for.
    virtual StreamedRow executeBatch(const QString &sql, const QStringList &following);
    // The record set of following, the batch's next statement, once the value streaming is done
    // with (it is ended here). Sent now when the server has not run it yet, or when another
    // statement ended the batch first.
    virtual RecordSet followingResult(const QString &following);
    // The same for a later statement of the batch read as a streamed row: the results of the
    // skipped statements before it are dropped unread.
    virtual StreamedRow followingStreamed(const QString &following, int skipped);
    // Whether several statements go to the server in one batch (one round trip).
    virtual bool takesBatches() const { return false; }
    // Each statement's record set, in order; raises at the first failure. This default runs them
    // one at a time.
    virtual QList<RecordSet> executeAll(const QStringList &statements);
    // Ends the value still being read, if any, and the rest of its batch (before another
    // statement, and before closing).
    void endStream();

    // broken: the connection broke under the statement (see DriverFailure::broken).
    [[noreturn]] void fail(qint32 number, const QString &description, const QStringList &messages = {},
                           bool broken = false);
    [[noreturn]] void fail(const DriverFailure &f) { fail(f.number, f.description, f.messages, f.broken); }
    // Whether the last failure since the last statement began was the connection breaking.
    bool failedBroken() const { return m_broken; }
    void statementBegins() { m_broken = false; }

protected:
    // Ends the value still being read, keeping what follows it in its batch.
    void endValue();
    // Lets go of the rest of a batch not yet read; called by endStream.
    virtual void endBatch() {}
    // A new Qt connection of this backend for driver; the driver missing is ADO's "provider not found".
    QSqlDatabase addDatabase(const QString &driver);
    QSqlDatabase database() const { return QSqlDatabase::database(m_qtName, false); }
    // Runs statement as it stands; failures are described by describe.
    RecordSet run(const QString &statement, DriverFailure (*describe)(const QSqlError &, bool));

    QStringList &m_errors;

private:
    friend class BackendStream;
    QString m_qtName;
    BackendStream *m_stream = nullptr;
    bool m_broken = false;
};

// Every row of an executed statement into the record set; false when the driver failed on the way.
bool readRows(QSqlQuery &q, RecordSet &rs);
// The record set's current row without its last column, as a one-row record set (none when eof).
RecordSet leadingFields(const RecordSet &rs);

std::unique_ptr<Backend> openSqlServer(const ConnectionString &cs, QStringList &errors);
std::unique_ptr<Backend> openEmbeddedServer(const ConnectionString &cs, const QString &folder, QStringList &errors);

} // namespace repo
