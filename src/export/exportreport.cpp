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

namespace {

// A JSON string as QJsonDocument writes one: UTF-8; quotes, backslashes, control characters and
// a surrogate without its pair escaped (so the text reads back as it was), nothing else.
void appendJsonString(QByteArray &out, const QString &text)
{
    static const char hex[] = "0123456789abcdef";
    const auto escaped = [&](char16_t u) {
        out.append("\\u").append(hex[u >> 12]).append(hex[(u >> 8) & 15]).append(hex[(u >> 4) & 15]).append(hex[u & 15]);
    };
    out += '"';
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t u = text.at(i).unicode();
        const char *named = u == '"' ? "\\\"" : u == '\\' ? "\\\\" : u == '\b' ? "\\b" : u == '\f' ? "\\f"
            : u == '\n' ? "\\n" : u == '\r' ? "\\r" : u == '\t' ? "\\t" : nullptr;
        if (named) {
            out += named;
        } else if (u < 0x20) {
            escaped(u);
        } else if (u < 0x80) {
            out += char(u);
        } else if (u < 0x800) {
            out.append(char(0xc0 | (u >> 6))).append(char(0x80 | (u & 0x3f)));
        } else if (!QChar::isSurrogate(u)) {
            out.append(char(0xe0 | (u >> 12))).append(char(0x80 | ((u >> 6) & 0x3f))).append(char(0x80 | (u & 0x3f)));
        } else if (QChar::isHighSurrogate(u) && i + 1 < text.size() && text.at(i + 1).isLowSurrogate()) {
            const char32_t c = QChar::surrogateToUcs4(u, text.at(++i).unicode());
            out.append(char(0xf0 | (c >> 18))).append(char(0x80 | ((c >> 12) & 0x3f)));
            out.append(char(0x80 | ((c >> 6) & 0x3f))).append(char(0x80 | (c & 0x3f)));
        } else {
            escaped(u);
        }
    }
    out += '"';
}

} // namespace

// Written out field by field, in the order QJsonObject keeps its keys (by name), as the lines
// always were: building a JSON object for every record cost an update more than all else it
// does for a document left as it was.
QByteArray toJsonLine(const ExportRecord &r)
{
    QByteArray out;
    out.reserve(256 + r.name.size() + r.path.size() + r.message.size());
    out += "{\"bytes\":";
    out += r.bytes < 0 ? QByteArray("null") : QByteArray::number(r.bytes);
    out += ",\"date\":";
    if (r.date.isValid())
        appendJsonString(out, dateText(r.date));
    else
        out += "null";
    out += ",\"id\":" + QByteArray::number(r.id) + ",\"kind\":";
    appendJsonString(out, kindText(r.kind));
    out += ",\"message\":";
    appendJsonString(out, r.message);
    out += ",\"name\":";
    appendJsonString(out, r.name);
    out += ",\"path\":";
    appendJsonString(out, r.path);
    if (r.kind == ExportRecord::Kind::Document)
        out += ",\"retries\":" + QByteArray::number(r.retries);
    out += ",\"sha256\":";
    if (r.sha256.isEmpty())
        out += "null";
    else
        appendJsonString(out, r.sha256);
    out += ",\"status\":";
    appendJsonString(out, reportStatusText(r.status));
    out += "}\n";
    return out;
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
        // Into one buffer for the whole report: asking for a new line of up to kMaxLine bytes
        // each time costs the allocation of that much for every line.
        if (m_buffer.isEmpty())
            m_buffer.resize(kMaxLine + 3);
        const qint64 n = m_file.readLine(m_buffer.data(), m_buffer.size()); // at most kMaxLine + 2
        const QByteArray line = QByteArray::fromRawData(m_buffer.constData(), qMax<qint64>(n, 0));
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
