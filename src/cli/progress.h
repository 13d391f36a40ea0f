#pragma once
// What the export command shows while the walk runs: the dry run's listing on stdout and the
// live progress line on stderr.

#include "export/exporter.h"

#include <QElapsedTimer>
#include <QString>

namespace cli {

// "1.5 MiB", "312 B": sizes as people read them.
QString humanBytes(qint64 bytes);
// "1 folder", "2 folders": a count and its noun (plural by an "s").
QString counted(qint64 count, const char *noun);

class ExportReporter : public exporting::ExportObserver {
public:
    // destination: shown paths are relative to it. listing: the dry run's lines on stdout.
    // reasons: each failed item on stderr as it happens, with the error's own words.
    ExportReporter(const QString &destination, bool showProgress, bool listing, bool reasons = false);

    void folderStarted(const QString &path) override;
    void directoryRemoved(const QString &path) override;
    void directoryCreated(const QString &path) override;
    void documentWritten(const QString &filePath, qint64 bytes) override;
    void documentBytes(qint64 bytesInFlight) override;
    void failureLogged(const QString &line) override;
    void itemFailed(const QString &path, const QString &reason) override;
    void failureUnlogged(const QString &line) override;
    void directoryKept(const QString &path) override;
    void documentKept(const QString &filePath, qint64 bytes) override;
    void fileNotListed(const QString &filePath) override;

    // Takes the progress line off the screen, so the summary starts on a clean line.
    void finish();
    double elapsedSeconds() const;

private:
    void list(const QString &line);
    void draw(bool force);
    void clearLine();
    QString shown(const QString &path) const;

    QString m_destination;
    bool m_progress;
    bool m_listing;
    bool m_reasons;
    QElapsedTimer m_clock;
    bool m_lines; // stderr is no terminal: whole lines now and then, never a line drawn over
    qint64 m_lastDraw = -1;
    int m_drawnWidth = 0;
    qint64 m_folders = 0;
    qint64 m_documents = 0;
    qint64 m_bytes = 0;
    qint64 m_inFlight = 0; // bytes of documents still being written
    qint64 m_failures = 0;
    qint64 m_kept = 0;
    QString m_current;
};

} // namespace cli
