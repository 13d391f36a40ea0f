// One document: named by the walk, fetched and written in chunks on some connection, taken back
// by the walk in walk order. A document that cannot be written under its cleaned title is written
// as "[id].ext"; any other failure is logged and the walk goes on.

#include "export/exporter.h"

#include "errors/hunterr.h"
#include "export/exportdisk.h"
#include "repository/statements.h"

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
    if (wroteThisRun(path + sep + name + ext))
        name += QLatin1Char(' ') + tag;

    DocumentJob job;
    job.recId = recId;
    job.folder = path;
    job.listedTitle = listedTitle;
    job.fileName = titleCanBeFileName(name, ext) ? name + ext : QString();
    job.fallbackName = tag + ext;
    job.fallbackFree = titleCanBeFileName(tag, ext) && !wroteThisRun(path + sep + job.fallbackName);
    documents().submit(std::move(job));
}

DocumentOutcome Exporter::fetchDocument(const DocumentJob &job, repo::Connection &cn, const DocumentQueue::Counted &counted)
{
    DocumentOutcome o;
    const QString idText = QString::number(job.recId);
    const QString sql = m_signIn.blnArchive ? repo::statements::archiveDocument(idText, m_signIn.strSelectedDb)
                                            : repo::statements::liveDocument(idText);
    const QString dir = job.folder + pathSeparator();
    ExportDisk &out = *m_disk;
    bool writing = false;
    try {
        repo::StreamedRow row = cn.executeStreamed(sql);
        if (row.fields.eof())
            HuntERR::raise(HuntERR::ERR_NO_CURRENT_RECORD,
                           QStringLiteral("Either BOF or EOF is True, or the current record has been deleted. "
                                          "Requested operation requires a current record."));
        o.description = row.fields.text(QStringLiteral("File_Description"));
        if (!row.value)
            HuntERR::raise(HuntERR::ERR_GENERAL, QStringLiteral("Document %1 has no stored bytes").arg(job.recId));
        row.fields.text(QStringLiteral("File_name")); // read as it always was: a missing column fails here
        CountingReader bytes(*row.value, counted, &o.streamed);

        o.fellBack = job.fileName.isEmpty();
        writing = true;
        if (!o.fellBack) {
            try {
                o.bytes = out.writeFile(dir + job.fileName, bytes);
                o.written = dir + job.fileName;
            } catch (const HuntERR::Error &e) {
                if (e.number() != HuntERR::ERR_WRITE_FAILED)
                    throw;
                o.fellBack = true; // cannot be created under its title: the fallback name below
            }
        }
        if (o.fellBack) {
            try {
                if (!job.fallbackFree)
                    HuntERR::raise(HuntERR::ERR_WRITE_FAILED,
                                   QStringLiteral("Write to file failed: %1 cannot be a file name").arg(dir + job.fallbackName));
                o.bytes = out.writeFile(dir + job.fallbackName, bytes);
                o.written = dir + job.fallbackName;
            } catch (...) {
                o.fallbackError = std::current_exception();
            }
        }
    } catch (...) {
        (writing ? o.writeError : o.readError) = std::current_exception();
    }
    // The statement is closed by now: the connection is free for the date.
    if (!o.written.isEmpty()) {
        try {
            setDocumentDate(cn, job.recId, o.written);
        } catch (...) {
            o.dateError = std::current_exception();
        }
    }
    return o;
}

void Exporter::retireDocument(const DocumentJob &job, DocumentOutcome &o)
{
    m_retiring = true;
    // Each failure goes to the error trail and to the log just as it would had it happened here.
    const auto replay = [&](std::exception_ptr e) {
        if (!HuntERR::resume(kSaveSource, [&] { std::rethrow_exception(e); }))
            logFailure(kSaveSource, job.recId, o.description, job.folder, kFileLine);
    };
    const auto record = [&] {
        ++m_result.documents;
        m_result.bytes += o.bytes;
        if (m_options.observer)
            m_options.observer->documentWritten(o.written, o.bytes);
    };
    if (o.readError) {
        replay(o.readError);
    } else {
        if (o.writeError)
            replay(o.writeError);
        else if (o.fallbackError)
            replay(o.fallbackError);
        else if (!o.written.isEmpty())
            record();
        if (!o.written.isEmpty() && o.dateError) {
            if (!HuntERR::resume(kSaveSource, [&] { HuntERR::inner(kDateSource, [&] { std::rethrow_exception(o.dateError); }); }))
                logFailure(kSaveSource, job.recId, o.description, job.folder, kFileLine);
        }
    }
    m_signIn.form().setStatus(QStringLiteral(" Copying File: ") + job.folder + pathSeparator() + job.listedTitle);
    m_signIn.form().repaint();
    m_retiring = false;
}
