#pragma once
// Connection strings: the ADO-style texts the sign-in builds, and their values read back.

#include <QString>

namespace repo {

// The values an ADO connection string carries; keys are matched without regard to case and
// blanks around "=" are allowed.
struct ConnectionString {
    QString provider;
    QString userId;
    QString password;
    QString initialCatalog;
    QString dataSource;
    static ConnectionString parse(const QString &text);
};

} // namespace repo

// Doubles single quotes and trims blanks: how a value goes into a connection string.
QString correctQuotes(const QString &strInput);

// "Provider=SQLOLEDB.1;Persist Security Info=true;User ID=...": the texts the tool builds.
QString masterConnectionString(const QString &user, const QString &server, const QString &password);   // zar_Master
QString serverMasterConnectionString(const QString &user, const QString &server, const QString &password); // MASTER
QString databaseConnectionString(const QString &user, const QString &catalogue, const QString &server,
                                 const QString &password);
