#pragma once
// What the two kinds of server need from the connection: the ODBC text that reaches SQL Server,
// the embedded server's file names, and the translation of driver failures into the error numbers
// the procedures react to. Kept apart from Connection so each piece can be checked on its own.

#include "repository/connection.h"

#include <QSqlError>
#include <QString>
#include <QStringList>

namespace repo {

// Where a Data Source points: "host", "host,port", "host\instance" ("tcp:" dropped; "." and
// "(local)" are localhost). A bare host has port 1433; an instance has none (it is looked up).
struct ServerAddress {
    QString host;
    QString instance;
    QString port;
};
ServerAddress serverAddress(const QString &dataSource);

// The DSN-less ODBC text for SQL Server: DRIVER, Server (and Port for FreeTDS, which does not
// understand "host,port"), Database, UID, PWD and, for FreeTDS, TDS_Version and TextSize; then the
// extra driver attributes of odbcOptions(). Values holding ; { } = or outer blanks are put in
// braces with "}" doubled.
QString sqlServerOdbcText(const ConnectionString &cs, const QString &driver);
// Whether driver is FreeTDS's (by its registered name), which takes its settings in the text.
bool isFreeTds(const QString &driver);

// Extra ODBC attributes appended to the SQL Server text as written ("Encryption=require;..."):
// PARCELWISE_ODBC_OPTIONS, else the setting odbc/options; outer blanks and ";" trimmed.
QString odbcOptions();

// ODBC value quoting as above.
QString odbcValue(const QString &value);

// A Data Source that names a folder rather than a host: it contains "/", starts with "." (other
// than SQL Server's own ".", ".\instance") or is an absolute path.
bool looksLikeFolderPath(const QString &dataSource);

// The file of database name in an embedded server folder ("<name>.sqlite", letter case ignored);
// "" when there is none.
QString embeddedDatabaseFile(const QString &folder, const QString &name);
// The names of all databases of an embedded server folder, sorted.
QStringList embeddedDatabaseNames(const QString &folder);
// A read-only SQLite URI for the file ("file:///...?mode=ro&immutable=1"): SQLite writes nothing beside it.
QString readOnlyUri(const QString &filePath);

struct DriverFailure {
    qint32 number = 0;
    QString description;  // the first message, without the drivers' "[...]" prefixes
    QStringList messages; // every message
    bool broken = false;  // the connection itself broke or timed out: the statement may be tried again
};

// SQL Server through ODBC. connecting: the failure happened while opening.
// Mid-statement, a failure of the link (FreeTDS's read, write, end-of-file and timeout errors,
// Windows' socket resets, "Communication link failure", "Timeout expired") is broken; an error the
// server itself answered with (208, 102, 229, 4060, ...) never is.
DriverFailure sqlServerFailure(const QSqlError &error, bool connecting);
// An embedded database file (QSQLITE or the SQLite ODBC driver); texts are given SQL Server's wording
// where the procedures or the person may read them.
DriverFailure sqliteFailure(const QSqlError &error, bool connecting);

// The messages of a driver text: Qt joins ODBC's diagnostic records, each led by "[vendor][component]".
QStringList splitDriverMessages(const QString &text);

} // namespace repo
