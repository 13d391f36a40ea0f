// One document: named by the walk; fetched, written in chunks under a temporary name beside its
// file and dated there, on some connection; taken back by the walk in walk order, which puts the
// file in place and records it. A document that cannot be written under its cleaned title is
// written as "[id].ext"; any other failure is logged and the walk goes on.

#include "export/exporter.h"

#include "errors/hunterr.h"
#include "export/exportdisk.h"
#include "repository/statements.h"

namespace exporting {

using names::GetFileExtension;
using names::cleanDocumentTitle;
using names::idTag;
using names::pathSeparator;
using names::titleCanBeFileName;

namespace {

const QString kSaveSource = QStringLiteral("FrmSendtofolder.fxnSaveDocument(recId,path)");
const QString kDateSource = QStringLiteral("MCmnUtility.fxnSetFileDate(paramConnection,paramRec_Id,paramFilePath)");
constexpr quint8 kFileLine = 0;

} // namespace

bool Exporter::wroteThisRun(const QString &path)
{
    if (m_documents)
        m_documents->settle(path);
    return disk().wroteThisRun(path);
}

// The name is decided here, on the walk's thread, from what the folder's listing says of the
// document (the same row its own statement reads): of the documents whose names collide, the one
// of lowest id keeps its title and the others carry their id beside it; never over a file this
// run wrote; "[id].ext" when the title cannot be a file name at all, or when the name with the
// id is another document's own.
void Exporter::fxnSaveDocument(qint64 recId, const QString &path, const QString &listedTitle,
                               const QString &listedFileName, const NameOwners &owners)
{
    const QChar sep = pathSeparator();
    const QString ext = GetFileExtension(listedFileName);
    const QString tag = idTag(recId);
    QString name = cleanDocumentTitle(listedTitle);
    const bool renamed = !owners.owns(name + ext, recId) || wroteThisRun(path + sep + name + ext);
    if (renamed)
        name += QLatin1Char(' ') + tag;

    DocumentJob job;
    job.recId = recId;
    job.folder = path;
    job.listedTitle = listedTitle;
    job.fileName = titleCanBeFileName(name, ext) && owners.owns(name + ext, recId) ? name + ext : QString();
    // The id always makes a name: without an extension that cannot be part of one (it holds a
    // separator, or is too long), and numbered on when another title took "[id].ext" already.
    const QString usableExt = titleCanBeFileName(tag, ext) ? ext : QString();
    job.fallbackName = tag + usableExt;
    for (int n = 2; wroteThisRun(path + sep + job.fallbackName); ++n)
        job.fallbackName = tag + QLatin1Char(' ') + QString::number(n) + usableExt;
    job.fallbackFree = true;
    job.renamed = renamed;
    job.serial = ++m_submitted;
    job.listed = m_listed.value(recId);
    m_documents->submit(std::move(job));
}

void Exporter::retireDocument(const DocumentJob &job, DocumentOutcome &o)
{
    // Stopped: no file, no record, no log line. Dated before --since: recorded as left out, in
    // its place among the records.
    if (o.abandoned)
        m_abandoned.insert(job.serial);
    m_retiring = true;
    if (o.abandoned || o.before.isValid()) {
        if (o.before.isValid())
            leaveOut(ExportRecord::Kind::Document, job.recId, job.listedTitle,
                     job.folder + pathSeparator() + (job.fileName.isEmpty() ? job.fallbackName : job.fileName),
                     QStringLiteral("dated %1, before --since").arg(o.before.toString(Qt::ISODate)));
        m_retiring = false;
        releaseRecords(job.serial);
        return;
    }
    // Each failure goes to the error trail and to the log just as it would had it happened here.
    const auto replay = [&](std::exception_ptr e) {
        if (!HuntERR::resume(kSaveSource, [&] { std::rethrow_exception(e); }))
            logFailure(kSaveSource, job.recId, o.description, job.folder, kFileLine);
    };
    ExportRecord rec = ExportRecord::of(ExportRecord::Kind::Document, job.recId, o.description);
    rec.retries = o.retries;
    QString at = job.folder;
    if (o.keptDateError) // the error trail hears of it; the file is written as usual
        HuntERR::resume(kSaveSource, [&] { std::rethrow_exception(o.keptDateError); });
    if (o.readError || o.writeError || o.fallbackError) {
        replay(o.readError ? o.readError : o.writeError ? o.writeError : o.fallbackError);
        rec.status = ReportStatus::Failed;
        rec.message = m_lastFailure;
    } else if (!o.kept.isEmpty()) {
        retireKept(o, rec);
        at = o.kept;
    } else if (!o.written.isEmpty()) {
        const QString filePath = retireWritten(job, o, rec);
        if (!filePath.isEmpty())
            at = filePath;
    }
    record(rec, at);
    m_signIn.form().setStatus(QStringLiteral(" Copying File: ") + job.folder + pathSeparator() + job.listedTitle);
    m_signIn.form().repaint();
    m_retiring = false;
    releaseRecords(job.serial);
}

void Exporter::retireKept(DocumentOutcome &o, ExportRecord &rec)
{
    disk().keepFile(o.kept);
    ++m_result.kept;
    rec.bytes = o.bytes;
    rec.date = o.date;
    rec.status = ReportStatus::Skipped;
    if (m_options.observer)
        m_options.observer->documentKept(o.kept, o.bytes);
}

QString Exporter::retireWritten(const DocumentJob &job, DocumentOutcome &o, ExportRecord &rec)
{
    rec.status = o.fellBack ? ReportStatus::Fallback : job.renamed ? ReportStatus::Renamed : ReportStatus::Written;
    rec.bytes = o.bytes;
    rec.date = o.date;
    bool misdated = false;
    if (o.dateError) {
        if (!HuntERR::resume(kSaveSource, [&] { HuntERR::inner(kDateSource, [&] { std::rethrow_exception(o.dateError); }); })) {
            logFailure(kSaveSource, job.recId, o.description, job.folder, kFileLine);
            rec.message = m_lastFailure;
            misdated = true;
        }
    }
    const QString filePath = commitDocument(kSaveSource, o.written, job.folder + pathSeparator() + job.fallbackName, rec);
    if (filePath.isEmpty())
        return {};
    rec.sha256 = o.sha256;
    m_result.bytes += o.bytes;
    // One outcome per document: one whose date failed is a failure (logged above), not also a
    // document written, and its record says so with the date its file carries.
    if (misdated)
        rec.status = ReportStatus::Misdated;
    else
        ++m_result.documents;
    if (m_options.observer)
        m_options.observer->documentWritten(filePath, o.bytes);
    return filePath;
}

} // namespace exporting
