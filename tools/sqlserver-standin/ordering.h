#pragma once
// The order of a result as SQL Server promises it and no further: rows that tie on every ORDER BY
// key, and the rows of a result without one, come in no particular order. With a seed, the
// stand-in puts them in a seeded random order so the tool cannot come to rely on one.

#include <QList>
#include <QStringList>
#include <QVariant>

namespace standin {

// The statement's top-level ORDER BY keys as result columns (by name, alias or position); false
// when there is no ORDER BY. keys empty and true: an ORDER BY with a key that is not a column of
// the result, whose ties cannot be told.
bool orderKeys(const QString &sql, const QStringList &columnNames, QList<int> &keys);

// Shuffles the rows the statement leaves in no order; seed and statement text choose the order.
void shuffleTies(const QString &sql, const QStringList &columnNames, QList<QVariantList> &rows, quint32 seed);

} // namespace standin
