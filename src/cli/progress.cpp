#include "cli/progress.h"

#include "cli/terminal.h"

#include <QDir>

namespace cli {

QString humanBytes(qint64 bytes)
{
    static const char *const units[] = {"KiB", "MiB", "GiB", "TiB"};
    if (bytes < 1024)
        return QString::number(bytes) + QStringLiteral(" B");
    double value = double(bytes);
    int unit = -1;
    while (value >= 1024.0 && unit < 3) {
        value /= 1024.0;
        ++unit;
    }
    return QString::number(value, 'f', value < 10.0 ? 1 : 0) + QLatin1Char(' ') + QLatin1String(units[unit]);
}

QString counted(qint64 count, const char *noun)
{
    return QString::number(count) + QLatin1Char(' ') + QLatin1String(noun) + (count == 1 ? QString() : QStringLiteral("s"));
}

ExportReporter::ExportReporter(const QString &destination, bool showProgress, bool listing, bool reasons)
    : m_destination(QDir::toNativeSeparators(destination))
    , m_progress(showProgress)
    , m_listing(listing)
    , m_reasons(reasons)
    , m_lines(!stderrIsTerminal())
{
    m_clock.start();
}

QString ExportReporter::shown(const QString &path) const
{
    const QString native = QDir::toNativeSeparators(path);
    QString prefix = m_destination;
    if (!prefix.endsWith(QDir::separator()))
        prefix += QDir::separator();
    return native.startsWith(prefix) ? native.mid(prefix.size()) : native;
}

void ExportReporter::folderStarted(const QString &path)
{
    m_current = printable(shown(path));
    draw(false);
}

void ExportReporter::directoryRemoved(const QString &path)
{
    list(QStringLiteral("delete  ") + QDir::toNativeSeparators(path));
}

void ExportReporter::directoryCreated(const QString &path)
{
    ++m_folders;
    m_current = printable(shown(path));
    list(QStringLiteral("mkdir   ") + QDir::toNativeSeparators(path));
    draw(false);
}

void ExportReporter::documentWritten(const QString &filePath, qint64 bytes)
{
    ++m_documents;
    m_bytes += qMax<qint64>(bytes, 0);
    m_inFlight = qMax<qint64>(m_inFlight - qMax<qint64>(bytes, 0), 0); // counted now as written
    list(QStringLiteral("write   ") + QDir::toNativeSeparators(filePath) + QStringLiteral("  (")
         + QString::number(bytes) + QStringLiteral(" bytes)"));
    draw(false);
}

void ExportReporter::documentBytes(qint64 bytesInFlight)
{
    m_inFlight = qMax<qint64>(bytesInFlight, 0);
    draw(false);
}

void ExportReporter::directoryKept(const QString &path)
{
    ++m_folders;
    m_current = printable(shown(path));
    list(QStringLiteral("keep    ") + QDir::toNativeSeparators(path));
    draw(false);
}

void ExportReporter::documentKept(const QString &filePath, qint64 bytes)
{
    ++m_kept;
    list(QStringLiteral("keep    ") + QDir::toNativeSeparators(filePath) + QStringLiteral("  (") + QString::number(bytes)
         + QStringLiteral(" bytes, unchanged)"));
    draw(false);
}

void ExportReporter::fileNotListed(const QString &filePath)
{
    list(QStringLiteral("extra   ") + QDir::toNativeSeparators(filePath) + QStringLiteral("  (not in the repository; left alone)"));
}

void ExportReporter::failureLogged(const QString &)
{
    ++m_failures;
    draw(false);
}

void ExportReporter::itemFailed(const QString &path, const QString &reason)
{
    if (!m_reasons)
        return;
    if (m_progress)
        clearLine();
    writeErr(printable(shown(path)) + QStringLiteral(": ") + printable(reason) + QLatin1Char('\n'));
}

void ExportReporter::failureUnlogged(const QString &line)
{
    // The log could not take it: standard error is the only place left.
    if (m_progress)
        clearLine();
    writeErr(QStringLiteral("parcelwise: not logged: ") + printable(line) + QLatin1Char('\n'));
}

void ExportReporter::list(const QString &line)
{
    if (!m_listing)
        return;
    // The listing and the progress line may share one terminal: the listing line goes in above.
    if (m_progress)
        clearLine();
    writeOut(printable(line) + QLatin1Char('\n'));
}

void ExportReporter::draw(bool force)
{
    if (!m_progress)
        return;
    const qint64 now = m_clock.elapsed();
    // A file or a pipe keeps every line: one every few seconds is enough to follow the run.
    const qint64 interval = m_lines ? 5000 : 100;
    const qint64 since = m_lastDraw < 0 ? (m_lines ? now : interval) : now - m_lastDraw;
    if (!force && since < interval)
        return;
    m_lastDraw = now;

    // Bytes count as they reach the disk, documents once they are complete.
    const double seconds = qMax(now, qint64(1)) / 1000.0;
    const qint64 bytes = m_bytes + m_inFlight;
    QString line = QStringLiteral("%1  %2  %3  %4/s")
                       .arg(counted(m_folders, "folder"), counted(m_documents, "document"))
                       .arg(humanBytes(bytes))
                       .arg(humanBytes(qint64(double(bytes) / seconds)));
    if (m_kept > 0)
        line += QStringLiteral("  %1 unchanged").arg(m_kept);
    if (m_failures > 0)
        line += QStringLiteral("  %1 failed").arg(m_failures);
    if (m_lines) {
        writeErr(line + (m_current.isEmpty() ? QString() : QStringLiteral("  ") + m_current) + QLatin1Char('\n'));
        return;
    }
    if (!m_current.isEmpty()) {
        // Keep the line inside the terminal: the folder loses its beginning, the counts stay.
        const int room = terminalColumns() - 1 - int(line.size()) - 2;
        QString folder = m_current;
        if (room < 8)
            folder.clear();
        else if (folder.size() > room)
            folder = QStringLiteral("...") + folder.right(room - 3);
        if (!folder.isEmpty())
            line += QStringLiteral("  ") + folder;
    }
    const int width = int(line.size());
    if (width < m_drawnWidth)
        line += QString(m_drawnWidth - width, QLatin1Char(' '));
    m_drawnWidth = width;
    writeErr(QLatin1Char('\r') + line);
}

void ExportReporter::clearLine()
{
    if (m_lines)
        return;
    if (m_drawnWidth > 0)
        writeErr(QLatin1Char('\r') + QString(m_drawnWidth, QLatin1Char(' ')) + QLatin1Char('\r'));
    m_drawnWidth = 0;
}

void ExportReporter::finish()
{
    if (m_progress)
        clearLine();
}

double ExportReporter::elapsedSeconds() const
{
    return m_clock.elapsed() / 1000.0;
}

} // namespace cli
