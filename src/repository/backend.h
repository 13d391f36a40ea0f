#pragma once
// How one open connection reaches its server: a Qt SQL connection of its own, opened by one of
// the two kinds of server, statements run on it, and failures raised with the numbers the
// procedures react to. Connection holds one and only dispatches to it.

#include "repository/connectionstring.h"
#include "repository/drivers.h"
#include "repository/recordset.h"

#include <QSqlDatabase>
#include <QStringList>

#include <memory>

class QSqlQuery;

namespace repo {

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

    [[noreturn]] void fail(qint32 number, const QString &description, const QStringList &messages = {});
    [[noreturn]] void fail(const DriverFailure &f) { fail(f.number, f.description, f.messages); }

protected:
    // A new Qt connection of this backend for driver; the driver missing is ADO's "provider not found".
    QSqlDatabase addDatabase(const QString &driver);
    QSqlDatabase database() const { return QSqlDatabase::database(m_qtName, false); }
    // Runs statement as it stands; failures are described by describe.
    RecordSet run(const QString &statement, DriverFailure (*describe)(const QSqlError &, bool));

    QStringList &m_errors;

private:
    QString m_qtName;
};

// Every row of an executed statement into the record set; false when the driver failed on the way.
bool readRows(QSqlQuery &q, RecordSet &rs);

std::unique_ptr<Backend> openSqlServer(const ConnectionString &cs, QStringList &errors);
std::unique_ptr<Backend> openEmbeddedServer(const ConnectionString &cs, const QString &folder, QStringList &errors);

} // namespace repo
