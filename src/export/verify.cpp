#include "export/verify.h"

#include "errors/hunterr.h"
#include "export/chunkbuffer.h"
#include "export/exporter.h"
#include "export/hashingreader.h"
#include "repository/statements.h"

#include "export/sha256.h"
#include <QFile>
#include <QDirIterator>
#include <QFileInfo>

namespace exporting {

bool staysInside(const QString &rel)
{
    if (rel.isEmpty() || rel.startsWith(QLatin1Char('/')))
        return false;
#ifdef Q_OS_WIN
    // Elsewhere a backslash is a character of a name (a stored extension may hold one).
    if (rel.contains(QLatin1Char('\\')) || (rel.size() > 1 && rel.at(1) == QLatin1Char(':')))
        return false;
#endif
    for (const QString &name : rel.split(QLatin1Char('/'))) {
        if (name.isEmpty() || name == QLatin1String(".") || name == QLatin1String(".."))
            return false;
    }
    return true;
}

namespace {

// The time the export gives a file (the creation time on Windows, the modification time elsewhere).
QDateTime exportTime(const QFileInfo &info)
{
#ifdef Q_OS_WIN
    return info.fileTime(QFileDevice::FileBirthTime);
#else
    return info.fileTime(QFileDevice::FileModificationTime);
#endif
}

// Every name below the destination is checked for a link: a link swapped in for a directory
// would otherwise lead the check outside the destination.
bool throughLink(const QString &destination, const QString &rel)
{
    QString at = destination;
    for (const QString &name : rel.split(QLatin1Char('/'))) {
        at += QLatin1Char('/') + name;
        if (QFileInfo(at).isSymLink())
            return true;
    }
    return false;
}

QString hashFile(QFile &f, qint64 *read)
{
    Sha256 hash;
    char *const chunk = chunkBuffer();
    *read = 0;
    for (;;) {
        const qint64 got = f.read(chunk, kChunkBytes);
        if (got <= 0)
            break;
        hash.addData(chunk, got);
        *read += got;
    }
    return hash.hexResult();
}

} // namespace

FileCheck checkFile(const QString &destination, const ExportRecord &record)
{
    FileCheck check;
    if (!staysInside(record.path) || throughLink(destination, record.path)) {
        check.differences << QStringLiteral("missing");
        check.detail = QStringLiteral("the path does not name a file inside the destination");
        return check;
    }
    const QString path = destination + QLatin1Char('/') + record.path;
    const QFileInfo info(path);
    QFile f(path);
    if (!info.isFile() || !f.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        check.differences << QStringLiteral("missing");
        check.detail = info.exists() ? QStringLiteral("cannot be read: ") + f.errorString() : QStringLiteral("no file");
        return check;
    }
    QStringList details;
    check.sha256 = hashFile(f, &check.size);
    if (record.bytes >= 0 && check.size != record.bytes) {
        check.differences << QStringLiteral("size");
        details << QStringLiteral("%1 bytes, the report says %2").arg(check.size).arg(record.bytes);
    }
    if (!record.sha256.isEmpty() && check.sha256 != record.sha256) {
        check.differences << QStringLiteral("content");
        details << QStringLiteral("SHA-256 %1, the report says %2").arg(check.sha256, record.sha256);
    }
    const QDateTime onDisk = exportTime(info);
    if (record.date.isValid() && onDisk.toMSecsSinceEpoch() != record.date.toMSecsSinceEpoch()) {
        check.differences << QStringLiteral("date");
        details << QStringLiteral("dated %1, the report says %2")
                       .arg(onDisk.toUTC().toString(Qt::ISODate), record.date.toUTC().toString(Qt::ISODate));
    }
    check.detail = details.join(QStringLiteral("; "));
    return check;
}

FileCheck checkFolder(const QString &destination, const ExportRecord &record)
{
    FileCheck check;
    if (!staysInside(record.path) || throughLink(destination, record.path)) {
        check.differences << QStringLiteral("missing");
        check.detail = QStringLiteral("the path does not name a directory inside the destination");
    } else if (!QFileInfo(destination + QLatin1Char('/') + record.path).isDir()) {
        check.differences << QStringLiteral("missing");
        check.detail = QStringLiteral("no directory");
    }
    return check;
}

QStringList unnamedEntries(const QString &destination, const QSet<QString> &named)
{
    QStringList extra;
    QDirIterator it(destination, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    const qsizetype skip = destination.size() + 1;
    while (it.hasNext()) {
        const QString rel = it.next().mid(skip);
        if (!named.contains(rel))
            extra << rel;
    }
    extra.sort();
    return extra;
}

FileCheck checkRepository(repo::Connection &cn, bool archive, const QString &archiveDb, const ExportRecord &record,
                          const FileCheck &file)
{
    FileCheck check;
    const QString idText = QString::number(record.id);
    const QString sql = archive ? repo::statements::archiveDocument(idText, archiveDb) : repo::statements::liveDocument(idText);
    // Streamed a chunk at a time, as the export reads it: a large document is never held whole.
    repo::StreamedRow row = cn.executeStreamed(sql);
    if (row.fields.eof() || !row.value) {
        check.differences << QStringLiteral("repository missing");
        check.detail = QStringLiteral("the repository holds no bytes for document %1").arg(record.id);
        return check;
    }
    HashingReader hashing(*row.value);
    char *const chunk = chunkBuffer();
    while (hashing.read(chunk, kChunkBytes) > 0) {
    }
    row.value.reset(); // the statement ends before the date statement runs
    check.size = hashing.bytes();
    check.sha256 = hashing.sha256();
    const QString expected = file.sha256.isEmpty() ? record.sha256 : file.sha256;
    const qint64 expectedSize = file.size >= 0 ? file.size : record.bytes;
    QStringList details;
    if (expectedSize >= 0 && check.size != expectedSize) {
        check.differences << QStringLiteral("repository size");
        details << QStringLiteral("the repository holds %1 bytes, the file %2").arg(check.size).arg(expectedSize);
    }
    if (!expected.isEmpty() && check.sha256 != expected) {
        check.differences << QStringLiteral("repository content");
        details << QStringLiteral("the repository's SHA-256 is %1, the file's %2").arg(check.sha256, expected);
    }
    // A misdated record says its file could not take the repository's date (or the repository's
    // date could not be read): its file's date was checked against the record alone.
    const QDateTime when = record.status == ReportStatus::Misdated ? record.date : documentDate(cn, record.id);
    if (when.isValid() != record.date.isValid()
        || (when.isValid() && when.toMSecsSinceEpoch() != record.date.toMSecsSinceEpoch())) {
        check.differences << QStringLiteral("repository date");
        details << QStringLiteral("the repository dates it %1, the report %2")
                       .arg(when.isValid() ? when.toUTC().toString(Qt::ISODate) : QStringLiteral("not at all"),
                            record.date.isValid() ? record.date.toUTC().toString(Qt::ISODate) : QStringLiteral("not at all"));
    }
    check.detail = details.join(QStringLiteral("; "));
    return check;
}

} // namespace exporting
