#pragma once
// A column value read a chunk at a time with SQLGetData on the statement's own handle.

#include "repository/backend.h"

#include <QSqlQuery>

#include <memory>

namespace repo {

// The value of column (0-based, not yet read through Qt) of q's current row; null when it is
// NULL. Without ODBC headers at build time, or when the driver hands out no handle, the value is
// read whole through Qt. Raises through backend.fail when the driver fails.
std::unique_ptr<ValueReader> odbcValueStream(Backend &backend, std::unique_ptr<QSqlQuery> q, int column);
// The same on a statement the caller keeps (a batch whose next result is still to be read): the
// reader leaves q open when it ends, and q must outlive it (the backend ends the reader first).
std::unique_ptr<ValueReader> odbcValueStream(Backend &backend, QSqlQuery &q, int column);

} // namespace repo
