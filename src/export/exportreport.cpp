#include "export/exportreport.h"

#include <QJsonDocument>
#include <QJsonObject>

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
    }
    return {};
}

ReportStatus reportStatusOf(const QString &text)
{
    for (const ReportStatus s : {ReportStatus::Written, ReportStatus::Renamed, ReportStatus::Fallback,
                                 ReportStatus::Skipped, ReportStatus::Failed}) {
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
    return QJsonDocument(o).toJson(QJsonDocument::Compact) + '\n';
}

bool fromJsonLine(const QByteArray &line, ExportRecord *r)
{
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(line, &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject())
        return false;
    const QJsonObject o = doc.object();
    const QString kind = o.value(QStringLiteral("kind")).toString();
    if (kind != QLatin1String("folder") && kind != QLatin1String("document"))
        return false;
    if (!o.value(QStringLiteral("path")).isString() || !o.value(QStringLiteral("status")).isString())
        return false;
    r->kind = kind == QLatin1String("folder") ? ExportRecord::Kind::Folder : ExportRecord::Kind::Document;
    r->id = qint64(o.value(QStringLiteral("id")).toDouble());
    r->name = o.value(QStringLiteral("name")).toString();
    r->path = o.value(QStringLiteral("path")).toString();
    const QJsonValue bytes = o.value(QStringLiteral("bytes"));
    r->bytes = bytes.isDouble() ? qint64(bytes.toDouble()) : -1;
    r->sha256 = o.value(QStringLiteral("sha256")).toString();
    const QJsonValue date = o.value(QStringLiteral("date"));
    r->date = date.isString() ? QDateTime::fromString(date.toString(), Qt::ISODateWithMs) : QDateTime();
    r->status = reportStatusOf(o.value(QStringLiteral("status")).toString());
    r->message = o.value(QStringLiteral("message")).toString();
    return true;
}

bool ReportFile::open(const QString &path, bool carryOver, QString *error)
{
    m_earlier.clear();
    if (carryOver) {
        QList<ExportRecord> earlier;
        QList<int> broken;
        QString ignored;
        if (QFile::exists(path) && readReport(path, &earlier, &broken, &ignored)) {
            for (const ExportRecord &r : std::as_const(earlier)) {
                if (r.kind == ExportRecord::Kind::Document && !r.sha256.isEmpty())
                    m_earlier.insert(r.path, r);
            }
        }
    }
    m_file.setFileName(path);
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered)) {
        *error = m_file.errorString();
        return false;
    }
    return true;
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

bool readReport(const QString &path, QList<ExportRecord> *records, QList<int> *broken, QString *error)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) {
        *error = f.errorString();
        return false;
    }
    int number = 0;
    while (!f.atEnd()) {
        const QByteArray line = f.readLine();
        ++number;
        if (line.trimmed().isEmpty())
            continue;
        ExportRecord r;
        if (fromJsonLine(line, &r))
            records->append(r);
        else
            broken->append(number);
    }
    return true;
}

} // namespace exporting
