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
    Misdated, // written, but its file could not take the repository's date (the message says why)
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
    qint64 retries = 0; // documents: how often their statements were sent again on a reopened connection

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
    // Left out by a filter of the run (--exclude, --since): nothing of it is on disk.
    static ExportRecord filtered(Kind kind, qint64 id, const QString &name, const QString &why)
    {
        return of(kind, id, name, ReportStatus::Skipped, QStringLiteral("filtered: ") + why);
    }
    bool isFilteredOut() const
    {
        return status == ReportStatus::Skipped && message.startsWith(QLatin1String("filtered: "));
    }
};

// Where the exporter hands its records.
class ExportRecords {
public:
    virtual ~ExportRecords() = default;
    // The run goes ahead: nothing was written before this.
    virtual void begin() {}
    virtual void record(const ExportRecord &r) = 0;
};

QByteArray toJsonLine(const ExportRecord &r);
// false when the line is not a record: not JSON, a field missing or of the wrong type, a kind or
// status this tool never writes. *why says which, when given.
bool fromJsonLine(const QByteArray &line, ExportRecord *r, QString *why = nullptr);

// A report read a line at a time, from a file, a pipe or standard input ("-"), in bounded memory:
// a line longer than kMaxLine is counted as broken and ends the reading.
class ReportReader {
public:
    static constexpr qint64 kMaxLine = 1 << 20;
    enum class Next { Record, Broken, End };

    bool open(const QString &path, QString *error);
    // The next non-blank line: a record, or a broken line with why it is not one; End when the
    // input is over (error() tells whether it ended on a read error).
    Next next(ExportRecord *r, QString *why);
    int lineNumber() const { return m_line; }
    QString error() const { return m_error; }

private:
    QFile m_file;
    QByteArray m_buffer;
    int m_line = 0;
    QString m_error;
};

// The report file. A record is on disk (flushed) before the next item starts.
class ReportFile final : public ExportRecords {
public:
    // Opens or creates the file, and empties it only when the run begins (a refused run leaves an
    // earlier report as it was). With carryOver, the digests of an earlier report in the same file
    // are kept for documents an update leaves as they were (same path, size and date).
    bool open(const QString &path, bool carryOver, QString *error);
    void begin() override;
    void record(const ExportRecord &r) override;
    // False once a record could not be written completely.
    bool ok() const { return m_ok; }
    QString errorString() const { return m_file.errorString(); }

private:
    QFile m_file;
    bool m_ok = true;
    QHash<QString, ExportRecord> m_earlier; // documents by path
};

} // namespace exporting
