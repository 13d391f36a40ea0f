// One document: named by the walk; fetched, written in chunks under a temporary name beside its
// file and dated there, on some connection; taken back by the walk in walk order, which puts the
// file in place and records it. A document that cannot be written under its cleaned title is
// written as "[id].ext"; any other failure is logged and the walk goes on.

#include "export/exporter.h"

#include "errors/hunterr.h"
#include "export/exportdisk.h"
#include "export/hashingreader.h"
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

// Counts what passes, for the progress line.
class CountingReader final : public repo::ValueReader {
public:
    CountingReader(repo::ValueReader &inner, const DocumentQueue::Counted &counted, qint64 *total)
        : m_inner(inner), m_counted(counted), m_total(total)
    {
    }
    qint64 read(char *buffer, qint64 max) override
    {
        const qint64 n = m_inner.read(buffer, max);
        if (n > 0) {
            *m_total += n;
            if (m_counted)
                m_counted(n);
        }
        return n;
    }
    qint64 size() const override { return m_inner.size(); }

private:
    repo::ValueReader &m_inner;
    const DocumentQueue::Counted &m_counted;
    qint64 *m_total;
};

repo::StreamedRow openDocument(repo::Connection &cn, const QString &sql, qint64 recId, DocumentOutcome &o)
{
    repo::StreamedRow row = cn.executeStreamed(sql);
    if (row.fields.eof())
        HuntERR::raise(HuntERR::ERR_NO_CURRENT_RECORD,
                       QStringLiteral("Either BOF or EOF is True, or the current record has been deleted. "
                                      "Requested operation requires a current record."));
    o.description = row.fields.text(QStringLiteral("File_Description"));
    if (!row.value)
        HuntERR::raise(HuntERR::ERR_GENERAL, QStringLiteral("Document %1 has no stored bytes").arg(recId));
    row.fields.text(QStringLiteral("File_name")); // read as it always was: a missing column fails here
    return row;
}

} // namespace

DocumentQueue &Exporter::documents()
{
    // Outside a run (a single folder's documents): one at a time on the walk's connection.
    if (!m_documents)
        m_documents = std::make_unique<DocumentQueue>(
            1, QString(), m_signIn.cnDb(),
            [this](const DocumentJob &job, repo::Connection &cn, const DocumentQueue::Counted &counted) {
                return fetchDocument(job, cn, counted);
            },
            [this](const DocumentJob &job, DocumentOutcome &outcome) { retireDocument(job, outcome); }, nullptr);
    return *m_documents;
}

bool Exporter::wroteThisRun(const QString &path)
{
    if (m_documents)
        m_documents->settle(path);
    return disk().wroteThisRun(path);
}

// The name is decided here, on the walk's thread, from what the folder's listing says of the
// document (the same row its own statement reads): never over a file this run wrote, else with
// its id beside its title; "[id].ext" when the title cannot be a file name at all.
void Exporter::fxnSaveDocument(qint64 recId, const QString &path, const QString &listedTitle,
                               const QString &listedFileName)
{
    disk(); // made on the walk's thread, before any worker writes through it
    const QChar sep = pathSeparator();
    const QString ext = GetFileExtension(listedFileName);
    const QString tag = idTag(recId);
    QString name = cleanDocumentTitle(listedTitle);
    const bool renamed = wroteThisRun(path + sep + name + ext);
    if (renamed)
        name += QLatin1Char(' ') + tag;

    DocumentJob job;
    job.recId = recId;
    job.folder = path;
    job.listedTitle = listedTitle;
    job.fileName = titleCanBeFileName(name, ext) ? name + ext : QString();
    job.fallbackName = tag + ext;
    job.fallbackFree = titleCanBeFileName(tag, ext) && !wroteThisRun(path + sep + job.fallbackName);
    job.renamed = renamed;
    job.serial = ++m_submitted;
    documents().submit(std::move(job));
}

DocumentOutcome Exporter::fetchDocument(const DocumentJob &job, repo::Connection &cn, const DocumentQueue::Counted &counted)
{
    DocumentOutcome o;
    const QString idText = QString::number(job.recId);
    const QString sql = m_signIn.blnArchive ? repo::statements::archiveDocument(idText, m_signIn.strSelectedDb)
                                            : repo::statements::liveDocument(idText);
    bool writing = false;
    try {
        repo::StreamedRow row = openDocument(cn, sql, job.recId, o);
        // The reader knows the size before a byte is read: an unchanged file costs no bytes.
        if (m_options.update && row.value->size() >= 0) {
            if (keptUnchanged(job, cn, row, o))
                return o;
            if (!row.value) // the date statement ended it: sent again for the bytes
                row = openDocument(cn, sql, job.recId, o);
        }
        CountingReader bytes(*row.value, counted, &o.streamed);
        writing = true;
        stageDocument(job, bytes, o);
    } catch (...) {
        (writing ? o.writeError : o.readError) = std::current_exception();
    }
    // The statement is closed by now: the connection is free for the date. The file is dated
    // under its temporary name, so a file under a final name is always complete and dated.
    if (!o.written.isEmpty()) {
        try {
            setDocumentDate(cn, job.recId, o.written, &o.date);
        } catch (...) {
            o.dateError = std::current_exception();
        }
    }
    return o;
}

