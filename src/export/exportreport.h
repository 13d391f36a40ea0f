#pragma once
// The export report: one record per folder and per document of a run, as JSON Lines, written as
// the run goes so that a run that is killed leaves the record of what it did. The report is what
// `verify` checks the disk (and the repository) against.
//
// Threads: records are made and written on the export walk's thread only; readReport, toJsonLine
// and fromJsonLine touch nothing shared.

#include <QDateTime>
#include <QFile>
#include <QHash>
#include <QList>
#include <QString>

namespace exporting {

// How an item came out. In the report it is the text reportStatusText gives ("" for None).
enum class ReportStatus {
    None,
    Written,
    Renamed,  // a collision suffix was added
    Fallback, // the "[id]" name
    Skipped,  // kept as it was (--update)
    Failed,
};
QString reportStatusText(ReportStatus status);
// None for a text that names no status.
ReportStatus reportStatusOf(const QString &text);

struct ExportRecord {
    enum class Kind { Folder, Document };
    Kind kind = Kind::Document;
    qint64 id = 0;
    QString name;        // as stored in the repository
    QString path;        // relative to the destination, "/"-separated
    qint64 bytes = -1;   // documents; -1: none
    QString sha256;      // lower-case hex of the bytes written; "" when not known
    QDateTime date;      // the date applied to the file; invalid: none
    ReportStatus status = ReportStatus::None;
    QString message;

    static ExportRecord of(Kind kind, qint64 id, const QString &name, ReportStatus status = ReportStatus::None,
                           const QString &message = {})
    {
        ExportRecord r;
        r.kind = kind;
        r.id = id;
        r.name = name;
        r.status = status;
        r.message = message;
        return r;
    }
};

// Where the exporter hands its records.
class ExportRecords {
public:
    virtual ~ExportRecords() = default;
    virtual void record(const ExportRecord &r) = 0;
};

QByteArray toJsonLine(const ExportRecord &r);
// false when the line is not a record.
bool fromJsonLine(const QByteArray &line, ExportRecord *r);

// The report file. A record is on disk (flushed) before the next item starts.
class ReportFile final : public ExportRecords {
public:
    // Empties or creates the file. With carryOver, the digests of an earlier report in the same
    // file are kept for documents an update leaves as they were (same path, size and date).
    bool open(const QString &path, bool carryOver, QString *error);
    void record(const ExportRecord &r) override;
    // False once a record could not be written completely.
    bool ok() const { return m_ok; }
    QString errorString() const { return m_file.errorString(); }

private:
    QFile m_file;
    bool m_ok = true;
    QHash<QString, ExportRecord> m_earlier; // documents by path
};

// Every record of a report; broken receives the numbers of lines that are not records.
bool readReport(const QString &path, QList<ExportRecord> *records, QList<int> *broken, QString *error);

} // namespace exporting
