#include "cli/jsonoutput.h"

#include "tree/treeprocs.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using tree::FolderTree;
using tree::TreeProcs;
using tree::folderIdOfKey;

namespace cli {

namespace {

QJsonValue orNull(const QString &text)
{
    return text.isEmpty() ? QJsonValue(QJsonValue::Null) : QJsonValue(text);
}

QString render(const QJsonArray &array)
{
    return QString::fromUtf8(QJsonDocument(array).toJson(QJsonDocument::Indented));
}

qint64 idOf(const FolderTree::Node *node)
{
    return folderIdOfKey(node->key);
}

void addNode(const FolderTree::Node *node, int depth, const TreeProcs &procs,
             const std::function<bool(const FolderTree::Node *)> &childrenLoaded, QJsonArray *out)
{
    QJsonObject o;
    o.insert(QStringLiteral("id"), idOf(node));
    o.insert(QStringLiteral("name"), procs.storedName(node));
    o.insert(QStringLiteral("text"), node->text);
    o.insert(QStringLiteral("depth"), depth);
    o.insert(QStringLiteral("parentId"), node->parent ? QJsonValue(idOf(node->parent)) : QJsonValue(QJsonValue::Null));
    o.insert(QStringLiteral("lifecycle"),
             procs.fromArchiveList(node) ? QStringLiteral("archive") : QStringLiteral("live"));
    const bool loaded = childrenLoaded(node);
    o.insert(QStringLiteral("childrenLoaded"), loaded);
    o.insert(QStringLiteral("children"), loaded ? QJsonValue(qint64(node->children.size())) : QJsonValue(QJsonValue::Null));
    out->append(o);
    for (const FolderTree::Node *child : node->children)
        addNode(child, depth + 1, procs, childrenLoaded, out);
}

} // namespace

QString jsonLine(const QJsonObject &object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)) + QLatin1Char('\n');
}

QString databasesJson(const QList<DatabaseRow> &rows)
{
    QJsonArray array;
    for (const DatabaseRow &row : rows) {
        QJsonObject o;
        o.insert(QStringLiteral("name"), row.name);
        o.insert(QStringLiteral("type"), orNull(row.type));
        o.insert(QStringLiteral("live"), orNull(row.live));
        array.append(o);
    }
    return render(array);
}

QString treeJson(const FolderTree &tree, const TreeProcs &procs,
                 const std::function<bool(const FolderTree::Node *)> &childrenLoaded)
{
    QJsonArray array;
    for (int i = 1; i <= tree.count(); ++i) {
        const FolderTree::Node *n = tree.node(i);
        if (!n->parent)
            addNode(n, 0, procs, childrenLoaded, &array);
    }
    return render(array);
}

} // namespace cli
