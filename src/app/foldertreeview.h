#pragma once
// tvDefaultRoot: a tree view over the FolderTree model with tick boxes and the drawn image list.
// The model is the truth; the view follows its expansion and selection and reports the two
// things a person does to it: ticking a box, and clicking a node (its label or row, not the box).
// The keyboard does both as well: Space ticks; Enter, and Right on a closed node, click it.

#include "tree/foldertree.h"

#include <QStyledItemDelegate>
#include <QTreeView>

namespace app {

// Adds each node's picture (ImageRole) to what the view draws.
class FolderItemDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    // The option a row is drawn with, starting from the view's own.
    QStyleOptionViewItem optionFor(const QStyleOptionViewItem &viewOption, const QModelIndex &index) const
    {
        QStyleOptionViewItem option = viewOption;
        initStyleOption(&option, index);
        return option;
    }

protected:
    void initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const override;
};

class FolderTreeView : public QTreeView {
    Q_OBJECT
public:
    explicit FolderTreeView(QWidget *parent = nullptr);

    void setFolderTree(tree::FolderTree *tree);
    tree::FolderTree *folderTree() const { return m_tree; }

    // Where a node's row, label and tick box are drawn (viewport coordinates): for a person's
    // click, and for tests that click like one.
    QRect rowRect(const tree::FolderTree::Node *node) const;
    QRect checkBoxRect(const tree::FolderTree::Node *node) const;

    // Brings the view in line with the node's expansion and the model's selection.
    void syncNode(const tree::FolderTree::Node *node);

signals:
    void nodeClicked(tree::FolderTree::Node *node);
    void nodeTicked(tree::FolderTree::Node *node);

protected:
    void mouseReleaseEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void currentChanged(const QModelIndex &current, const QModelIndex &previous) override;

private:
    void onTickChanged(int nodeIndex);
    void onClicked(const QModelIndex &index);

    tree::FolderTree *m_tree = nullptr;
    bool m_inRelease = false;
    bool m_tickInRelease = false;
    bool m_followingModel = false;
};

} // namespace app
