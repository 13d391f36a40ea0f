#include "session/headlesssession.h"

#include "errors/hunterr.h"

namespace session {

using tree::FolderTree;

HeadlessSession::HeadlessSession(PlainFormPort &formPort)
    : port(formPort)
    , signin(formPort)
    , procs(signin, tree)
{
}

bool HeadlessSession::fillDatabaseList(const QString &server, const QString &user, const QString &password)
{
    port.server = server;
    port.user = user;
    port.password = password;
    const qsizetype before = port.messages.size();
    return HuntERR::handler(QStringLiteral("FrmSendtofolder.cboDBName_GotFocus"),
                            [&] { signin.refreshDatabaseList(); })
        && port.messages.size() == before;
}

HeadlessSession::Opened HeadlessSession::openDatabase(const QString &database)
{
    port.database = database;
    for (const QString &entry : std::as_const(port.databases)) {
        if (entry.trimmed().compare(database.trimmed(), Qt::CaseInsensitive) == 0) {
            port.database = entry;
            break;
        }
    }
    if (!HuntERR::handler(QStringLiteral("FrmSendtofolder.cboDBName_Click"), [&] { signin.cboDBName_Click(); }))
        return Opened::Failed;

    bool proceed = false;
    const bool ok = HuntERR::handler(QStringLiteral("FrmSendtofolder.cmdlogin_Click"), [&] {
        QString focus;
        proceed = signin.validateAndPrepare(&focus);
        if (proceed)
            procs.Load_Trees();
    });
    if (!ok)
        return Opened::Failed;
    if (!proceed)
        return Opened::Refused;
    if (signin.blnInvalidDb) {
        signin.blnInvalidDb = false;
        return Opened::InvalidDatabase;
    }
    return Opened::Yes;
}

HeadlessSession::Opened HeadlessSession::signIn(const QString &server, const QString &user, const QString &password,
                                                const QString &database)
{
    if (!fillDatabaseList(server, user, password))
        return Opened::Failed;
    return openDatabase(database);
}

FolderTree::Node *HeadlessSession::root() const
{
    for (int i = 1; i <= tree.count(); ++i)
        if (!tree.node(i)->parent)
            return tree.node(i);
    return nullptr;
}

bool HeadlessSession::click(FolderTree::Node *node)
{
    // The tree reports the click itself after the node's, as it does after a tick.
    const bool clicked = procs.tvDefaultRoot_NodeClick(node);
    return procs.tvDefaultRoot_Click() && clicked;
}

bool HeadlessSession::tick(FolderTree::Node *node, bool ticked)
{
    tree.setChecked(node, ticked);
    return procs.tvDefaultRoot_NodeCheck(node) && procs.tvDefaultRoot_Click();
}

FolderTree::Node *HeadlessSession::child(const FolderTree::Node *parent, const QString &name) const
{
    for (FolderTree::Node *c : parent->children)
        if (c->text == name)
            return c;
    return nullptr;
}

} // namespace session
