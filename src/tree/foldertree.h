#pragma once
// The folder tree: the one truth about nodes. Nodes keep the order in which they were added;
// their indices are 1-based in that order and close up when nodes are removed, so a parent always
// comes before its children. The model is also a QAbstractItemModel, so a view mirrors it.

#include <QAbstractItemModel>
#include <QString>

#include <memory>
#include <vector>

namespace tree {

class FolderTree : public QAbstractItemModel {
    Q_OBJECT
public:
    struct Node {
        QString key;
        QString text;
        QString tag;
        int image = 0;
        bool checked = false;
        bool expanded = false;
        Node *parent = nullptr;
        std::vector<Node *> children;
        int index = 0; // 1-based position in insertion order
        int row = 0;   // position among its siblings, kept exact so model indices cost O(1)
    };

    enum Role {
        KeyRole = Qt::UserRole + 1,
        TagRole,
        ImageRole,
        IndexRole,
    };

    explicit FolderTree(QObject *parent = nullptr);
    ~FolderTree() override;

    int count() const { return int(m_nodes.size()); }
    // Node by 1-based index; ERR_INDEX_OUT_OF_BOUNDS when there is none.
    Node *node(int index) const;
    Node *find(const QString &key) const; // nullptr when absent
    // Node by key; ERR_ELEMENT_NOT_FOUND when absent.
    Node *byKey(const QString &key) const;

    // Adds a node as last child of the node keyed relativeKey (a root when relativeKey is empty).
    // A key already present: ERR_KEY_NOT_UNIQUE; an unknown parent: ERR_ELEMENT_NOT_FOUND.
    Node *add(const QString &relativeKey, const QString &key, const QString &text, int image);
    void remove(Node *node);        // with its whole subtree
    void removeChildren(Node *node); // as removing the first child until none is left
    // Removes every listed node with its subtree in one compaction (nodes inside a listed subtree
    // may be listed too); the result is that of removing them one by one from the highest index down.
    void removeNodes(const std::vector<Node *> &nodes);
    void clear();

    QString fullPath(const Node *node) const; // texts from the top down, joined by "\"
    Node *firstChild(const Node *node) const { return node->children.empty() ? nullptr : node->children.front(); }

    void setChecked(Node *node, bool checked);
    // Ticks many nodes with one change notice per run of siblings, so a view is not asked to
    // find ten thousand rows one at a time.
    void setCheckedMany(const std::vector<Node *> &nodes, bool checked);
    void setExpanded(Node *node, bool expanded);
    void setTag(Node *node, const QString &tag);

    Node *selected() const { return m_selected; }
    void setSelected(Node *node);
    Node *dropHighlight() const { return m_dropHighlight; }
    void setDropHighlight(Node *node) { m_dropHighlight = node; }

    QModelIndex indexOf(const Node *node) const;
    Node *nodeAt(const QModelIndex &index) const;

    // QAbstractItemModel
    QModelIndex index(int row, int column, const QModelIndex &parent = {}) const override;
    QModelIndex parent(const QModelIndex &child) const override;
    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex &index, const QVariant &value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

signals:
    // A tick box was changed from outside (the view); the window runs the tick handlers.
    void tickChangedByUser(int nodeIndex);
    void selectionChanged(int nodeIndex);
    void expandedChanged(int nodeIndex, bool expanded);

private:
    int rowInParent(const Node *node) const;
    void renumberFrom(size_t position);
    static void renumberRows(std::vector<Node *> &siblings, size_t from);
    void eraseSubtrees(const std::vector<Node *> &tops);

    std::vector<std::unique_ptr<Node>> m_nodes; // insertion order
    QHash<QString, Node *> m_byKey;
    std::vector<Node *> m_roots;
    Node *m_selected = nullptr;
    Node *m_dropHighlight = nullptr;
};

// The folder id of a key: the key with every "Fold" removed, as a number.
qint64 folderIdOfKey(const QString &key);

} // namespace tree