void Exporter::stageDocument(const DocumentJob &job, repo::ValueReader &counting, DocumentOutcome &o)
{
    ExportDisk &out = *m_disk;
    const QString dir = job.folder + pathSeparator();
    // The digest is taken only when a report wants it: it costs processor time the copy does not.
    HashingReader hashing(counting);
    repo::ValueReader &bytes = m_options.records ? static_cast<repo::ValueReader &>(hashing) : counting;
    o.fellBack = job.fileName.isEmpty();
    if (!o.fellBack) {
        try {
            o.bytes = out.stageFile(dir + job.fileName, bytes);
            o.written = dir + job.fileName;
        } catch (const HuntERR::Error &e) {
            if (e.number() != HuntERR::ERR_WRITE_FAILED)
                throw;
            o.fellBack = true; // refused before a byte was read: the fallback name below
        }
    }
    if (o.fellBack) {
        try {
            if (!job.fallbackFree)
                HuntERR::raise(HuntERR::ERR_WRITE_FAILED,
                               QStringLiteral("Write to file failed: %1 cannot be a file name").arg(dir + job.fallbackName));
            o.bytes = out.stageFile(dir + job.fallbackName, bytes);
            o.written = dir + job.fallbackName;
        } catch (...) {
            o.fallbackError = std::current_exception();
        }
    }
    if (!o.written.isEmpty() && m_options.records)
        o.sha256 = hashing.sha256();
}

// The names the walk gave the document are the only ones an earlier run can have used for it.
bool Exporter::keptUnchanged(const DocumentJob &job, repo::Connection &cn, repo::StreamedRow &row, DocumentOutcome &o)
{
    const qint64 size = row.value->size();
    const QString dir = job.folder + pathSeparator();
    QStringList candidates;
    if (!job.fileName.isEmpty())
        candidates << dir + job.fileName;
    candidates << dir + job.fallbackName;
    for (const QString &file : std::as_const(candidates)) {
        qint64 onDiskSize = -1;
        QDateTime onDisk;
        if (m_disk->wroteThisRun(file) || !m_disk->fileFacts(file, &onDiskSize, &onDisk))
            continue;
        // The size first: it costs nothing, and most changes show in it.
        if (onDiskSize != size)
            return false;
        row.value.reset(); // the connection runs the date statement next
        // A document without a date cannot be told from an older copy of the same size.
        QDateTime when;
        try {
            when = documentDate(cn, job.recId);
        } catch (...) {
            o.keptDateError = std::current_exception();
            return false;
        }
        if (!when.isValid() || when.toMSecsSinceEpoch() != onDisk.toMSecsSinceEpoch())
            return false;
        o.kept = file;
        o.bytes = size;
        o.date = when;
        return true;
    }
    return false;
}

void Exporter::retireDocument(const DocumentJob &job, DocumentOutcome &o)
{
    m_retiring = true;
    // Each failure goes to the error trail and to the log just as it would had it happened here.
    const auto replay = [&](std::exception_ptr e) {
        if (!HuntERR::resume(kSaveSource, [&] { std::rethrow_exception(e); }))
            logFailure(kSaveSource, job.recId, o.description, job.folder, kFileLine);
    };
    ExportRecord rec = ExportRecord::of(ExportRecord::Kind::Document, job.recId, o.description);
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
    if (o.dateError) {
        if (!HuntERR::resume(kSaveSource, [&] { HuntERR::inner(kDateSource, [&] { std::rethrow_exception(o.dateError); }); })) {
            logFailure(kSaveSource, job.recId, o.description, job.folder, kFileLine);
            rec.message = m_lastFailure;
        }
    }
    const QString filePath = commitDocument(kSaveSource, o.written, job.folder + pathSeparator() + job.fallbackName, rec);
    if (filePath.isEmpty())
        return {};
    rec.sha256 = o.sha256;
    ++m_result.documents;
    m_result.bytes += o.bytes;
    if (m_options.observer)
        m_options.observer->documentWritten(filePath, o.bytes);
    return filePath;
}

} // namespace exporting
