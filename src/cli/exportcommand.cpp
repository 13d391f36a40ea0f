// The export command: folder paths resolved and ticked as a person would tick them, the run,
// and its summary.

#include "cli/clisession.h"
#include "cli/destination.h"
#include "cli/interrupts.h"
#include "cli/jsonoutput.h"
#include "cli/logcheck.h"
#include "cli/progress.h"
#include "cli/terminal.h"

#include "export/exporter.h"
#include "export/exportreport.h"
#include "export/replaced.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonObject>

#include <vector>

using tree::FolderTree;
using exporting::ExportOptions;
using exporting::ExportResult;
using exporting::Exporter;
using exporting::ReportFile;

namespace cli {

namespace {

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

// Ticks --all's top folders or every --folder path. Every path is resolved and ticked before
// anything is written: a typo must not leave half an export behind.
bool tickFolders(Session &session, bool all, const QStringList &folders)
{
    if (all) {
        FolderTree::Node *root = session.root();
        if (!root) {
            printError(QStringLiteral("the database has no root folder"));
            return false;
        }
        if (!session.open(root))
            return false;
        const std::vector<FolderTree::Node *> children = root->children;
        for (FolderTree::Node *child : children) {
            if (!session.tick(child))
                return false;
        }
        return true;
    }
    for (const QString &path : folders) {
        QString error;
        FolderTree::Node *node = resolve(session, path, &error);
        if (!node) {
            if (!error.isEmpty())
                printError(error);
            return false;
        }
        if (!session.tick(node))
            return false;
    }
    return true;
}

// The log named in the summary: only one that holds lines of this run; "" when none.
QString summaryLog(const ExportResult &result, bool dryRun)
{
    if (dryRun || !result.anythingFailed())
        return {};
    const qsizetype lost = result.unloggedLines.size();
    return result.failures > lost && QFileInfo(result.logPath).isFile() ? QDir::toNativeSeparators(result.logPath)
                                                                         : QString();
}

void printSummary(const ExportResult &result, bool dryRun, double seconds, const QString &destinationNote,
                  const QString &stoppedBy)
{
    QString logPath = summaryLog(result, dryRun);
    if (result.failures > 0 && dryRun)
        logPath = QStringLiteral("none (dry run)");
    logPath = logPath.isEmpty() ? QStringLiteral("none") : printable(logPath);
    if (const qsizetype lost = result.unloggedLines.size(); lost > 0 && !dryRun)
        logPath += QStringLiteral(" (%1 could not be logged; they are shown above)").arg(counted(lost, "failure"));
    QString kept = result.kept > 0 ? QStringLiteral(" (%1 more unchanged)").arg(result.kept) : QString();
    if (result.skipped > 0)
        kept += QStringLiteral(" (%1 left out by --exclude or --since)").arg(result.skipped);
    // The connections the documents were fetched on; --jobs that quietly became fewer would look
    // like a slow server: say so.
    QString connections = QStringLiteral("; connections: %1").arg(result.connections);
    if (result.connections < result.jobs)
        connections += QStringLiteral(" of %1 (%2 could not connect: %3)")
                           .arg(result.jobs)
                           .arg(result.jobs - result.connections)
                           .arg(printable(result.connectionError));
    // Said only when it happened: a run that needed the retries went through a troubled link.
    if (result.statementsRetried > 0)
        connections += QStringLiteral("; %1 retried after the connection broke")
                           .arg(counted(result.statementsRetried, "statement"));
    writeErr(QStringLiteral("%1%2, %3%8, %4 bytes (%5), %6, %7 s; log: %9")
                 .arg(QString(stoppedBy.isEmpty() ? QString() : QStringLiteral("Stopped by %1: ").arg(stoppedBy))
                          + (dryRun ? QStringLiteral("Dry run, nothing written: would export ")
                                    : stoppedBy.isEmpty() ? QStringLiteral("Exported ") : QStringLiteral("exported ")),
                      counted(result.folders, "folder"), counted(result.documents, "document"))
                 .arg(result.bytes)
                 .arg(humanBytes(result.bytes), counted(result.failures, "failure"),
                      QString::number(seconds, 'f', 1), kept, logPath + destinationNote)
             + connections + QLatin1Char('\n'));
}

void printJson(const ExportResult &result, double seconds, const QString &report, int status)
{
    const QString log = summaryLog(result, false);
    QJsonObject o;
    o.insert(QStringLiteral("folders"), result.folders);
    o.insert(QStringLiteral("documents"), result.documents);
    o.insert(QStringLiteral("bytes"), result.bytes);
    o.insert(QStringLiteral("failures"), result.failures);
    o.insert(QStringLiteral("retries"), result.statementsRetried);
    // Connections the documents were fetched on, of those asked for: fewer when some could not connect.
    o.insert(QStringLiteral("connections"), result.connections);
    o.insert(QStringLiteral("jobs"), result.jobs);
    o.insert(QStringLiteral("seconds"), qRound(seconds * 10) / 10.0);
    o.insert(QStringLiteral("log"), log.isEmpty() ? QJsonValue() : QJsonValue(log));
    o.insert(QStringLiteral("report"), report.isEmpty() ? QJsonValue() : QJsonValue(absoluteNative(report)));
    o.insert(QStringLiteral("exitStatus"), status);
    writeOut(jsonLine(o));
}

// What the arguments ask of an export, checked before anything else happens.
// More connections than this only queue up at the server.
constexpr int kMaxJobs = 64;
// Enough documents on their way at once to hide most of a network's round trips, few enough to
// ask little of the server.
constexpr int kDefaultJobs = 4;

struct ExportRequest {
    QStringList folders;
    bool all = false;
    bool dryRun = false;
    bool replace = false;
    bool json = false;
    bool verbose = false;
    bool progress = false;
    bool reasons = true; // each failed item on stderr as it happens
    int jobs = kDefaultJobs;
    int retries = -1;     // -1: not given (the installation's setting holds)
    int retryWaitMs = -1;
    bool update = false;
    QString report; // "" when none is wanted
    OutputFolders output;
    QStringList exclude;
    QDateTime since; // invalid: no --since
};

// --since's DATE: a day (its start, local time) or a date and time; invalid when it is neither.
QDateTime sinceDate(const QString &text)
{
    const QDate day = QDate::fromString(text.trimmed(), Qt::ISODate);
    return day.isValid() ? day.startOfDay() : QDateTime::fromString(text.trimmed(), Qt::ISODate);
}

// What every run's log name starts with: this minute's name up to its date digits.
QString logNamePrefix()
{
    const QString name = exporting::exportLogNameFor(QDateTime::currentDateTime()).mid(1);
    return name.left(name.lastIndexOf(QLatin1Char(' ')) + 1);
}

// The log of some run (named by the minute) in the log folder: the run would append its lines
// to the report, or the report would replace an earlier run's log.
bool isLogFileName(const QString &report, const QString &logFolder)
{
    const QFileInfo file(report);
    const QString folder = logFolder.isEmpty() ? exporting::documentsFolder()
                                               : logFolder;
    return QFileInfo(file.absolutePath()) == QFileInfo(folder)
        && file.fileName().startsWith(logNamePrefix()) && file.fileName().endsWith(QLatin1String(".txt"));
}

int readRetries(const Parsed &p, ExportRequest *request)
{
    int refused = ExitDone;
    if (!wholeNumberOption(p, QStringLiteral("--retries"), "a whole number", 0, 100, &request->retries, &refused))
        return refused;
    if (p.has(QStringLiteral("--retry-wait"))) {
        bool ok = false;
        const QString text = p.value(QStringLiteral("--retry-wait")).trimmed();
        const double seconds = text.toDouble(&ok);
        if (!ok || !(seconds >= 0 && seconds <= 3600))
            return usageError(QStringLiteral("--retry-wait needs a number of seconds from 0 to 3600, not \"%1\"")
                                  .arg(printable(text)),
                              p.command);
        request->retryWaitMs = qRound(seconds * 1000);
    }
    return ExitDone;
}

int readRequest(const Parsed &p, ExportRequest *request)
{
    request->folders = p.values.value(QStringLiteral("--folder"));
    request->all = p.has(QStringLiteral("--all"));
    if (request->folders.isEmpty() && !request->all)
        return usageError(QStringLiteral("say what to export: --folder PATH (repeatable) or --all"), p.command);
    if (!request->folders.isEmpty() && request->all)
        return usageError(QStringLiteral("--folder and --all cannot be combined"), p.command);
    if (!p.has(QStringLiteral("--dest")))
        return usageError(QStringLiteral("missing --dest DIR"), p.command);
    if (p.has(QStringLiteral("--progress")) && p.has(QStringLiteral("--no-progress")))
        return usageError(QStringLiteral("--progress and --no-progress cannot be combined"), p.command);
    if (p.has(QStringLiteral("--replace")) && p.has(QStringLiteral("--update")))
        return usageError(QStringLiteral("--replace and --update cannot be combined"), p.command);
    if (p.has(QStringLiteral("--json")) && p.has(QStringLiteral("--verbose")))
        return usageError(QStringLiteral("--json and --verbose cannot be combined: both write stdout"), p.command);

    int refused = ExitDone;
    if (!wholeNumberOption(p, QStringLiteral("--jobs"), "a whole number", 1, kMaxJobs, &request->jobs, &refused))
        return refused;

    if (refused = readRetries(p, request); refused != ExitDone)
        return refused;

    request->exclude = p.values.value(QStringLiteral("--exclude"));
    if (request->exclude.contains(QString()))
        return usageError(QStringLiteral("--exclude needs a folder path pattern, such as \"Projects/*/Drafts\""), p.command);
    if (p.has(QStringLiteral("--since"))) {
        request->since = sinceDate(p.value(QStringLiteral("--since")));
        if (!request->since.isValid())
            return usageError(QStringLiteral("--since needs a date such as 2016-01-31 or 2016-01-31T08:00, not \"%1\"")
                                  .arg(printable(p.value(QStringLiteral("--since")))),
                              p.command);
    }

    QString problem;
    const QString logText = p.value(QStringLiteral("--log-dir"));
    if (!checkOutputFolders(p.value(QStringLiteral("--dest")), p.has(QStringLiteral("--log-dir")) ? &logText : nullptr,
                            &request->output, &problem)) {
        printError(problem);
        return ExitError;
    }
    request->dryRun = p.has(QStringLiteral("--dry-run"));
    request->update = p.has(QStringLiteral("--update"));
    request->replace = p.has(QStringLiteral("--replace"));
    request->json = p.has(QStringLiteral("--json"));
    request->verbose = p.has(QStringLiteral("--verbose"));
    request->report = p.value(QStringLiteral("--report"));
    if (p.has(QStringLiteral("--report")) && request->report.trimmed().isEmpty())
        return usageError(QStringLiteral("--report needs a file name"), p.command);
    if (p.has(QStringLiteral("--report")) && request->dryRun)
        return usageError(QStringLiteral("--report and --dry-run cannot be combined: a dry run writes nothing"), p.command);
    if (!request->report.isEmpty() && isLogFileName(request->report, request->output.log.path)) {
        printError(printable(QStringLiteral("--report \"%1\" would be the export log's file: name another file")
                                 .arg(request->report)));
        return ExitError;
    }
    if (!request->dryRun && !logFolderTakesLines(request->output.log.path, &problem)) {
        printError(printable(problem));
        return ExitError;
    }
    request->reasons = !p.has(QStringLiteral("--quiet"));
    request->progress = request->reasons
        && (p.has(QStringLiteral("--progress")) || (!p.has(QStringLiteral("--no-progress")) && stderrIsTerminal()));
    return ExitDone;
}

// What someone put where the run would write its top directories is never deleted unasked: the
// run refuses before it writes anything, a dry run as well, since it tells what the run would do.
bool refusedExisting(Session &session, const QString &destination)
{
    const QStringList existing = exporting::existingTopEntries(session.tree, destination);
    if (existing.isEmpty())
        return false;
    QString text = QStringLiteral("the destination already holds what this export would delete and write anew:");
    for (const QString &path : existing)
        text += QStringLiteral("\n  ") + printable(path);
    printError(text + QStringLiteral("\nnothing was written; give --replace to delete them first, or --update to keep "
                                     "them and write only what is missing or changed"));
    return true;
}

// --retries and --retry-wait, else the installation's: for the run, and for signing in and
// reading the tree before it, which should survive a dropped link as well.
void applyRetries(const ExportRequest &request, ExportOptions *options)
{
    if (request.retries >= 0)
        options->retry.retries = request.retries;
    if (request.retryWaitMs >= 0)
        options->retry.firstWaitMs = request.retryWaitMs;
    repo::setDefaultRetryPolicy(options->retry);
}

} // namespace

int runExport(const Parsed &p)
{
    ExportRequest request;
    if (const int refused = readRequest(p, &request); refused != ExitDone)
        return refused;
    ExportOptions options;
    applyRetries(request, &options);
    Session session;
    if (!signInTo(p, session) || !tickFolders(session, request.all, request.folders))
        return failureStatus();

    const QString destination = request.output.dest.path;
    session.signIn.DestinationPath = destination;
    Exporter exporter(session.signIn, session.procs);
    options.dryRun = request.dryRun;
    options.update = request.update;
    options.logFolder = request.output.log.path;
    options.jobs = request.jobs;
    options.exclude = request.exclude;
    options.since = request.since;
    if (!request.report.isEmpty())
        options.reliedOn << request.report;
    // Refused before anything is written: no folder made, no report emptied.
    if (const QString refused = exporter.refusal(options); !refused.isEmpty()) {
        printError(printable(refused));
        return ExitError;
    }
    if (!request.replace && !request.update && refusedExisting(session, destination))
        return ExitError;
    // Created only now: a refused run leaves nothing behind, and a dry run writes nothing.
    QString problem;
    if (!request.dryRun && !createOutputFolders(request.output, &problem)) {
        printError(problem);
        return ExitError;
    }
    if (const QString held = request.dryRun ? QString() : exporter.lockDestination(); !held.isEmpty()) {
        printError(printable(held));
        return ExitError;
    }
    ExportReporter reporter(destination, request.progress, (request.dryRun || request.verbose) && !request.json,
                            request.reasons);
    ReportFile report;
    if (!request.report.isEmpty() && !report.open(request.report, request.update, &problem)) {
        printError(printable(QStringLiteral("cannot write the report \"%1\": %2").arg(request.report, problem)));
        return ExitError;
    }
    options.records = request.report.isEmpty() ? nullptr : &report;
    options.observer = &reporter;
    // A dry run's listing starts with the directories the real run would create for --dest.
    if (request.dryRun)
        options.madeDirectories = directoriesToMake(request.output.dest);
    for (const QString &made : std::as_const(options.madeDirectories))
        if (!request.json)
            writeOut(QStringLiteral("mkdir   ") + made + QLatin1Char('\n'));
    ExportResult result;
    exporting::StopRequest stop;
    options.stop = &stop;
    bool ok = false;
    {
        const InterruptScope interrupts(stop);
        ok = handled(QStringLiteral("FrmSendtofolder.cmdStart_Click"), [&] { result = exporter.run(options); });
    }
    reporter.finish();

    const int interrupted = interruptedStatus(stop);
    printSummary(result, request.dryRun, reporter.elapsedSeconds(), destinationNote(request.output.dest, request.dryRun),
                 interrupted ? signalName(stop.why()) : QString());
    if (!report.ok())
        printError(printable(QStringLiteral("the report \"%1\" is incomplete: %2").arg(request.report, report.errorString())));
    const int status = interrupted ? interrupted
        : !ok ? failureStatus()
        : result.anythingFailed() || !report.ok() || !session.port.openedLog.isEmpty() ? ExitItemsFailed
                                                                                         : ExitDone;
    if (request.json)
        printJson(result, reporter.elapsedSeconds(), request.report, status);
    return status;
}

} // namespace cli
