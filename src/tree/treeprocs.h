#pragma once
// The folder tree's procedures: building the first level, loading a folder's children when it is
// clicked (live and archive), tick propagation and the relative path of a ticked node. They work on
// the FolderTree model and the sign-in state; the window and the command line both drive them.

#include "tree/foldertree.h"
#include "tree/treesession.h"

#include <QSet>

namespace tree {

// Image list indices (1-based) the loaders choose.
namespace TreeImage {
constexpr int Root = 1;
constexpr int Site = 2;
constexpr int Cabinet = 3;
constexpr int FirstFolder = 4;  // icon id 1 .. 11 -> 4 .. 14
constexpr int Recycle = 15;
constexpr int Admin = 16;
constexpr int ArchiveFolder1 = 17;
constexpr int ArchiveUnused = 18; // never chosen
constexpr int ArchiveFolder2and3 = 19;
constexpr int ArchiveFirstFolder4 = 20; // icon id 4 .. 11 -> 20 .. 27
constexpr int ArchiveSite = 28;
constexpr int ArchiveCabinet = 29;
constexpr int Count = 29;
} // namespace TreeImage


class TreeProcs {
public:
    TreeProcs(SessionState &signIn, FolderTree &tree);

    FolderTree &tree() { return m_tree; }
    SessionState &signIn() { return m_signIn; }

    // Tree building.
    void Load_Trees();
    void loadSitesFolders1();
    void loadSitesAndCabinets1(FolderTree &sstTreeView, qint64 lngStartFolderID);

    // Child loading.
    void loadChildren(const QString &parentnode);
    void loadChildrenArchive(const QString &parentnode);

    // Tick propagation and node paths.
    void SelectAllChild(int nodeIdx);
    void DeSelectAllChild(int nodeIdx);

    // Tree events, each under its own event-handler error path (the error window shows a failure).
    // They return false when the handler failed.
    bool tvDefaultRoot_NodeClick(FolderTree::Node *node);
    bool tvDefaultRoot_NodeCheck(FolderTree::Node *node);
    bool tvDefaultRoot_Click();

    // True when the node came from the archived folder list of an archive view (its picture
    // alone cannot tell: a row without a usable icon keeps the previous row's picture).
    bool fromArchiveList(const FolderTree::Node *node) const { return m_archiveListKeys.contains(node->key); }
    // The folder's name as the repository stores it (the root's text is decorated).
    QString storedName(const FolderTree::Node *node) const { return node->key == m_rootKey ? m_rootName : node->tag; }

    int dblCheckedNodeIdx = 0; // the node whose tick changed last

private:
    void setAllChildren(int nodeIdx, bool ticked);

    SessionState &m_signIn;
    FolderTree &m_tree;
    QSet<QString> m_archiveListKeys;
    QString m_rootKey;
    QString m_rootName;
};

} // namespace tree
