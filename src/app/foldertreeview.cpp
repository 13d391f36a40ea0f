#include "app/foldertreeview.h"

#include "app/treeimages.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QScopedValueRollback>
#include <QStyle>

namespace app {

using tree::FolderTree;

void FolderItemDelegate::initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const
{
    QStyledItemDelegate::initStyleOption(option, index);
    const QIcon picture = TreeImages::icon(index.data(FolderTree::ImageRole).toInt());
    if (!picture.isNull()) {
        option->icon = picture;
        option->features |= QStyleOptionViewItem::HasDecoration;
    }
}

FolderTreeView::FolderTreeView(QWidget *parent)
    : QTreeView(parent)
{
    setHeaderHidden(true);
    setUniformRowHeights(true);
    setIconSize(QSize(16, 16));
    setEditTriggers(QAbstractItemView::NoEditTriggers); // nodes cannot be renamed
    setSelectionMode(QAbstractItemView::SingleSelection);
    // A click already loads and opens a node; a double-click must not close it again at once.
    setExpandsOnDoubleClick(false);
    setItemDelegate(new FolderItemDelegate(this));
    connect(this, &QTreeView::clicked, this, &FolderTreeView::onClicked);
}

void FolderTreeView::setFolderTree(FolderTree *tree)
{
    if (m_tree)
        disconnect(m_tree, nullptr, this, nullptr);
    m_tree = tree;
    setModel(tree);
    if (!tree)
        return;

    connect(tree, &FolderTree::tickChangedByUser, this, &FolderTreeView::onTickChanged);
    connect(tree, &FolderTree::visibleChanged, this, &QWidget::setVisible);
    connect(tree, &FolderTree::expandedChanged, this, [this](int nodeIndex, bool) {
        if (nodeIndex >= 1 && nodeIndex <= m_tree->count())
            syncNode(m_tree->node(nodeIndex));
    });
    connect(tree, &FolderTree::selectionChanged, this, [this](int nodeIndex) {
        const QScopedValueRollback<bool> following(m_followingModel, true);
        const FolderTree::Node *n = (nodeIndex >= 1 && nodeIndex <= m_tree->count()) ? m_tree->node(nodeIndex) : nullptr;
        const QModelIndex at = m_tree->indexOf(n);
        if (at.isValid()) {
            setCurrentIndex(at);
            scrollTo(at);
        } else {
            clearSelection();
        }
    });
    // A person opening or closing a branch with its arrow or the keyboard changes the node too.
    connect(this, &QTreeView::expanded, this, [this](const QModelIndex &at) {
        if (FolderTree::Node *n = m_tree->nodeAt(at))
            m_tree->setExpanded(n, true);
    });
    connect(this, &QTreeView::collapsed, this, [this](const QModelIndex &at) {
        if (FolderTree::Node *n = m_tree->nodeAt(at))
            m_tree->setExpanded(n, false);
    });
}

void FolderTreeView::syncNode(const FolderTree::Node *node)
{
    if (!m_tree || !node)
        return;
    const QModelIndex at = m_tree->indexOf(node);
    if (isExpanded(at) != node->expanded)
        setExpanded(at, node->expanded);
    if (m_tree->selected() == node && currentIndex() != at) {
        const QScopedValueRollback<bool> following(m_followingModel, true);
        setCurrentIndex(at);
    }
}

QRect FolderTreeView::rowRect(const FolderTree::Node *node) const
{
    return m_tree ? visualRect(m_tree->indexOf(node)) : QRect();
}

QRect FolderTreeView::checkBoxRect(const FolderTree::Node *node) const
{
    if (!m_tree || !node)
        return {};
    const QModelIndex at = m_tree->indexOf(node);
    QStyleOptionViewItem viewOption;
    initViewItemOption(&viewOption);
    viewOption.rect = visualRect(at);
    const auto *delegate = qobject_cast<const FolderItemDelegate *>(itemDelegateForIndex(at));
    if (!delegate)
        return {};
    const QStyleOptionViewItem option = delegate->optionFor(viewOption, at);
    const QWidget *widget = this;
    return style()->subElementRect(QStyle::SE_ItemViewItemCheckIndicator, &option, widget);
}

void FolderTreeView::mouseReleaseEvent(QMouseEvent *event)
{
    const QScopedValueRollback<bool> inRelease(m_inRelease, true);
    m_tickInRelease = false;
    QTreeView::mouseReleaseEvent(event);
}

void FolderTreeView::keyPressEvent(QKeyEvent *event)
{
    // A click loads a node's children; without these keys a keyboard user could never get below
    // the root. Right on an open node keeps moving to its first child, as in any tree: clicking
    // it again would reload the children and drop the ticks below it.
    FolderTree::Node *n = m_tree ? m_tree->nodeAt(currentIndex()) : nullptr;
    const int key = event->key();
    const bool enter = key == Qt::Key_Return || key == Qt::Key_Enter;
    const bool right = key == Qt::Key_Right && event->modifiers() == Qt::NoModifier;
    if (n && (enter || (right && !isExpanded(currentIndex())))) {
        event->accept();
        emit nodeClicked(n);
        return;
    }
    QTreeView::keyPressEvent(event);
}

void FolderTreeView::onTickChanged(int nodeIndex)
{
    if (m_inRelease)
        m_tickInRelease = true;
    if (nodeIndex >= 1 && nodeIndex <= m_tree->count())
        emit nodeTicked(m_tree->node(nodeIndex));
}

void FolderTreeView::onClicked(const QModelIndex &index)
{
    // The view reports a click on a tick box as a click as well; that one was a tick, not a
    // click on the node.
    if (m_tickInRelease)
        return;
    if (FolderTree::Node *n = m_tree ? m_tree->nodeAt(index) : nullptr)
        emit nodeClicked(n);
}

void FolderTreeView::currentChanged(const QModelIndex &current, const QModelIndex &previous)
{
    QTreeView::currentChanged(current, previous);
    if (m_tree && !m_followingModel)
        if (FolderTree::Node *n = m_tree->nodeAt(current))
            m_tree->setSelected(n);
}

} // namespace app
