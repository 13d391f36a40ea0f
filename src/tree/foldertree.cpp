#include "tree/foldertree.h"

#include "errors/hunterr.h"

#include <QStringList>

#include <algorithm>
#include <functional>
#include <unordered_map>
#include <unordered_set>

namespace tree {

FolderTree::FolderTree(QObject *parent)
    : QAbstractItemModel(parent)
{
}

FolderTree::~FolderTree() = default;

FolderTree::Node *FolderTree::node(int index) const
{
    if (index < 1 || index > count())
        HuntERR::raise(HuntERR::ERR_INDEX_OUT_OF_BOUNDS, QStringLiteral("Index out of bounds"));
    return m_nodes[size_t(index - 1)].get();
}

FolderTree::Node *FolderTree::find(const QString &key) const
{
    return m_byKey.value(key, nullptr);
}

FolderTree::Node *FolderTree::byKey(const QString &key) const
{
    Node *found = find(key);
    if (!found)
        HuntERR::raise(HuntERR::ERR_ELEMENT_NOT_FOUND, QStringLiteral("Element not found"));
    return found;
}

FolderTree::Node *FolderTree::add(const QString &relativeKey, const QString &key, const QString &text, int image)
{
    Node *parentNode = relativeKey.isEmpty() ? nullptr : byKey(relativeKey);
    if (m_byKey.contains(key))
        HuntERR::raise(HuntERR::ERR_KEY_NOT_UNIQUE, QStringLiteral("Key is not unique in collection"));

    auto created = std::make_unique<Node>();
    Node *n = created.get();
    n->key = key;
    n->text = text;
    n->image = image;
    n->parent = parentNode;
    n->index = count() + 1;

    std::vector<Node *> &siblings = parentNode ? parentNode->children : m_roots;
    const int row = int(siblings.size());
    n->row = row;
    beginInsertRows(parentNode ? indexOf(parentNode) : QModelIndex(), row, row);
    siblings.push_back(n);
    m_nodes.push_back(std::move(created));
    m_byKey.insert(key, n);
    endInsertRows();
    return n;
}

void FolderTree::remove(Node *n)
{
    if (!n)
        return;
    std::vector<Node *> &siblings = n->parent ? n->parent->children : m_roots;
    const int row = n->row;
    beginRemoveRows(n->parent ? indexOf(n->parent) : QModelIndex(), row, row);
    siblings.erase(siblings.begin() + row);
    renumberRows(siblings, size_t(row));
    eraseSubtrees({n});
    endRemoveRows();
}

void FolderTree::removeChildren(Node *n)
{
    if (!n || n->children.empty())
        return;
    beginRemoveRows(indexOf(n), 0, int(n->children.size()) - 1);
    std::vector<Node *> tops;
    tops.swap(n->children);
    eraseSubtrees(tops);
    endRemoveRows();
}

void FolderTree::removeNodes(const std::vector<Node *> &nodes)
{
    std::unordered_set<const Node *> listed(nodes.begin(), nodes.end());
    listed.erase(nullptr);
    // Only the tops matter: a listed node below another listed node goes with its ancestor.
    std::vector<Node *> tops;
    for (Node *n : nodes) {
        if (!n)
            continue;
        bool covered = false;
        for (const Node *p = n->parent; p && !covered; p = p->parent)
            covered = listed.count(p) != 0;
        if (!covered)
            tops.push_back(n);
    }
    if (tops.empty())
        return;
    std::sort(tops.begin(), tops.end());
    tops.erase(std::unique(tops.begin(), tops.end()), tops.end());

    // Per parent, the doomed rows go highest first in contiguous runs, so every signal describes
    // the rows as they stand at that moment.
    std::unordered_map<Node *, std::vector<int>> rowsByParent;
    std::vector<Node *> parents;
    for (Node *n : tops) {
        auto [it, fresh] = rowsByParent.try_emplace(n->parent);
        if (fresh)
            parents.push_back(n->parent);
        it->second.push_back(n->row);
    }
    for (Node *p : parents) {
        std::vector<int> &rows = rowsByParent[p];
        std::sort(rows.begin(), rows.end(), std::greater<int>());
        std::vector<Node *> &siblings = p ? p->children : m_roots;
        size_t i = 0;
        while (i < rows.size()) {
            const int last = rows[i];
            int first = last;
            while (i + 1 < rows.size() && rows[i + 1] == first - 1)
                first = rows[++i];
            ++i;
            beginRemoveRows(indexOf(p), first, last);
            siblings.erase(siblings.begin() + first, siblings.begin() + last + 1);
            renumberRows(siblings, size_t(first));
            endRemoveRows();
        }
    }
    eraseSubtrees(tops);
}

// Drops whole subtrees in one pass over the insertion order, so removing ten thousand children
// costs one compaction instead of one per child; the survivors keep their relative order.
void FolderTree::eraseSubtrees(const std::vector<Node *> &tops)
{
    std::unordered_set<const Node *> doomed;
    std::vector<Node *> stack(tops.begin(), tops.end());
    while (!stack.empty()) {
        Node *n = stack.back();
        stack.pop_back();
        doomed.insert(n);
        stack.insert(stack.end(), n->children.begin(), n->children.end());
    }
    if (m_selected && doomed.count(m_selected))
        m_selected = nullptr;
    if (m_dropHighlight && doomed.count(m_dropHighlight))
        m_dropHighlight = nullptr;

    size_t first = m_nodes.size();
    size_t out = 0;
    for (size_t in = 0; in < m_nodes.size(); ++in) {
        Node *n = m_nodes[in].get();
        if (doomed.count(n)) {
            first = std::min(first, in);
            m_byKey.remove(n->key);
            continue;
        }
        if (out != in)
            m_nodes[out] = std::move(m_nodes[in]);
        ++out;
    }
    m_nodes.resize(out);
    renumberFrom(std::min(first, m_nodes.size()));
}

void FolderTree::renumberRows(std::vector<Node *> &siblings, size_t from)
{
    for (size_t i = from; i < siblings.size(); ++i)
        siblings[i]->row = int(i);
}

void FolderTree::renumberFrom(size_t position)
{
    for (size_t i = position; i < m_nodes.size(); ++i)
        m_nodes[i]->index = int(i + 1);
}

void FolderTree::clear()
{
    beginResetModel();
    m_roots.clear();
    m_byKey.clear();
    m_nodes.clear();
    m_selected = nullptr;
    m_dropHighlight = nullptr;
    endResetModel();
}

QString FolderTree::fullPath(const Node *n) const
{
    QStringList parts;
    for (const Node *p = n; p; p = p->parent)
        parts.prepend(p->text);
    return parts.join(QLatin1Char('\\'));
}

void FolderTree::setChecked(Node *n, bool checked)
{
    if (n->checked == checked)
        return;
    n->checked = checked;
    const QModelIndex at = indexOf(n);
    emit dataChanged(at, at, {Qt::CheckStateRole});
}

void FolderTree::setCheckedMany(const std::vector<Node *> &nodes, bool checked)
{
    std::unordered_map<Node *, std::pair<int, int>> spans; // parent -> first and last changed row
    std::vector<Node *> parents;
    for (Node *n : nodes) {
        if (!n || n->checked == checked)
            continue;
        n->checked = checked;
        auto [it, fresh] = spans.try_emplace(n->parent, n->row, n->row);
        if (fresh) {
            parents.push_back(n->parent);
        } else {
            it->second.first = std::min(it->second.first, n->row);
            it->second.second = std::max(it->second.second, n->row);
        }
    }
    for (Node *p : parents) {
        const auto [first, last] = spans[p];
        const std::vector<Node *> &siblings = p ? p->children : m_roots;
        emit dataChanged(createIndex(first, 0, siblings[size_t(first)]), createIndex(last, 0, siblings[size_t(last)]),
                         {Qt::CheckStateRole});
    }
}

void FolderTree::setExpanded(Node *n, bool expanded)
{
    if (n->expanded == expanded)
        return;
    n->expanded = expanded;
    emit expandedChanged(n->index, expanded);
}

void FolderTree::setTag(Node *n, const QString &tag)
{
    n->tag = tag;
}

void FolderTree::setSelected(Node *n)
{
    if (m_selected == n)
        return;
    m_selected = n;
    emit selectionChanged(n ? n->index : 0);
}

int FolderTree::rowInParent(const Node *n) const
{
    return n->row;
}

QModelIndex FolderTree::indexOf(const Node *n) const
{
    if (!n)
        return {};
    return createIndex(rowInParent(n), 0, const_cast<Node *>(n));
}

FolderTree::Node *FolderTree::nodeAt(const QModelIndex &at) const
{
    return at.isValid() ? static_cast<Node *>(at.internalPointer()) : nullptr;
}

QModelIndex FolderTree::index(int row, int column, const QModelIndex &parentIndex) const
{
    if (column != 0 || row < 0)
        return {};
    const Node *p = nodeAt(parentIndex);
    const std::vector<Node *> &siblings = p ? p->children : m_roots;
    if (row >= int(siblings.size()))
        return {};
    return createIndex(row, 0, siblings[size_t(row)]);
}

QModelIndex FolderTree::parent(const QModelIndex &child) const
{
    const Node *n = nodeAt(child);
    return n ? indexOf(n->parent) : QModelIndex();
}

int FolderTree::rowCount(const QModelIndex &parentIndex) const
{
    if (parentIndex.column() > 0)
        return 0;
    const Node *p = nodeAt(parentIndex);
    return int(p ? p->children.size() : m_roots.size());
}

int FolderTree::columnCount(const QModelIndex &) const
{
    return 1;
}

QVariant FolderTree::data(const QModelIndex &at, int role) const
{
    const Node *n = nodeAt(at);
    if (!n)
        return {};
    switch (role) {
    case Qt::DisplayRole:
    case Qt::ToolTipRole:
        return n->text;
    case Qt::CheckStateRole:
        return n->checked ? Qt::Checked : Qt::Unchecked;
    case KeyRole:
        return n->key;
    case TagRole:
        return n->tag;
    case ImageRole:
        return n->image;
    case IndexRole:
        return n->index;
    default:
        return {};
    }
}

bool FolderTree::setData(const QModelIndex &at, const QVariant &value, int role)
{
    Node *n = nodeAt(at);
    if (!n || role != Qt::CheckStateRole)
        return false;
    setChecked(n, value.toInt() == Qt::Checked);
    emit tickChangedByUser(n->index);
    return true;
}

Qt::ItemFlags FolderTree::flags(const QModelIndex &at) const
{
    if (!at.isValid())
        return Qt::NoItemFlags;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable;
}

qint64 folderIdOfKey(const QString &key)
{
    QString id = key;
    id.remove(QStringLiteral("Fold"));
    id = id.trimmed();
    bool whole = false;
    const qint64 value = id.toLongLong(&whole);
    return whole ? value : qint64(id.toDouble());
}

} // namespace tree
