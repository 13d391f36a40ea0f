#pragma once
// The directories of the destination an export has open. Reaching a directory from the
// destination costs at least a system call, and an update that finds its files in place does
// little else but look at them: so the last directories reached stay open, and what
// only looks at the disk starts from the deepest of them on its way. Whatever changes the disk
// walks down from the destination again: a directory moved out of the destination during a run
// is never written through a handle kept from before it left. Each was reached without following
// a link; a directory the run removes is forgotten with everything below it. Only a few stay
// open, so a directory the walk has left is soon closed.
//
// Threads: every function may run on any thread at once (the walk and the workers share one).

#include "export/dirhandles.h"

#include <QMutex>
#include <QString>
#include <QStringList>

#include <list>
#include <memory>
#include <utility>

namespace exporting {

using DirRef = std::shared_ptr<const dirhandles::Dir>;

class OpenFolders {
public:
    explicit OpenFolders(QString destination);
    // The directory holding the last of names (names below the destination, the last one
    // excluded); null when it cannot be reached, why then says why. To look only: from a
    // directory kept open where one is on the way; to change anything: from the destination.
    DirRef toLook(const QStringList &names, QString *why);
    DirRef toChange(const QStringList &names, QString *why);
    // The directory names leads to and everything below it (names as the file system compares them).
    void forget(const QStringList &names);

private:
    DirRef openTop(QString *why);
    DirRef parentOf(const QStringList &names, bool fromKept, QString *why);
    // The deepest of the first depth names that is open, and how many names it took.
    DirRef deepestOpen(const QStringList &names, qsizetype depth, qsizetype *reached);

    const QString m_destination;
    QMutex m_lock;
    DirRef m_top;
    std::list<std::pair<QString, DirRef>> m_open; // most recently used first
};

} // namespace exporting
