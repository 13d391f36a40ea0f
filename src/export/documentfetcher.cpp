// The workers' side of a document: its statement, its bytes to a temporary file beside its own,
// its date. See documentfetcher.h for the threads that run it.

#include "export/documentfetcher.h"

#include "errors/hunterr.h"
#include "export/exportdisk.h"
#include "export/exporter.h"
#include "export/hashingreader.h"
#include "repository/statements.h"

#include <utility>

namespace exporting {

using names::pathSeparator;

namespace {

// Counts what passes, for the progress line; ends the stream when the run is asked to stop (the
// disk layer then removes the temporary file).
class CountingReader final : public repo::ValueReader {
public:
    CountingReader(repo::ValueReader &inner, const DocumentQueue::Counted &counted, qint64 *total,
                   const StopRequest *stop)
        : m_inner(inner), m_counted(counted), m_total(total), m_stop(stop)
    {
    }
    qint64 read(char *buffer, qint64 max) override
    {
        if (stopRequested(m_stop))
            HuntERR::raise(HuntERR::ERR_GENERAL, QStringLiteral("The export was stopped"));
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
    const StopRequest *m_stop;
};

// The document's statement with its date statement behind it, and ahead (the statements of the
// documents the connection does next) behind them: one round trip where the server takes several
// at once. The dates are taken with cn.followingResult().
repo::StreamedRow openDocument(repo::Connection &cn, const QString &sql, qint64 recId, DocumentOutcome &o,
                               const QStringList &ahead = {})
{
    repo::StreamedRow row = cn.executeStreamed(sql, {repo::statements::documentDates(QString::number(recId))}, ahead);
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

DocumentFetcher::DocumentFetcher(FetchSettings settings, ExportDisk &disk)
    : m_settings(std::move(settings))
    , m_disk(disk)
{
}

QString DocumentFetcher::documentStatement(qint64 recId) const
{
    const QString idText = QString::number(recId);
    return m_settings.archive ? repo::statements::archiveDocument(idText, m_settings.archiveDb)
                              : repo::statements::liveDocument(idText);
}

QStringList DocumentFetcher::statementsAhead(const std::vector<const DocumentJob *> &ahead) const
{
    // Only documents certain to be fetched as they stand: the results of any other would be
    // read through for nothing, or the batch ended by the statements they send first.
    QStringList statements;
    if (m_settings.since.isValid())
        return statements;
    for (const DocumentJob *job : ahead) {
        if (m_settings.update && !job->notAsListed)
            break;
        statements << documentStatement(job->recId) << repo::statements::documentDates(QString::number(job->recId));
    }
    return statements;
}

DocumentOutcome DocumentFetcher::fetch(const DocumentJob &job, repo::Connection &cn, const DocumentQueue::Counted &counted,
                                       const std::vector<const DocumentJob *> &ahead) const
{
    QStringList sentAhead = cn.takesBatches() ? statementsAhead(ahead) : QStringList();
    const qint64 retriesBefore = cn.retries();
    DocumentOutcome o;
    int tried = 0;
    for (;;) {
        fetchOnce(job, cn, counted, o, std::exchange(sentAhead, {}));
        // Statements are tried again by the connection itself; a stream cannot be, once bytes of
        // it are on disk. So when the connection broke while the bytes came, the document is
        // fetched again from its first byte on a reopened connection. Its temporary file went with
        // the failure; nothing of the first try is kept but the count of bytes told as progress.
        const bool streamFailed = o.writeError || o.fallbackError;
        if (!streamFailed || !o.written.isEmpty() || o.abandoned || !cn.lastFailureBroken())
            break;
        try {
            if (!cn.reopenAfterBreak(&tried))
                break;
        } catch (...) {
            o.readError = std::current_exception(); // why the connection could not be opened again
            o.writeError = o.fallbackError = nullptr;
            break;
        }
        DocumentOutcome again;
        again.streamed = o.streamed;
        o = std::move(again);
    }
    o.retries = cn.retries() - retriesBefore;
    return o;
}

void DocumentFetcher::fetchOnce(const DocumentJob &job, repo::Connection &cn, const DocumentQueue::Counted &counted,
                                 DocumentOutcome &o, const QStringList &ahead) const
{
    if (stopRequested(m_settings.stop)) {
        o.abandoned = true; // no document starts once the run is asked to stop
        return;
    }
    if (m_settings.since.isValid()) {
        try {
            const QDateTime when = documentDate(cn, job.recId);
            if (when.isValid() && when < m_settings.since) {
                o.before = when;
                return;
            }
        } catch (...) {
            o.description = job.listedTitle;
            o.readError = std::current_exception();
            return;
        }
    }
    if (m_settings.update && job.listed.size >= 0 && !job.notAsListed && keptAsListed(job, o))
        return;
    const QString sql = documentStatement(job.recId);
    bool writing = false;
    try {
        repo::StreamedRow row = openDocument(cn, sql, job.recId, o, ahead);
        // Not in its folder's size listing: the reader knows the size before a byte is read, so
        // an unchanged file still costs no bytes.
        if (m_settings.update && job.listed.size < 0 && row.value->size() >= 0) {
            const auto dateOf = [&] {
                row.value.reset(); // the date statement's result ends it
                return documentDateOf(cn.followingResult());
            };
            if (keptUnchanged(job, row.value->size(), dateOf, o))
                return;
            if (!row.value) // the date statement ended it: sent again for the bytes
                row = openDocument(cn, sql, job.recId, o);
        }
        CountingReader bytes(*row.value, counted, &o.streamed, m_settings.stop);
        writing = true;
        stage(job, bytes, o);
    } catch (...) {
        (writing ? o.writeError : o.readError) = std::current_exception();
    }
    // Cut short by the stop (or failing as it came): abandoned, not a failure of the document.
    if (stopRequested(m_settings.stop) && o.written.isEmpty()) {
        o.abandoned = true;
        return;
    }
    // The bytes are read by now: the date statement's result is next. The file is dated under
    // its temporary name, so a file under a final name is always complete and dated.
    if (!o.written.isEmpty()) {
        try {
            date(cn, job.recId, o.written, &o.date);
        } catch (...) {
            o.dateError = std::current_exception();
        }
    }
}

void DocumentFetcher::stage(const DocumentJob &job, repo::ValueReader &counting, DocumentOutcome &o) const
{
    ExportDisk &out = m_disk;
    const QString dir = job.folder + pathSeparator();
    // The digest is taken only when a report wants it: it costs processor time the copy does not.
    HashingReader hashing(counting);
    repo::ValueReader &bytes = m_settings.digests ? static_cast<repo::ValueReader &>(hashing) : counting;
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
    if (!o.written.isEmpty() && m_settings.digests)
        o.sha256 = hashing.sha256();
}

// The names the walk gave the document are the only ones an earlier run can have used for it.
bool DocumentFetcher::keptUnchanged(const DocumentJob &job, qint64 size, const std::function<QDateTime()> &dateOf,
                                    DocumentOutcome &o) const
{
    const QString dir = job.folder + pathSeparator();
    QStringList candidates;
    if (!job.fileName.isEmpty())
        candidates << dir + job.fileName;
    candidates << dir + job.fallbackName;
    for (const QString &file : std::as_const(candidates)) {
        qint64 onDiskSize = -1;
        QDateTime onDisk;
        if (m_disk.wroteThisRun(file) || !m_disk.fileFacts(file, &onDiskSize, &onDisk))
            continue;
        // The size first: it costs nothing, and most changes show in it.
        if (onDiskSize != size)
            return false;
        // A document without a date cannot be told from an older copy of the same size.
        QDateTime when;
        try {
            when = dateOf();
        } catch (...) {
            o.keptDateError = std::current_exception();
            return false;
        }
        // A date the file system could not carry stays what it became: dating the file again
        // with it gives the date it has, and then the file is the one written before.
        if (!when.isValid()
            || (when.toMSecsSinceEpoch() != onDisk.toMSecsSinceEpoch()
                && m_disk.dateFile(file, when).toMSecsSinceEpoch() != onDisk.toMSecsSinceEpoch()))
            return false;
        o.kept = file;
        o.bytes = size;
        o.date = onDisk;
        return true;
    }
    return false;
}

bool DocumentFetcher::settledAsListed(DocumentJob &job, DocumentOutcome &o) const
{
    // --since reads the document's own date first; a stop is the fetch's to tell.
    if (!m_settings.update || job.listed.size < 0 || m_settings.since.isValid() || stopRequested(m_settings.stop))
        return false;
    DocumentOutcome kept;
    try {
        if (!keptAsListed(job, kept)) {
            // An unreadable date fails before the file is touched: the fetch meets it again.
            job.notAsListed = !kept.keptDateError;
            return false;
        }
    } catch (...) {
        return false;
    }
    o = std::move(kept);
    return true;
}

bool DocumentFetcher::keptAsListed(const DocumentJob &job, DocumentOutcome &o) const
{
    return keptUnchanged(job, job.listed.size, [&] {
        if (job.listed.dateError)
            std::rethrow_exception(job.listed.dateError);
        return job.listed.date;
    }, o);
}

void DocumentFetcher::date(repo::Connection &cn, qint64 recId, const QString &filePath, QDateTime *applied) const
{
    const QDateTime when = documentDateOf(cn.followingResult());
    // Without a date the file keeps the times the file system gave it; a file that cannot be
    // opened keeps its times too, and that is not reported.
    if (!when.isValid())
        return;
    *applied = m_disk.dateFile(filePath, when);
    // A date the file system cannot hold (1900-01-01, 9999-12-31 on many) became another one: the
    // file is kept, and its date is a failure of its own.
    // ISO text has no year before 1 (a date of year 1 taken as local time east of Greenwich is one).
    const auto text = [](const QDateTime &d) {
        const QString iso = d.toUTC().toString(Qt::ISODate);
        return iso.isEmpty() ? d.toUTC().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss 'UTC'")) : iso;
    };
    if (applied->isValid() && applied->toMSecsSinceEpoch() != when.toMSecsSinceEpoch())
        HuntERR::raise(5, QStringLiteral("Invalid procedure call or argument: the file system cannot carry the date %1 "
                                         "of document %2; its file is dated %3")
                              .arg(text(when))
                              .arg(recId)
                              .arg(text(*applied)));
}

} // namespace exporting
