#pragma once
// Which entry keeps a name that several entries of one directory would take: the one of lowest
// id, among the documents of one folder and among sibling folders; the others carry their id
// beside the name. The choice is made from the whole listing (or the whole ticked tree) before
// any entry is named, so it never depends on the order in which the rows come.
//
// Threads: values and functions of their arguments, used by the walk's thread.

#include "repository/recordset.h"
#include "tree/foldertree.h"

#include <QHash>
#include <QList>
#include <QString>

#include <functional>

namespace exporting {

class NameOwners {
public:
    // The name an entry asks for (extension included), compared as the file system compares names.
    void add(const QString &name, qint64 id);
    // A name that is the entry's own ("[id]", "[id].ext"): it keeps it whoever else asks for it.
    void claim(const QString &name, qint64 id);
    // After the last add: each name goes to the lowest id that asked for it. Where several asked,
    // only those takesPart accepts count (asked lowest first until one does; none: the lowest).
    void settle(const std::function<bool(qint64 id)> &takesPart = {});
    // Whether id may take name: no entry asked for it, or it went to id.
    bool owns(const QString &name, qint64 id) const;

private:
    QHash<QString, QList<qint64>> m_asking;
    QHash<QString, qint64> m_owner; // claimed, then settled
};

// The rec_id of a listing's current row.
qint64 listedId(const repo::RecordSet &rs);

// The names a folder's documents ask for: "title.ext" cleaned, or "[id].ext" when the title
// cannot be a file name. Rows that cannot be read ask for nothing.
NameOwners documentOwners(repo::RecordSet rs);
// The names a subfolder listing's folders ask for; takesPart as in settle.
NameOwners folderOwners(repo::RecordSet rs, const std::function<bool(qint64 id)> &takesPart = {});

// The directory name a folder gets: its cleaned name ("[id]" when that names no folder of its
// own), with " [id]" appended while that
// belongs to a sibling or taken says this run has it already. renamed: something was appended.
QString folderDirectoryName(const QString &cleaned, qint64 id, const NameOwners &owners,
                            const std::function<bool(const QString &name)> &taken, bool *renamed);

// The ticked folder whose directory holds a ticked node's directory; nullptr: the destination.
const tree::FolderTree::Node *tickedParent(const tree::FolderTree::Node *node);
// The names the ticked folders ask for, by the ticked folder they go into (nullptr: the
// destination). Folder 1, the repository's root, is never a directory of its own.
QHash<const tree::FolderTree::Node *, NameOwners> tickedOwners(const tree::FolderTree &tree);

} // namespace exporting
