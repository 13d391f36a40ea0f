#pragma once
// What a run would replace at the top of its destination, found before anything is written, so a
// caller that must not destroy what someone put there can refuse first.

#include "tree/foldertree.h"

#include <QString>
#include <QStringList>

namespace exporting {

// The entries (a directory, a file or a link) already at the top of destination under the names
// that the tree's ticked top folders take there, in walk order; a run without update deletes each
// before it writes its own. Reads the file system only.
QStringList existingTopEntries(const tree::FolderTree &tree, const QString &destination);

} // namespace exporting
