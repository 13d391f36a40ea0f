#pragma once
// SQLite's own syntax, which the embedded server would run but SQL Server refuses: found before
// the statement runs and refused with SQL Server's number and words.

#include <QString>

namespace standin {

struct Refusal {
    qint32 number = 0; // 0: nothing refused
    QString text;
};

// "a || b", "a == b", "LIMIT n", "NULLS FIRST": 102, "Incorrect syntax near '...'."; "IF NOT
// EXISTS", "INSERT OR ...": 156, "Incorrect syntax near the keyword '...'.".
Refusal sqliteOnlySyntax(const QString &sql);

} // namespace standin
