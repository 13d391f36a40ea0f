#pragma once
// The embedded server's values read with SQLite's incremental blob I/O: the statement is run for
// the row of its last column (its table's rowid, type and length) rather than for the value, and
// the value is then read straight from the file a chunk at a time. Nothing here reports errors:
// whatever this way cannot serve, the caller reads the plain way, which reports.

#include "repository/backend.h"

#include <QList>
#include <QSqlDatabase>

#include <functional>
#include <memory>

namespace repo {

class SqliteBlobReader {
public:
    // db: an open QSQLITE connection (its native handle is used).
    explicit SqliteBlobReader(const QSqlDatabase &db);
    ~SqliteBlobReader();
    SqliteBlobReader(const SqliteBlobReader &) = delete;
    SqliteBlobReader &operator=(const SqliteBlobReader &) = delete;

    bool usable() const;
    // The row of the statement of this shape (key), ids bound from values; adapt gives SQLite's
    // text of the shape when it is met the first time. false: not served this way.
    bool stream(Backend &backend, const QString &key, const std::function<QString()> &adapt,
                const QList<qint64> &values, StreamedRow *row);

private:
    struct Plan;
    struct Impl;
    std::unique_ptr<Impl> d;
};

} // namespace repo
