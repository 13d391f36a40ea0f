#include "export/exportreport.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

namespace exporting {

namespace {

QString kindText(ExportRecord::Kind kind)
{
    return kind == ExportRecord::Kind::Folder ? QStringLiteral("folder") : QStringLiteral("document");
}

QString dateText(const QDateTime &date)
{
    return date.toUTC().toString(Qt::ISODateWithMs);
}

} // namespace

QString reportStatusText(ReportStatus status)
{
    switch (status) {
    case ReportStatus::None:
        break;
    case ReportStatus::Written:
        return QStringLiteral("written");
    case ReportStatus::Renamed:
        return QStringLiteral("renamed");
    case ReportStatus::Fallback:
        return QStringLiteral("fallback");
    case ReportStatus::Skipped:
        return QStringLiteral("skipped");
    case ReportStatus::Failed:
        return QStringLiteral("failed");
    case ReportStatus::Misdated:
        return QStringLiteral("misdated");
    }
    return {};
}

ReportStatus reportStatusOf(const QString &text)
{
    for (const ReportStatus s : {ReportStatus::Written, ReportStatus::Renamed, ReportStatus::Fallback,
                                 ReportStatus::Skipped, ReportStatus::Failed, ReportStatus::Misdated}) {
        if (text == reportStatusText(s))
            return s;
    }
    return ReportStatus::None;
}

QByteArray toJsonLine(const ExportRecord &r)
{
    QJsonObject o;
    o.insert(QStringLiteral("kind"), kindText(r.kind));
    o.insert(QStringLiteral("id"), r.id);
    o.insert(QStringLiteral("name"), r.name);
    o.insert(QStringLiteral("path"), r.path);
    o.insert(QStringLiteral("bytes"), r.bytes < 0 ? QJsonValue() : QJsonValue(r.bytes));
    o.insert(QStringLiteral("sha256"), r.sha256.isEmpty() ? QJsonValue() : QJsonValue(r.sha256));
    o.insert(QStringLiteral("date"), r.date.isValid() ? QJsonValue(dateText(r.date)) : QJsonValue());
    o.insert(QStringLiteral("status"), reportStatusText(r.status));
    o.insert(QStringLiteral("message"), r.message);
    if (r.kind == ExportRecord::Kind::Document)
        o.insert(QStringLiteral("retries"), r.retries);
    return QJsonDocument(o).toJson(QJsonDocument::Compact) + '\n';
}

namespace {

// Ids, sizes: whole numbers a double holds exactly, as the writer puts them.
bool wholeNumber(const QJsonValue &v, qint64 *out)
{
    if (!v.isDouble())
        return false;
    const double d = v.toDouble();
    if (d != double(qint64(d)) || d < 0 || d > 9007199254740992.0)
        return false;
    *out = qint64(d);
    return true;
}

bool isDigest(const QString &text)
{
    if (text.size() != 64)
        return false;
    for (const QChar c : text) {
        if (!((c >= QLatin1Char('0') && c <= QLatin1Char('9')) || (c >= QLatin1Char('a') && c <= QLatin1Char('f'))))
            return false;
    }
    return true;
}

// Reads every field into r; the first field that is not as this tool writes it is named in *why.
bool readFields(const QJsonObject &o, ExportRecord *r, QString *why)
{
    const auto field = [&](const char *name) { return o.value(QLatin1String(name)); };
    const QString kind = field("kind").toString();
    if (kind != QLatin1String("folder") && kind != QLatin1String("document"))
        return *why = QStringLiteral("\"kind\" is neither \"folder\" nor \"document\""), false;
    r->kind = kind == QLatin1String("folder") ? ExportRecord::Kind::Folder : ExportRecord::Kind::Document;
    if (!wholeNumber(field("id"), &r->id))
        return *why = QStringLiteral("\"id\" is not a whole number"), false;
    for (const char *text : {"name", "path", "status", "message"}) {
        if (!field(text).isString())
            return *why = QStringLiteral("\"%1\" is not a text").arg(QLatin1String(text)), false;
    }
    r->name = field("name").toString();
    r->path = field("path").toString();
    r->status = reportStatusOf(field("status").toString());
    r->message = field("message").toString();
    if (r->status == ReportStatus::None)
        return *why = QStringLiteral("\"status\" \"%1\" is not one this tool writes")
                          .arg(field("status").toString().left(40)),
               false;
    r->bytes = -1;
    if (!field("bytes").isNull() && !wholeNumber(field("bytes"), &r->bytes))
        return *why = QStringLiteral("\"bytes\" is neither null nor a whole number"), false;
    r->sha256.clear();
    if (!field("sha256").isNull()) {
        r->sha256 = field("sha256").toString();
        if (!isDigest(r->sha256))
            return *why = QStringLiteral("\"sha256\" is neither null nor 64 hexadecimal digits"), false;
    }
    // Reports written before documents carried it have none.
    r->retries = 0;
    if (o.contains(QLatin1String("retries")) && !wholeNumber(field("retries"), &r->retries))
        return *why = QStringLiteral("\"retries\" is not a whole number"), false;
    r->date = QDateTime();
    if (!field("date").isNull()) {
        r->date = QDateTime::fromString(field("date").toString(), Qt::ISODateWithMs);
        if (!r->date.isValid())
            return *why = QStringLiteral("\"date\" is neither null nor a date"), false;
    }
    return true;
}

} // namespace

bool fromJsonLine(const QByteArray &line, ExportRecord *r, QString *why)
{
    QString reason;
    if (!why)
        why = &reason;
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(line, &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject()) {
        *why = QStringLiteral("not a JSON object");
        return false;
    }
    static const QStringList fields{QStringLiteral("kind"),   QStringLiteral("id"),     QStringLiteral("name"),
                                    QStringLiteral("path"),   QStringLiteral("bytes"),  QStringLiteral("sha256"),
                                    QStringLiteral("date"),   QStringLiteral("status"), QStringLiteral("message")};
    const QJsonObject o = doc.object();
    for (const QString &f : fields) {
        if (!o.contains(f)) {
            *why = QStringLiteral("no \"%1\"").arg(f);
            return false;
        }
    }
    return readFields(o, r, why);
}

bool ReportReader::open(const QString &path, QString *error)
{
    // Reads of a pipe block for data and return nothing only at its end, which is what tells a
    // process substitution's end; atEnd() would say "at end" before the first byte came.
    // Standard input by its descriptor: the C stream's line reading stops at a NUL byte.
    const bool ok = path == QLatin1String("-") ? m_file.open(fileno(stdin), QIODevice::ReadOnly)
                                                : (m_file.setFileName(path), m_file.open(QIODevice::ReadOnly));
    if (!ok)
        *error = m_file.errorString();
    return ok;
}

ReportReader::Next ReportReader::next(ExportRecord *r, QString *why)
{
    for (;;) {
        if (!m_file.isOpen())
            return Next::End;
        const QByteArray line = m_file.readLine(kMaxLine + 2);
        if (line.isEmpty()) {
            if (m_file.error() != QFileDevice::NoError)
                m_error = m_file.errorString();
            return Next::End;
        }
        ++m_line;
        if (!line.endsWith('\n') && line.size() > kMaxLine) {
            // No report this tool writes has such a line; what follows it (a device of zeros, a
            // file of another kind) is not read, so the check ends in bounded time and memory.
            m_file.close();
            *why = QStringLiteral("longer than %1 bytes: the rest of the report was not read").arg(kMaxLine);
            return Next::Broken;
        }
        if (line.trimmed().isEmpty())
            continue;
        return fromJsonLine(line, r, why) ? Next::Record : Next::Broken;
    }
}

bool ReportFile::open(const QString &path, bool carryOver, QString *error)
{
    m_earlier.clear();
    if (carryOver) {
        ReportReader earlier;
        QString ignored;
        ExportRecord r;
        if (QFileInfo(path).isFile() && earlier.open(path, &ignored)) {
            ReportReader::Next next;
            while ((next = earlier.next(&r, &ignored)) != ReportReader::Next::End) {
                if (next == ReportReader::Next::Record && r.kind == ExportRecord::Kind::Document && !r.sha256.isEmpty())
                    m_earlier.insert(r.path, r);
            }
        }
    }
    m_file.setFileName(path);
    // A file is emptied by begin(), not here; a pipe or a device (/dev/stdout) is only written.
    const QFileInfo info(path);
    const QIODevice::OpenMode mode = !info.exists() || info.isFile() ? QIODevice::ReadWrite : QIODevice::WriteOnly;
    if (!m_file.open(mode | QIODevice::Unbuffered)) {
        *error = m_file.errorString();
        return false;
    }
    return true;
}

void ReportFile::begin()
{
    // A pipe or a device has nothing to empty.
    if (!m_file.isSequential() && !m_file.resize(0))
        m_ok = false;
}

void ReportFile::record(const ExportRecord &r)
{
    ExportRecord out = r;
    if (out.status == ReportStatus::Skipped && out.sha256.isEmpty()) {
        // A file the update left alone: its digest is still the one taken when it was written.
        const auto it = m_earlier.constFind(out.path);
        if (it != m_earlier.constEnd() && it->bytes == out.bytes && it->date == out.date)
            out.sha256 = it->sha256;
    }
    // Unbuffered: one write per line, so a killed run leaves whole lines.
    const QByteArray line = toJsonLine(out);
    if (m_file.write(line) != line.size())
        m_ok = false;
}

} // namespace exporting
