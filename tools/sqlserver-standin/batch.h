#pragma once
// A batch as SQL Server reads it: statements one after another, ended by ";" or simply followed
// by the next one ("select 1 select 2"), each answered with its own DONE.

#include <QStringList>

namespace standin {

// The batch's statements, blanks around them and empty ones dropped. A statement starts with
// SELECT, SET, USE, DECLARE, EXEC(UTE), IF or PRINT outside parentheses, other than the SELECT
// of UNION [ALL], EXCEPT and INTERSECT.
QStringList splitBatch(const QString &text);

} // namespace standin
