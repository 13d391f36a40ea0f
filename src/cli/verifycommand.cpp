// The verify command: an export's report checked against the files below its destination and,
// given a server, against the repository.

#include "cli/clisession.h"
#include "cli/progress.h"
#include "cli/terminal.h"

#include "export/exportreport.h"
#include "export/verify.h"

#include <QDir>
#include <QFileInfo>

using tree::SessionState;
using exporting::ExportRecord;
using exporting::FileCheck;
using exporting::checkFile;
using exporting::checkRepository;
using exporting::readReport;
using exporting::ReportStatus;

namespace cli {

namespace {

struct VerifyCounts {
    qint64 files = 0;
    qint64 bytes = 0;
    qint64 mismatches = 0;
    qint64 withoutDigest = 0; // content not proven by the report alone
    qint64 failedInExport = 0;
};

void printMismatch(const QString &path, const QStringList &what, const QString &detail, VerifyCounts &counts)
{
    ++counts.mismatches;
    writeOut(printable(QStringLiteral("mismatch  %1  %2%3")
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
    for (const char *name : {"--user", "--database", "--password-stdin"}) {
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
    QList<ExportRecord> records;
    QList<int> broken;
    QString error;
    if (!readReport(reportPath, &records, &broken, &error)) {
        printError(printable(QStringLiteral("cannot read the report \"%1\": %2").arg(reportPath, error)));
        return ExitError;
    }
    Session session;
    const bool withRepository = p.has(QStringLiteral("--server"));
    if (withRepository && !signInTo(p, session))
        return ExitError;

    VerifyCounts counts;
    for (const int line : std::as_const(broken))
        printMismatch(reportPath, {QStringLiteral("report")}, QStringLiteral("line %1 is not a record").arg(line), counts);
    ExportReporter reporter(dest, progress, false);
    for (const ExportRecord &r : std::as_const(records)) {
        if (r.status == ReportStatus::Failed) {
            counts.failedInExport += r.kind == ExportRecord::Kind::Document ? 1 : 0;
            continue;
        }
        const QString full = dest + QLatin1Char('/') + r.path;
        if (r.kind == ExportRecord::Kind::Folder) {
            if (!QFileInfo(full).isDir() || QFileInfo(full).isSymLink())
                printMismatch(r.path, {QStringLiteral("missing")}, QStringLiteral("no directory"), counts);
            reporter.directoryCreated(full);
            continue;
        }
        const qint64 before = counts.bytes;
        verifyDocument(dest, r, withRepository ? &session : nullptr, counts);
        reporter.documentWritten(full, counts.bytes - before);
    }
    reporter.finish();
    QString notes;
    if (counts.withoutDigest > 0)
        notes += QStringLiteral(", %1 without a digest in the report (size and date checked only)").arg(counts.withoutDigest);
    if (counts.failedInExport > 0)
        notes += QStringLiteral(", %1 documents the export could not write (see its log)").arg(counts.failedInExport);
    writeErr(QStringLiteral("Verified %1 files, %2 bytes (%3) against the report%4: %5 mismatches%6, %7 s\n")
                 .arg(counts.files)
                 .arg(counts.bytes)
                 .arg(humanBytes(counts.bytes))
                 .arg(withRepository ? QStringLiteral(" and the repository") : QString())
                 .arg(counts.mismatches)
                 .arg(notes)
                 .arg(QString::number(reporter.elapsedSeconds(), 'f', 1)));
    return counts.mismatches > 0 ? ExitItemsFailed : ExitDone;
}

} // namespace cli
