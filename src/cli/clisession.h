#pragma once
// What every command shares: exit statuses, messages on standard error, the error trail's
// reports printed instead of shown, and the window's gestures without a window (sign-in,
// clicks and ticks), each made under the handler of the window's own event.

#include "cli/arguments.h"
#include "errors/hunterr.h"
#include "session/formport.h"
#include "session/headlesssession.h"
#include "session/signin.h"
#include "tree/foldertree.h"
#include "tree/treeprocs.h"

#include <QSet>

#include <utility>

namespace cli {

constexpr int ExitDone = 0;
constexpr int ExitItemsFailed = 1;
constexpr int ExitError = 2;        // usage, or a local problem (destination, log, report)
constexpr int ExitSignInRefused = 3; // login failed; database not in the catalogue or not accessible
constexpr int ExitUnreachable = 4;   // no server answered
constexpr int ExitNotRepository = 5; // the database lacks the repository's tables or its statements fail

void printError(const QString &text);
// The exit status that the first failure told since installErrorShower (a validation message or
// an error report) stands for; ExitError when none was told.
int failureStatus();
int usageError(const QString &text, const QString &command);
// The value of option, when given, as a whole number from low to high into *value; otherwise the
// usage error "OPTION needs WHAT from LOW to HIGH, not "TEXT"" and false (*status: its exit status).
bool wholeNumberOption(const Parsed &p, const QString &option, const char *what, int low, int high, int *value,
                       int *status);
// The error trail's reports go to standard error; step mode never stops to ask. command: the
// command run, for the hint after a usage error.
void installErrorShower(const QString &command = {});
// Some event handler ended in an error report since installErrorShower.
bool reportShown();

// Validation messages go straight to stderr, in the order the procedures raise them; the rest of
// the window's surface is kept as plain values.
class CommandLinePort : public session::PlainFormPort {
public:
    void message(const QString &text) override;
};

// Runs a step of the window's event handlers under the handler's error path.
template <class F>
bool handled(const QString &source, F &&body)
{
    const bool ok = HuntERR::handler(source, std::forward<F>(body));
    return ok && !reportShown();
}

// The window's gestures without a window. A click is made at most once per node, as a user
// opening the way to a folder would: clicking again would throw away the ticks below it.
class Session {
public:
    CommandLinePort port;
    session::HeadlessSession headless{port};
    session::SignIn &signIn = headless.signin;
    tree::FolderTree &tree = headless.tree;
    tree::TreeProcs &procs = headless.procs;

    bool fillDatabaseList(const QString &server, const QString &user, const QString &password);
    bool openDatabase(const QString &database);
    tree::FolderTree::Node *root() const { return headless.root(); }
    bool open(tree::FolderTree::Node *node);
    bool tick(tree::FolderTree::Node *node) { return headless.tick(node) && !reportShown(); }
    bool opened(const tree::FolderTree::Node *node) const { return m_opened.contains(node->key); }

private:
    QSet<QString> m_opened;
};

struct SignInValues {
    QString server;
    QString user;
    QString password;
};

// The password never comes from the arguments: stdin or a file on request, else the environment.
bool readSignIn(const Parsed &p, SignInValues *values);
// The sign-in values, the database list, then the database of --database.
bool signInTo(const Parsed &p, Session &session);

QString displayId(const tree::FolderTree::Node *node);
QString absoluteNative(const QString &path);

int runDatabases(const Parsed &p);
int runTree(const Parsed &p);
int runExport(const Parsed &p);
int runVerify(const Parsed &p);

} // namespace cli
