// The parts of the document path that make a run provable and resumable: the staged file put in
// place, the report's records, and an update's test of what is on disk already.

#include "export/exporter.h"

#include "errors/hunterr.h"
#include "export/exportdisk.h"

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
            rec.status = reportstatus::fallback;
        }
    });
    if (ok)
        return filePath;
    disk().discardFile(staged);
    const QString folder = staged.left(staged.lastIndexOf(pathSeparator()));
    logFailure(source, rec.id, rec.name, folder, 0);
    rec.status = reportstatus::failed;
    rec.message = m_lastFailure;
    return {};
}

QString Exporter::unchangedFile(qint64 recId, const QString &path, QString name, const QString &ext,
                                const repo::ValueReader &bytes, QDateTime *date)
{
    // The size first: it costs nothing when the reader knows it, and most changes show in it.
    if (bytes.size() < 0)
        return {};
    const QChar sep = pathSeparator();
    const QString tag = idTag(recId);
    if (disk().wroteThisRun(path + sep + name + ext))
        name += QLatin1Char(' ') + tag;
    QStringList candidates;
    if (titleCanBeFileName(name, ext))
        candidates << path + sep + name + ext;
    candidates << path + sep + tag + ext;
    for (const QString &file : std::as_const(candidates)) {
        qint64 size = -1;
        QDateTime onDisk;
        if (disk().wroteThisRun(file) || !disk().fileFacts(file, &size, &onDisk))
            continue;
        if (size != bytes.size())
            return {};
        // A document without a date cannot be told from an older copy of the same size.
        QDateTime when;
        if (!HuntERR::resume(QStringLiteral("FrmSendtofolder.fxnSaveDocument(recId,path)"),
                             [&] { when = documentDate(m_signIn.cnDb(), recId); })
            || !when.isValid() || when.toMSecsSinceEpoch() != onDisk.toMSecsSinceEpoch())
            return {};
        *date = when;
        return file;
    }
    return {};
}

void Exporter::record(ExportRecord r, const QString &path)
{
    if (!m_options.records)
        return;
    const QString &destination = m_signIn.DestinationPath;
    const QString prefix = destination.endsWith(pathSeparator()) ? destination : destination + pathSeparator();
    QString rel = path.startsWith(prefix) ? path.mid(prefix.size()) : path;
    if (pathSeparator() != QLatin1Char('/'))
        rel.replace(pathSeparator(), QLatin1Char('/'));
    r.path = rel;
    m_options.records->record(r);
}

void Exporter::listNotListed(const QString &dir)
{
    if (!m_options.observer)
        return;
    for (const QString &file : disk().filesNotOfThisRun(dir))
        m_options.observer->fileNotListed(file);
}
