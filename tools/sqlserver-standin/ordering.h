#pragma once
// The order of a result as SQL Server gives it: texts by the collation's weights, and no further
// order promised: rows that tie on every ORDER BY key, and the rows of a result without one, come
// in no particular order. With a seed, the stand-in puts those in a seeded random order so the
// tool cannot come to rely on one.

#include <QList>
#include <QStringList>
#include <QVariant>

#include <optional>

namespace standin {

// The repository column each result column names directly ("a.rec_id", "rec_id AS id", or every
// column of a "*"), read from the statement's first select list; "" for an expression, and all ""
// when the list cannot be read.
QStringList sourceColumns(const QString &sql, const QStringList &columnNames);

struct OrderKey {
    int column = 0;
    bool descending = false;
};

// The statement's top-level ORDER BY keys as result columns (by name, alias or position); false
// when there is no ORDER BY. keys empty and true: an ORDER BY with a key that is not a column of
// the result, whose order is left as the embedded server made it.
bool orderKeys(const QString &sql, const QStringList &columnNames, QList<OrderKey> &keys);

// Puts the rows in the order SQL Server's collation gives (the embedded server sorts texts by
// SQLite's ASCII NOCASE). With a seed, rows that tie on every key, and all rows of a result
// without an ORDER BY, come in an order the seed and the statement's text choose.
void orderAsServer(const QString &sql, const QStringList &columnNames, QList<QVariantList> &rows,
                   std::optional<quint32> seed);

} // namespace standin
