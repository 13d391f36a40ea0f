// The parts of the document path that make a run provable and resumable: the staged file put in
// place, the report's records in walk order, and an update's listing of what is on disk already.

#include "export/exporter.h"

#include "errors/hunterr.h"
#include "export/exportdisk.h"
#include "repository/statements.h"

namespace exporting {

using names::pathSeparator;

QString Exporter::commitDocument(const QString &source, const QString &staged, const QString &fallback,
                                 ExportRecord &rec)
{
    QString filePath = staged;
    const bool ok = HuntERR::resume(source, [&] {
        try {
            disk().commitFile(staged, staged);
        } catch (const HuntERR::Error &e) {
            if (e.number() != HuntERR::ERR_WRITE_FAILED || staged == fallback)
                throw;
            // The title cannot be a file name here: the document keeps its id instead. That is
            // a naming decision, not a failure, so nothing goes to the log.
            const QString tagName = fallback.mid(fallback.lastIndexOf(pathSeparator()) + 1);
            if (tagName.isEmpty() || disk().wroteThisRun(fallback))
                HuntERR::raise(HuntERR::ERR_WRITE_FAILED,
                               QStringLiteral("Write to file failed: %1 cannot be a file name").arg(fallback));
            disk().commitFile(staged, fallback);
            filePath = fallback;
            rec.status = ReportStatus::Fallback;
        }
    });
    if (ok)
        return filePath;
    disk().discardFile(staged);
    const QString folder = staged.left(staged.lastIndexOf(pathSeparator()));
    logFailure(source, rec.id, rec.name, folder, 0);
    rec.status = ReportStatus::Failed;
    rec.message = m_lastFailure;
    return {};
}

void Exporter::record(ExportRecord r, const QString &path)
{
    if (!m_options.records)
        return;
    if (!m_retiring && m_documents && m_documents->pending() > 0) {
        m_heldRecords.emplace_back(m_submitted, r);
        m_heldRecords.back().second.path = path; // made relative when it is written
        return;
    }
    writeRecord(std::move(r), path);
}

void Exporter::writeRecord(ExportRecord r, const QString &path)
{
    const QString &destination = m_signIn.DestinationPath;
    const QString prefix = destination.endsWith(pathSeparator()) ? destination : destination + pathSeparator();
    QString rel = path.startsWith(prefix) ? path.mid(prefix.size()) : path;
    if (pathSeparator() != QLatin1Char('/'))
        rel.replace(pathSeparator(), QLatin1Char('/'));
    r.path = rel;
    m_options.records->record(r);
}

void Exporter::releaseRecords(qint64 serial)
{
    while (!m_heldRecords.empty() && m_heldRecords.front().first <= serial) {
        const ExportRecord r = m_heldRecords.front().second;
        m_heldRecords.pop_front();
        writeRecord(r, r.path);
    }
}

QString Exporter::sizesQuery(const QString &folderId) const
{
    return m_signIn.blnArchive ? repo::statements::archiveDocumentSizes(folderId, m_signIn.strSelectedDb)
                               : repo::statements::liveDocumentSizes(folderId);
}

QHash<qint64, ListedFacts> Exporter::listedSizes(const QString &folderId, bool anyListed)
{
    const QString sql = sizesQuery(folderId);
    if (!anyListed) {
        // Sent ahead, or next to be: the walk asks in the order it sent them ahead, so it is
        // the first of those not sent yet or it is on its way.
        if (!m_ahead.empty() && m_ahead.front() == sql)
            m_ahead.pop_front();
        else if (m_documents)
            m_documents->forget(sql);
        return {};
    }
    QHash<qint64, ListedFacts> listed;
    QSet<qint64> seen, twice;
    try {
        repo::RecordSet rs = listing(sql);
        for (; !rs.eof(); rs.moveNext()) {
            const qint64 id = listedId(rs);
            if (seen.contains(id))
                twice.insert(id);
            seen.insert(id);
            const QVariant value = rs.value(QStringLiteral("File_Size"));
            bool known = false;
            const qint64 size = value.toLongLong(&known);
            if (value.isNull() || !known || size < 0)
                continue;
            ListedFacts &facts = listed[id];
            facts.size = size;
            try {
                facts.date = documentDateOf(rs);
            } catch (...) {
                facts.dateError = std::current_exception();
            }
        }
    } catch (...) {
        return {}; // every document asks for itself, and meets whatever is wrong there
    }
    for (const qint64 id : std::as_const(twice))
        listed.remove(id);
    return listed;
}

void Exporter::listNotListed(const QString &dir)
{
    if (!m_options.observer)
        return;
    for (const QString &file : disk().filesNotOfThisRun(dir))
        m_options.observer->fileNotListed(file);
}

} // namespace exporting
