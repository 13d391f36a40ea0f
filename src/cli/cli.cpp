#include "cli/cli.h"

#include "cli/arguments.h"
#include "cli/destination.h"
#include "cli/jsonoutput.h"
#include "cli/logcheck.h"
#include "cli/progress.h"
#include "cli/terminal.h"

#include "demo/demorepository.h"
#include "errors/hunterr.h"
#include "export/exporter.h"
#include "session/headlesssession.h"
#include "repository/connection.h"
#include "session/signin.h"
#include "tree/foldertree.h"
#include "tree/treeprocs.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <memory>
#include <utility>
#include <vector>

namespace cli {

namespace {

constexpr int ExitDone = 0;
constexpr int ExitItemsFailed = 1;
constexpr int ExitError = 2;

const QString Prefix = QStringLiteral("parcelwise: ");

// Set by the error trail's shower: some event handler ended in an error report.
bool g_reportShown = false;

void printError(const QString &text)
{
    writeErr(Prefix + text + QLatin1Char('\n'));
}

int usageError(const QString &text, const QString &command)
{
    printError(text);
    writeErr(QStringLiteral("Try 'parcelwise") + (command.isEmpty() ? QString() : QLatin1Char(' ') + command)
             + QStringLiteral(" --help' for more information.\n"));
    return ExitError;
}

void installErrorShower()
{
    g_reportShown = false;
    HuntERR::setShower([](const QString &report) {
        g_reportShown = true;
        QString text = report;
        text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
        if (!text.endsWith(QLatin1Char('\n')))
            text += QLatin1Char('\n');
        writeErr(Prefix + QStringLiteral("error report:\n") + printable(text, true));
    });
    // Nobody is there to answer a step-mode question: never stop.
    HuntERR::setStopPrompt([](const QString &, const QString &) { return 2; });
    HuntERR::setPointerReset({});
}

// Validation messages go straight to stderr, in the order the procedures raise them; the rest of
// the window's surface is kept as plain values.
class CommandLinePort : public PlainFormPort {
public:
    void message(const QString &text) override
    {
        PlainFormPort::message(text);
        printError(printable(text, true));
    }
};

// Runs a step of the window's event handlers under the handler's error path.
template <class F>
bool handled(const QString &source, F &&body)
{
    const bool ok = HuntERR::handler(source, std::forward<F>(body));
    return ok && !g_reportShown;
}

// The window's gestures without a window. A click is made at most once per node, as a user
// opening the way to a folder would: clicking again would throw away the ticks below it.
class Session {
public:
    CommandLinePort port;
    HeadlessSession headless{port};
    SignIn &signIn = headless.signin;
    FolderTree &tree = headless.tree;
    TreeProcs &procs = headless.procs;

    bool fillDatabaseList(const QString &server, const QString &user, const QString &password)
    {
        return headless.fillDatabaseList(server, user, password) && !g_reportShown;
    }

    bool openDatabase(const QString &database)
    {
        switch (headless.openDatabase(database)) {
        case HeadlessSession::Opened::Yes:
            return !g_reportShown;
        case HeadlessSession::Opened::Refused:
            if (port.messages.isEmpty())
                printError(QStringLiteral("the sign-in was refused"));
            return false;
        case HeadlessSession::Opened::InvalidDatabase:
            if (port.messages.isEmpty())
                printError(QStringLiteral("Invalid database selected"));
            return false;
        case HeadlessSession::Opened::Failed:
            break;
        }
        return false;
    }

    FolderTree::Node *root() const { return headless.root(); }

    bool open(FolderTree::Node *node)
    {
        if (m_opened.contains(node->key))
            return true;
        m_opened.insert(node->key);
        return headless.click(node) && !g_reportShown;
    }

