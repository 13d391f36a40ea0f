// The listings: the catalogue's databases and the folder tree, as tables for eyes or as JSON.

#include "cli/clisession.h"
#include "cli/jsonoutput.h"
#include "cli/terminal.h"

#include <vector>

using tree::FolderTree;

namespace cli {

namespace {

bool clickDown(Session &session, FolderTree::Node *node, int levels)
{
    if (levels <= 0)
        return true;
    if (!session.open(node))
        return false;
    const std::vector<FolderTree::Node *> children = node->children;
    for (FolderTree::Node *child : children) {
        if (!clickDown(session, child, levels - 1))
            return false;
    }
    return true;
}

void printNode(const FolderTree::Node *node, int depth, int idWidth, QString *out)
{
    *out += displayId(node).rightJustified(idWidth) + QStringLiteral("  ") + QString(depth * 2, QLatin1Char(' '))
        + printable(node->text) + QLatin1Char('\n');
    for (const FolderTree::Node *child : node->children)
        printNode(child, depth + 1, idWidth, out);
}

} // namespace

int runDatabases(const Parsed &p)
{
    SignInValues values;
    if (!readSignIn(p, &values))
        return failureStatus();
    Session session;
    if (!session.fillDatabaseList(values.server, values.user, values.password))
        return failureStatus();

    using Row = DatabaseRow;
    QList<Row> rows;
    const bool ok = handled(QStringLiteral("modCommandLine.listDatabases"), [&] {
        for (const QString &name : std::as_const(session.port.databases)) {
            Row row;
            row.name = printable(name);
            row.type = session.signIn.fxnGetDBType(name);
            if (row.type.toUpper() == QLatin1String("ARCHIVE")) {
                // The pairing is asked on the server's MASTER connection, which the existence
                // check opens, exactly as the sign-in asks it.
                session.signIn.fxnIsDBExists(name.trimmed());
                row.live = session.signIn.fxnGetLiveDb(correctQuotes(name));
            }
            rows << row;
        }
    });
    if (!ok)
        return failureStatus();
    if (p.has(QStringLiteral("--json"))) {
        writeOut(databasesJson(rows));
        return ExitDone;
    }
    if (rows.isEmpty()) {
        printError(QStringLiteral("the catalogue lists no databases"));
        return ExitDone;
    }

    const QString nameHeader = QStringLiteral("DATABASE");
    const QString typeHeader = QStringLiteral("TYPE");
    int nameWidth = int(nameHeader.size());
    int typeWidth = int(typeHeader.size());
    for (const Row &row : std::as_const(rows)) {
        nameWidth = qMax(nameWidth, int(row.name.size()));
        typeWidth = qMax(typeWidth, int(row.type.size()));
    }
    QString out = nameHeader.leftJustified(nameWidth) + QStringLiteral("  ") + typeHeader.leftJustified(typeWidth)
        + QStringLiteral("  LIVE DATABASE\n");
    auto orDash = [](const QString &text) { return text.isEmpty() ? QStringLiteral("-") : text; };
    for (const Row &row : std::as_const(rows)) {
        out += row.name.leftJustified(nameWidth) + QStringLiteral("  ") + orDash(row.type).leftJustified(typeWidth)
            + QStringLiteral("  ") + orDash(printable(row.live)) + QLatin1Char('\n');
    }
    writeOut(out);
    return ExitDone;
}

int runTree(const Parsed &p)
{
    int depth = 1;
    if (p.has(QStringLiteral("--depth"))) {
        bool ok = false;
        depth = p.value(QStringLiteral("--depth")).toInt(&ok);
        if (!ok || depth < 0)
            return usageError(QStringLiteral("--depth needs a whole number of 0 or more, not '")
                                  + p.value(QStringLiteral("--depth")) + QLatin1Char('\''),
                              p.command);
    }
    Session session;
    if (!signInTo(p, session))
        return failureStatus();

    const bool json = p.has(QStringLiteral("--json"));
    FolderTree::Node *root = session.root();
    if (!root) {
        if (json)
            writeOut(QStringLiteral("[]\n"));
        printError(QStringLiteral("the database has no root folder"));
        return ExitDone;
    }
    if (!clickDown(session, root, depth))
        return failureStatus();
    if (json) {
        writeOut(treeJson(session.tree, session.procs, [&](const FolderTree::Node *n) { return session.opened(n); }));
        return ExitDone;
    }

    int idWidth = 1;
    for (int i = 1; i <= session.tree.count(); ++i)
        idWidth = qMax(idWidth, int(displayId(session.tree.node(i)).size()));
    QString out;
    for (int i = 1; i <= session.tree.count(); ++i) {
        const FolderTree::Node *n = session.tree.node(i);
        if (!n->parent)
            printNode(n, 0, idWidth, &out);
    }
    writeOut(out);
    return ExitDone;
}

} // namespace cli
