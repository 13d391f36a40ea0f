#pragma once
// The command line's output for scripts: the same facts as the tables, as JSON.

#include "tree/foldertree.h"

#include <QJsonObject>
#include <QList>
#include <QString>

#include <functional>

namespace tree {
class TreeProcs;
}

namespace cli {

struct DatabaseRow {
    QString name;
    QString type; // "Live", "Archive", or "" when the catalogue's code is neither
    QString live; // the paired live database of an archive; "" when none
};

// One object on one line, and a line end.
QString jsonLine(const QJsonObject &object);

// [{"name": ..., "type": ..., "live": ... or null}, ...] and a line end.
QString databasesJson(const QList<DatabaseRow> &rows);

// Every node of the tree in tree order (a parent before its children), one object each, and a
// line end. childrenLoaded says whether the node was clicked, so its children list is complete.
QString treeJson(const tree::FolderTree &tree, const tree::TreeProcs &procs,
                 const std::function<bool(const tree::FolderTree::Node *)> &childrenLoaded);

} // namespace cli