    bool tick(FolderTree::Node *node) { return headless.tick(node) && !g_reportShown; }
    bool opened(const FolderTree::Node *node) const { return m_opened.contains(node->key); }

private:
    QSet<QString> m_opened;
};

struct SignInValues {
    QString server;
    QString user;
    QString password;
};

// The password never comes from the arguments: stdin on request, else the environment.
bool readSignIn(const Parsed &p, SignInValues *values)
{
    values->server = p.value(QStringLiteral("--server"));
    values->user = p.value(QStringLiteral("--user"));
    if (p.has(QStringLiteral("--password-stdin"))) {
        if (!readStdinLine(&values->password)) {
            printError(QStringLiteral("--password-stdin was given but standard input holds no line "
                                      "(send an empty line for an empty password)"));
            return false;
        }
    } else {
        values->password = qEnvironmentVariable("PARCELWISE_PASSWORD");
    }
    return true;
}

QString displayId(const FolderTree::Node *node)
{
    return QString::number(qint64(folderIdOfKey(node->key)));
}

// --- databases -----------------------------------------------------------------------------

int runDatabases(const Parsed &p)
{
    SignInValues values;
    if (!readSignIn(p, &values))
        return ExitError;
    Session session;
    if (!session.fillDatabaseList(values.server, values.user, values.password))
        return ExitError;

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
        return ExitError;
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

// --- tree ----------------------------------------------------------------------------------

// The sign-in values, the database list, then the database of --database.
bool signInTo(const Parsed &p, Session &session)
{
    SignInValues values;
    return readSignIn(p, &values) && session.fillDatabaseList(values.server, values.user, values.password)
        && session.openDatabase(p.value(QStringLiteral("--database")));
}

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
        return ExitError;

    const bool json = p.has(QStringLiteral("--json"));
    FolderTree::Node *root = session.root();
    if (!root) {
        if (json)
            writeOut(QStringLiteral("[]\n"));
        printError(QStringLiteral("the database has no root folder"));
        return ExitDone;
    }
    if (!clickDown(session, root, depth))
        return ExitError;
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

// --- export --------------------------------------------------------------------------------

// The child of parent that a path segment names: the exact name, else the only name that differs
// in letter case or surrounding blanks.
FolderTree::Node *childNamed(const FolderTree::Node *parent, const QString &segment, QString *error)
{
    QList<FolderTree::Node *> exact, loose;
    for (FolderTree::Node *child : parent->children) {
        if (child->text == segment)
            exact << child;
        else if (child->text.trimmed().compare(segment.trimmed(), Qt::CaseInsensitive) == 0)
            loose << child;
    }
    const QList<FolderTree::Node *> &found = exact.isEmpty() ? loose : exact;
    if (found.size() == 1)
        return found.first();
    if (found.size() > 1) {
        QStringList ids;
        for (const FolderTree::Node *n : found)
            ids << displayId(n);
        *error = QStringLiteral("\"%1\" names %2 folders (ids %3)").arg(segment).arg(found.size()).arg(ids.join(QStringLiteral(", ")));
    }
    return nullptr;
}

// Clicks down the path and returns the folder it names; error names the first missing segment.
// A folder whose own name holds "/" is found by its whole name: at each level the longest run of
// segments that names a child wins.
FolderTree::Node *resolve(Session &session, const QString &path, QString *error)
{
    const QStringList segments = path.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    if (segments.isEmpty()) {
        *error = QStringLiteral("--folder needs a folder path below the root, such as \"Projects/Plans\"");
        return nullptr;
    }
    FolderTree::Node *current = session.root();
    if (!current) {
        *error = QStringLiteral("the database has no root folder");
        return nullptr;
    }
    qsizetype i = 0;
    while (i < segments.size()) {
        if (!session.open(current))
            return nullptr;
        FolderTree::Node *next = nullptr;
        QString ambiguity;
        qsizetype used = 0;
        // Only as many segments as the child names with the most "/" can hold are ever joined, so
        // a long path costs time in proportion to its length.
        qsizetype longest = 1;
        for (const FolderTree::Node *child : current->children)
            longest = qMax(longest, child->text.count(QLatin1Char('/')) + 1);
        for (qsizetype take = qMin(segments.size() - i, longest); take >= 1 && !next && ambiguity.isEmpty(); --take) {
            next = childNamed(current, segments.mid(i, take).join(QLatin1Char('/')), &ambiguity);
            used = take;
        }
        if (!next) {
            const QString where = i == 0 ? QStringLiteral("below the root folder")
                                         : QStringLiteral("in \"") + segments.mid(0, i).join(QLatin1Char('/'))
                    + QLatin1Char('"');
            if (!ambiguity.isEmpty())
                *error = QStringLiteral("folder path \"%1\" is ambiguous: %2 %3").arg(path, ambiguity, where);
            else
                *error = QStringLiteral("folder path \"%1\" not found: no folder \"%2\" %3").arg(path, segments[i], where);
            *error = printable(*error);
            return nullptr;
        }
        current = next;
        i += used;
    }
    return current;
}

QString absoluteNative(const QString &path)
{
    return QDir::toNativeSeparators(QDir::cleanPath(QFileInfo(path).absoluteFilePath()));
}

// The summary line; it names only a log that holds lines of this run.
void printSummary(const Exporter &exporter, const QString &openedLog, bool dryRun, double seconds,
                  const QString &destinationNote)
{
    const Exporter::Stats &stats = exporter.stats;
    QString logPath = QStringLiteral("none");
    if (stats.failures > 0 && dryRun) {
        logPath = QStringLiteral("none (dry run)");
    } else if (stats.failures > 0 || !openedLog.isEmpty()) {
        const qsizetype lost = exporter.unloggedLines.size();
        const QString written = !exporter.ExportLogPath.isEmpty() ? exporter.ExportLogPath : openedLog;
        if (stats.failures > lost && QFileInfo(written).isFile())
            logPath = printable(QDir::toNativeSeparators(written));
        if (lost > 0)
            logPath += QStringLiteral(" (%1 failures could not be logged; they are shown above)").arg(lost);
    }
    writeErr(QStringLiteral("%1%2 folders, %3 documents, %4 bytes (%5), %6 failures, %7 s; log: %8\n")
                 .arg(dryRun ? QStringLiteral("Dry run, nothing written: would export ") : QStringLiteral("Exported "))
                 .arg(stats.folders)
                 .arg(stats.documents)
                 .arg(stats.bytes)
                 .arg(humanBytes(stats.bytes))
                 .arg(stats.failures)
                 .arg(QString::number(seconds, 'f', 1))
                 .arg(logPath + destinationNote));
}

int runExport(const Parsed &p)
{
    const QStringList folders = p.values.value(QStringLiteral("--folder"));
    const bool all = p.has(QStringLiteral("--all"));
    if (folders.isEmpty() && !all)
        return usageError(QStringLiteral("say what to export: --folder PATH (repeatable) or --all"), p.command);
    if (!folders.isEmpty() && all)
        return usageError(QStringLiteral("--folder and --all cannot be combined"), p.command);
    if (!p.has(QStringLiteral("--dest")))
        return usageError(QStringLiteral("missing --dest DIR"), p.command);
    if (p.has(QStringLiteral("--progress")) && p.has(QStringLiteral("--no-progress")))
        return usageError(QStringLiteral("--progress and --no-progress cannot be combined"), p.command);

    OutputFolders output;
    QString outputError;
    const QString logText = p.value(QStringLiteral("--log-dir"));
    if (!checkOutputFolders(p.value(QStringLiteral("--dest")), p.has(QStringLiteral("--log-dir")) ? &logText : nullptr,
                            &output, &outputError)) {
        printError(outputError);
        return ExitError;
    }
    const QString destination = output.dest.path;
    const QString logDir = output.log.path;
    const bool dryRun = p.has(QStringLiteral("--dry-run"));
    QString logProblem;
    if (!dryRun && !logFolderTakesLines(logDir, &logProblem)) {
        printError(printable(logProblem));
        return ExitError;
    }
    const bool progress = p.has(QStringLiteral("--progress"))
        || (!p.has(QStringLiteral("--no-progress")) && stderrIsTerminal());

    Session session;
    if (!signInTo(p, session))
        return ExitError;

    // Every path is resolved and ticked before anything is written: a typo must not leave half
    // an export behind.
    if (all) {
        FolderTree::Node *root = session.root();
        if (!root) {
            printError(QStringLiteral("the database has no root folder"));
            return ExitError;
        }
        if (!session.open(root))
            return ExitError;
        const std::vector<FolderTree::Node *> children = root->children;
        for (FolderTree::Node *child : children) {
            if (!session.tick(child))
                return ExitError;
        }
    } else {
        for (const QString &path : folders) {
            QString error;
            FolderTree::Node *node = resolve(session, path, &error);
            if (!node) {
                if (!error.isEmpty())
                    printError(error);
                return ExitError;
            }
            if (!session.tick(node))
                return ExitError;
        }
    }

    // Created only now: a refused run leaves nothing behind, and a dry run writes nothing.
    if (!dryRun && !createOutputFolders(output, &outputError)) {
        printError(outputError);
        return ExitError;
    }
    session.signIn.DestinationPath = destination;
    Exporter exporter(session.signIn, session.procs);
    ExportReporter reporter(destination, progress, dryRun);
    exporter.dryRun = dryRun;
    // A dry run's listing starts with the directories the real run would create for --dest.
    exporter.dryRunMadeDirectories = dryRun ? directoriesToMake(output.dest) : QStringList();
    for (const QString &made : std::as_const(exporter.dryRunMadeDirectories))
        writeOut(QStringLiteral("mkdir   ") + made + QLatin1Char('\n'));
    exporter.logFolderOverride = logDir;
    exporter.observer = &reporter;
    const bool ok = handled(QStringLiteral("FrmSendtofolder.cmdStart_Click"), [&] { exporter.run(); });
    reporter.finish();

    const bool logged = exporter.stats.failures > 0 || !session.port.openedLog.isEmpty();
    printSummary(exporter, session.port.openedLog, dryRun, reporter.elapsedSeconds(),
                 destinationNote(output.dest, dryRun));
    if (!ok)
        return ExitError;
    return logged ? ExitItemsFailed : ExitDone;
}

// --- demo ----------------------------------------------------------------------------------

int runDemo(const Parsed &p)
{
    const QString dir = p.positionals.value(0);
    if (dir.trimmed().isEmpty())
        return usageError(QStringLiteral("missing DIR"), p.command);
    QString error;
    if (!writeDemoRepository(dir, &error)) {
        printError(QStringLiteral("cannot write the demo repository into \"%1\": %2").arg(dir, error));
        return ExitError;
    }
    writeOut(QStringLiteral("Demo repository written to %1\n"
                            "Sign in with --server %2 --user demo (empty password), for example:\n"
                            "  parcelwise databases --server %2 --user demo\n")
                 .arg(absoluteNative(dir), QDir::toNativeSeparators(dir)));
    return ExitDone;
}

// --- dispatch ------------------------------------------------------------------------------

int dispatch(const QStringList &args)
{
    const ParseResult result = parseArguments(args);
    if (!result.error.isEmpty()) {
        writeErr(Prefix + result.error + QLatin1Char('\n'));
        return ExitError;
    }
    const Parsed &p = result.parsed;
    if (p.version) {
        writeOut(versionText());
        return ExitDone;
    }
    const CommandDef *def = p.command.isEmpty() ? &toolSpec() : findCommand(p.command);
    if (p.help) {
        writeOut(helpText(*def));
        return ExitDone;
    }
    if (p.command.isEmpty())
        return usageError(QStringLiteral("no command given"), QString());

    if (p.has(QStringLiteral("--trace-sql"))) {
        const QString trace = p.value(QStringLiteral("--trace-sql"));
        QFile probe(trace);
        if (trace.trimmed().isEmpty() || !probe.open(QIODevice::WriteOnly | QIODevice::Append)) {
            printError(QStringLiteral("cannot write the SQL trace to \"%1\": %2").arg(trace, probe.errorString()));
            return ExitError;
        }
        probe.close();
        repo::setTraceFile(QFileInfo(trace).absoluteFilePath());
    }

    installErrorShower();
    if (p.command == QLatin1String("databases"))
        return runDatabases(p);
    if (p.command == QLatin1String("tree"))
        return runTree(p);
    if (p.command == QLatin1String("export"))
        return runExport(p);
    return runDemo(p);
}

} // namespace

} // namespace cli

bool isCommandLine(int argc, char **argv)
{
    QStringList args;
    for (int i = 1; i < argc; ++i)
        args << QString::fromLocal8Bit(argv[i]);
    return cli::looksLikeCommandLine(args);
}

int runCommandLine(int argc, char **argv)
{
    std::unique_ptr<QCoreApplication> app;
    if (!QCoreApplication::instance())
        app = std::make_unique<QCoreApplication>(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("parcelwise"));
    QCoreApplication::setApplicationVersion(QStringLiteral("%1.%2.%3")
                                                .arg(PARCELWISE_VERSION_MAJOR)
                                                .arg(PARCELWISE_VERSION_MINOR)
                                                .arg(PARCELWISE_VERSION_PATCH));
    QStringList args = QCoreApplication::arguments();
    if (!args.isEmpty())
        args.removeFirst();

    int status = cli::ExitError;
    try {
        status = cli::dispatch(args);
    } catch (const std::exception &e) {
        cli::printError(QStringLiteral("unexpected failure: ") + QString::fromLocal8Bit(e.what()));
        status = cli::ExitError;
    } catch (...) {
        cli::printError(QStringLiteral("unexpected failure"));
        status = cli::ExitError;
    }
    HuntERR::setShower({});
    HuntERR::setStopPrompt({});
    // Output that did not arrive (a full disk behind a redirection) is a failure too.
    if (!cli::flushOutput() && status == cli::ExitDone)
        status = cli::ExitError;
    return status;
}
