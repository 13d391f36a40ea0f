#pragma once
// Statements that differ only in the ids they compare are one shape: the embedded server
// prepares each shape once and binds the ids, as SQL Server keeps one plan per shape.

#include <QList>
#include <QString>

namespace repo {

// A statement with its compared values taken out: every whole number that directly follows "="
// (blanks and "(" allowed between) and ends the operand becomes ?1, ?2, ... in text, and values
// holds the numbers in that order. Statements that differ only in the ids they compare share
// one text, so the embedded server can prepare each shape of statement once. Text inside string
// literals, quoted names and comments is never touched; a statement that already holds "?"
// comes back unchanged, without values.
struct ParameterizedStatement {
    QString text;
    QList<qint64> values;
};
ParameterizedStatement parameterizeTSql(const QString &tsql);

} // namespace repo
