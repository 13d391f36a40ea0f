#pragma once
// The embedded server speaks SQLite, the tool's statements are T-SQL. The few T-SQL forms the
// statements use are rewritten just before execution, on a token stream so that text inside string
// literals is never touched. The statements themselves (and the trace) keep their T-SQL form.

#include <QList>
#include <QString>

namespace repo {

// A table of another database of the same server, named "database..table".
struct CrossDatabaseName {
    QString database; // unquoted, as written
    QString table;    // as written
    QString original; // "database..table" as it stands in the statement
};

struct AdaptedStatement {
    QString sql;                          // SQLite's form
    QList<CrossDatabaseName> crossNames;  // in order of appearance, every occurrence
};

// Rewrites, outside string literals:
//   CONVERT(varchar(n), X, 112)      -> strftime('%Y%m%d', X) (also styles 23, 108, 120, 121)
//   DATEPART(hh|mi|ss|ms|..., X)     -> the integer part
//   CAST(e AS VARCHAR[(n)]) etc.     -> CAST(e AS TEXT) and SQLite's other type names
//   RIGHT(s, n), LEFT(s, n), SUBSTRING, ISNULL, LEN, DATALENGTH, GETDATE()
//   "+" joining texts                -> "||" (an operand is a string literal or a text function)
//   db..table                        -> db.table (the database is attached under its own name)
//   [name]                           -> "name"
// and, for SQLite's planner rather than its dialect:
//   x IN (SELECT col FROM ...) letting rows through a WHERE clause
//                                    -> EXISTS (SELECT 1 FROM (SELECT col ... ) WHERE x = col)
//   SQLite builds an uncorrelated IN list in full at every run of the statement (the archive
//   probe would read every archived document once per folder); as EXISTS it looks up only the
//   rows x stands for, as SQL Server's planner does by itself. Same rows either way.
AdaptedStatement adaptTSqlForSqlite(const QString &tsql);

} // namespace repo
