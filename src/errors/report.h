#pragma once
// The text of an error report: the fixed template filled in for the failing error, the block that
// describes a database connection, one call-stack entry per procedure the error passes through,
// and the way single values are written into those entries. Nothing here throws: a report is
// built while another error is being handled and must never replace it.

#include "errors/hunterr.h"

#include <QList>
#include <QPair>
#include <QString>
#include <QVariant>

namespace HuntERR {

// The report's head, one text; every "%nl%" becomes CR LF.
extern const QString ReportTemplate;

// Placeholder name and its value, filled in the order given.
using Placeholders = QList<QPair<QString, QString>>;

// Fills the placeholders of a template without ever taking a "%" of an inserted value for a
// delimiter: the template's own "%" are swapped for the backspace character first.
QString substitutePlaceholders(const QString &templ, const Placeholders &values);

// Version of the data-access layer on this machine (the ODBC driver manager), "?" when there is
// none. Looked up once per run.
QString dataAccessVersion();

// "major.minor.patch" of this build.
QString applicationVersion();

// The application's name ("Parcelwise" when there is no application object).
QString applicationName();

// "+ n" / "- n".
QString signedForm(qint64 value);

// The head of the report for an error caught in methodName.
QString buildReportHead(const ErrInfo &err, const QString &methodName);

// "adStateClosed", or "adStateOpen" with " + adStateConnecting/Executing/Fetching" for bits 2/4/8.
QString connectionStateWords(int state);

// The "  ADO Info: " block for a connection; empty text when there is none.
QString adoInfoBlock(DbObject *connection);

// One value as a named-value list writes it: {Array}, 'text', {Empty}, {Null}, {TypeName}, {?}.
QString formatValue(const QVariant &value);

// "name=value, name=value"; long or multi-line values are written "{Text}" and their
// "    Value Of name:" lines are appended to heldBack.
QString namedValueList(const NamedValues &values, QString *heldBack);

// One procedure's call-stack entry, every line ending in CR LF.
QString callStackEntry(const QString &methodName, qint32 line, const NamedValues &params,
                       const NamedValues &env);

// Calls a transaction method of the connection and says how it went. Only "RollbackTrans" is
// known; the connection's failure is caught and put into the note.
QString transactionNote(DbObject *connection, const QString &method = QStringLiteral("RollbackTrans"));

} // namespace HuntERR
