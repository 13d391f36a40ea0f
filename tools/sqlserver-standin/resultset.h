#pragma once
// A result of the embedded server as SQL Server sends it: each column given the type SQL Server
// gives the repository's columns, then COLMETADATA and one ROW token per row.

#include "tdstokens.h"

#include <QList>
#include <QStringList>
#include <QVariant>

namespace standin {

enum class ColumnKind { Int, BigInt, Float, NVarChar, VarChar, DateTime, Image };

struct ResultColumn {
    QString name;
    ColumnKind kind = ColumnKind::NVarChar;
    bool max = false; // nvarchar(max)/varchar(max): sent in chunks
};

// A value that does not fit its column's declared type, in SQL Server's number and words.
struct TypeFailure {
    qint32 number = 0; // 0: none
    QString text;
};

// Types. A column that is a repository column (sources: the column each result column names
// directly, "" for an expression) has the type the repository declares for it, and a value that
// does not fit is a failure. Other columns take theirs from the values (the first non-null one)
// and, for a column of nulls only, from the repository column their name stands for.
QList<ResultColumn> typeColumns(const QStringList &names, const QList<QVariantList> &rows,
                                const QStringList &sources = {}, TypeFailure *failure = nullptr);

void writeColumns(TokenWriter &out, const QList<ResultColumn> &columns);
// textSize: the session's TEXTSIZE; image and (n)varchar(max) values longer than it are cut to
// it, as SQL Server does.
void writeRow(TokenWriter &out, const QList<ResultColumn> &columns, const QVariantList &row, qint64 textSize);

} // namespace standin
