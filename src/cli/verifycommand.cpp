// The verify command: an export's report checked against the files below its destination and,
// given a server, against the repository.

#include "cli/clisession.h"
#include "cli/jsonoutput.h"
#include "cli/progress.h"
#include "cli/terminal.h"

#include "export/exportreport.h"
#include "export/verify.h"

#include <QDir>
#include <QJsonObject>
#include <QSet>
#include <QFileInfo>

using tree::SessionState;
using exporting::ExportRecord;
using exporting::FileCheck;
using exporting::checkFile;
using exporting::checkRepository;
using exporting::ReportReader;
using exporting::ReportStatus;
using exporting::checkFolder;
using exporting::unnamedEntries;

namespace cli {

namespace {

struct VerifyCounts {
    qint64 files = 0;
    qint64 bytes = 0;
    qint64 mismatches = 0;
    qint64 withoutDigest = 0; // content not proven by the report alone
    qint64 failedInExport = 0;
    bool json = false; // the mismatch lines go to stderr, the object alone to stdout
};

void printMismatch(const QString &path, const QStringList &what, const QString &detail, VerifyCounts &counts)
{
    ++counts.mismatches;
    (counts.json ? writeErr : writeOut)(printable(QStringLiteral("mismatch  %1  %2%3")
                           .arg(path, what.join(QLatin1Char(',')),
                                detail.isEmpty() ? QString() : QStringLiteral("  (") + detail + QLatin1Char(')')))
             + QLatin1Char('\n'));
}

int readVerifyRequest(const Parsed &p, bool *progress)
{
    if (p.value(QStringLiteral("--report")).trimmed().isEmpty())
        return usageError(QStringLiteral("missing --report FILE"), p.command);
    if (p.value(QStringLiteral("--dest")).trimmed().isEmpty())
        return usageError(QStringLiteral("missing --dest DIR"), p.command);
    if (p.has(QStringLiteral("--progress")) && p.has(QStringLiteral("--no-progress")))
        return usageError(QStringLiteral("--progress and --no-progress cannot be combined"), p.command);
    const bool server = p.has(QStringLiteral("--server"));
    for (const char *name : {"--user", "--database", "--password-stdin", "--password-file"}) {
        if (!server && p.has(QLatin1String(name)))
            return usageError(QStringLiteral("%1 goes with --server").arg(QLatin1String(name)), p.command);
    }
    if (server && !p.has(QStringLiteral("--database")))
        return usageError(QStringLiteral("--server needs --database NAME: the database the export read"), p.command);
    *progress = p.has(QStringLiteral("--progress")) || (!p.has(QStringLiteral("--no-progress")) && stderrIsTerminal());
    return ExitDone;
}

// One document: its file, then (given a session) the repository.
void verifyDocument(const QString &dest, const ExportRecord &r, Session *session, VerifyCounts &counts)
{
    const FileCheck file = checkFile(dest, r);
    ++counts.files;
    counts.bytes += qMax<qint64>(file.size, 0);
    if (!file.differences.isEmpty())
        printMismatch(r.path, file.differences, file.detail, counts);
    if (!session) {
        if (r.sha256.isEmpty())
            ++counts.withoutDigest;
        return;
    }
    FileCheck repository;
    const bool read = HuntERR::resume(QStringLiteral("verify"), [&] {
        SessionState &state = session->signIn;
        repository = checkRepository(state.cnDb(), state.blnArchive, state.strSelectedDb, r, file);
    });
    if (!read)
        printMismatch(r.path, {QStringLiteral("repository unreadable")}, HuntERR::preserved().description, counts);
    else if (!repository.differences.isEmpty())
        printMismatch(r.path, repository.differences, repository.detail, counts);
}

// A record of the report: checked as it is read, so the report can be a pipe of any length.
void verifyRecord(const QString &dest, const ExportRecord &r, Session *session, VerifyCounts &counts,
                  ExportReporter &reporter)
{
    if (r.isFilteredOut())
        return; // nothing was written for it
    if (r.status == ReportStatus::Failed) {
        counts.failedInExport += r.kind == ExportRecord::Kind::Document ? 1 : 0;
        return;
    }
    const QString full = dest + QLatin1Char('/') + r.path;
    if (r.kind == ExportRecord::Kind::Folder) {
        const FileCheck folder = checkFolder(dest, r);
        if (!folder.differences.isEmpty())
            printMismatch(r.path, folder.differences, folder.detail, counts);
        reporter.directoryCreated(full);
        return;
    }
    const qint64 before = counts.bytes;
    verifyDocument(dest, r, session, counts);
    reporter.documentWritten(full, counts.bytes - before);
}

// The path and every directory above it: an entry holding a named one is named too.
void name(QSet<QString> &named, QString path)
{
    while (!path.isEmpty() && !named.contains(path)) {
        named.insert(path);
        path.truncate(qMax(path.lastIndexOf(QLatin1Char('/')), 0));
    }
}

struct ReportRun {
    qint64 records = 0;
    QSet<QString> named; // with --extra only
    QString readError;
};

ReportRun checkRecords(ReportReader &reader, const QString &label, const QString &dest, Session *session, bool extra,
                       VerifyCounts &counts, ExportReporter &reporter)
{
    ReportRun run;
    ExportRecord r;
    QString why;
    for (ReportReader::Next next; (next = reader.next(&r, &why)) != ReportReader::Next::End;) {
        if (next == ReportReader::Next::Broken) {
            printMismatch(label, {QStringLiteral("report")}, QStringLiteral("line %1: %2").arg(reader.lineNumber()).arg(why),
                          counts);
            continue;
        }
        ++run.records;
        verifyRecord(dest, r, session, counts, reporter);
        if (extra && r.status != ReportStatus::Failed && !r.isFilteredOut())
            name(run.named, r.path);
    }
    run.readError = reader.error();
    return run;
}

} // namespace

int runVerify(const Parsed &p)
{
    bool progress = false;
    if (const int refused = readVerifyRequest(p, &progress); refused != ExitDone)
        return refused;
    const QString reportPath = p.value(QStringLiteral("--report"));
    const QString dest = QDir::cleanPath(QFileInfo(p.value(QStringLiteral("--dest"))).absoluteFilePath());
    if (!QFileInfo(dest).isDir()) {
        printError(printable(QStringLiteral("--dest \"%1\" is not a directory").arg(p.value(QStringLiteral("--dest")))));
        return ExitError;
    }
    ReportReader reader;
    QString error;
    if (!reader.open(reportPath, &error)) {
        printError(printable(QStringLiteral("cannot read the report \"%1\": %2").arg(reportPath, error)));
        return ExitError;
    }
    Session session;
    const bool withRepository = p.has(QStringLiteral("--server"));
    if (withRepository && !signInTo(p, session))
        return failureStatus();

    VerifyCounts counts;
    counts.json = p.has(QStringLiteral("--json"));
    ExportReporter reporter(dest, progress, false);
    const bool extra = p.has(QStringLiteral("--extra"));
    ReportRun run = checkRecords(reader, reportPath, dest, withRepository ? &session : nullptr, extra, counts, reporter);
    reporter.finish();
    if (!run.readError.isEmpty()) {
        printError(printable(QStringLiteral("cannot read the report \"%1\": %2").arg(reportPath, run.readError)));
        return ExitError;
    }
    if (run.records == 0)
        printMismatch(reportPath, {QStringLiteral("report")}, QStringLiteral("no records: nothing was proven"), counts);
    if (extra) {
        // The report itself may be kept in the destination; it is not part of the export.
        name(run.named, QDir(dest).relativeFilePath(QFileInfo(reportPath).absoluteFilePath()));
        for (const QString &rel : unnamedEntries(dest, run.named))
            printMismatch(rel, {QStringLiteral("extra")}, QStringLiteral("no record names it"), counts);
    }
    QString notes;
    if (counts.withoutDigest > 0)
        notes += QStringLiteral(", %1 without a digest in the report (size and date checked only)").arg(counts.withoutDigest);
    if (counts.failedInExport > 0)
        notes += QStringLiteral(", %1 the export could not write (see its log)").arg(counted(counts.failedInExport, "document"));
    const double seconds = reporter.elapsedSeconds();
    writeErr(QStringLiteral("Verified %1, %2 bytes (%3) against the report%4: %5%6, %7 s\n")
                 .arg(counted(counts.files, "file"))
                 .arg(counts.bytes)
                 .arg(humanBytes(counts.bytes), withRepository ? QStringLiteral(" and the repository") : QString(),
                      counts.mismatches == 1 ? QStringLiteral("1 mismatch") : QStringLiteral("%1 mismatches").arg(counts.mismatches),
                      notes, QString::number(seconds, 'f', 1)));
    const int status = counts.mismatches > 0 ? ExitItemsFailed : ExitDone;
    if (counts.json) {
        QJsonObject o;
        o.insert(QStringLiteral("files"), counts.files);
        o.insert(QStringLiteral("bytes"), counts.bytes);
        o.insert(QStringLiteral("mismatches"), counts.mismatches);
        o.insert(QStringLiteral("seconds"), qRound(seconds * 10) / 10.0);
        o.insert(QStringLiteral("report"), reportPath == QLatin1String("-") ? reportPath : absoluteNative(reportPath));
        o.insert(QStringLiteral("exitStatus"), status);
        writeOut(jsonLine(o));
    }
    return status;
}

} // namespace cli
