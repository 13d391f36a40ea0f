#pragma once
// The window's sign-in and tree gestures without a window: entering the database list, choosing a
// database and pressing "&OK", clicking and ticking nodes. Each step runs under the same event
// handler (and source name) as in the window, so the command line, the benchmarks and the tests
// reach exactly the state a person would.

#include "session/formport.h"
#include "session/signin.h"
#include "tree/foldertree.h"
#include "tree/treeprocs.h"

namespace session {

class HeadlessSession {
public:
    enum class Opened { Yes, Refused, InvalidDatabase, Failed };

    explicit HeadlessSession(PlainFormPort &port);

    // Server, user and password boxes filled, then the database list entered.
    bool fillDatabaseList(const QString &server, const QString &user, const QString &password);
    // The list entry matching database (ignoring case and blanks; else the text as given) chosen,
    // then "&OK": existence, pairing and the first level of the tree.
    Opened openDatabase(const QString &database);
    // Both of the above.
    Opened signIn(const QString &server, const QString &user, const QString &password, const QString &database);

    tree::FolderTree::Node *root() const;
    // A click on the node's label (reloads its children); the tree then reports the click.
    bool click(tree::FolderTree::Node *node);
    // A change of the node's tick box: the box changes, then the tree reports the check and the click.
    bool tick(tree::FolderTree::Node *node, bool ticked = true);
    // The child of parent whose name (node text) is name, or nullptr.
    tree::FolderTree::Node *child(const tree::FolderTree::Node *parent, const QString &name) const;

    PlainFormPort &port;
    SignIn signin;
    tree::FolderTree tree;
    tree::TreeProcs procs;
};

} // namespace session
