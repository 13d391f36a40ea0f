// The export log: its name per run, the folder it lives in, one appended line per failure, and
// what a stopped run did not finish.

#include "export/exporter.h"

#include "errors/hunterr.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>

namespace exporting {

using names::pathSeparator;
using tree::FolderTree;
using tree::folderIdOfKey;

namespace {

constexpr qint32 ERR_LOG_WRITE = HuntERR::ERR_PATH_FILE_ACCESS;

// The log name starts with a separator, so the folder must not end with one.
QString withoutTrailingSeparators(QString folder)
{
    folder = QDir::toNativeSeparators(folder);
    const QChar sep = pathSeparator();
    while (folder.endsWith(sep) || folder.endsWith(QLatin1Char('/')))
        folder.chop(1);
    return folder;
}

// A log written into a folder that does not exist yet would be lost; a dry run only names it.
QString logFolderAt(const QString &folder, bool create)
{
    if (folder.isEmpty())
        return {};
    if (create)
        QDir().mkpath(folder);
    return withoutTrailingSeparators(folder);
}

// The error's own words (its first line) for a report record, never the trail's report around
// them: that carries the time and the machine, which would make two runs' reports differ.
QString failureMessage(const QString &description)
{
    return description.section(QStringLiteral("\r\n"), 0, 0).trimmed();
}

} // namespace

QString exportLogNameFor(const QDateTime &when)
{
    const QDate date = when.date();
    const QTime time = when.time();
    return QString(pathSeparator()) + QStringLiteral("zarnivo Parcelwise Log ") + QString::number(date.year())
           + QString::number(date.month()) + QString::number(date.day()) + QString::number(time.hour())
           + QString::number(time.minute()) + QStringLiteral(".txt");
}

QString documentsFolder()
{
#ifdef Q_OS_UNIX
    // Without a home Qt names a Documents folder at the file system's root, which is nobody's.
    if (qEnvironmentVariableIsEmpty("HOME"))
        return {};
#endif
    return QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
}

QString fxnGetMyFolderLocation()
{
    return logFolderAt(documentsFolder(), true);
}

QString Exporter::logFolder() const
{
    const QString folder = m_options.logFolder.isEmpty() ? documentsFolder() : m_options.logFolder;
    return logFolderAt(folder, !m_options.dryRun);
}

void Exporter::fxnWriteLog(qint64 paramId, QString paramName, QString paramLocation, quint8 paramType)
{
    HuntERR::inner(QStringLiteral("modGlobal.fxnWriteLog(paramId,paramName,paramLocation,paramType)"), [&] {
        // Locations under the destination are shown relative to it.
        const QString location =
            paramLocation.replace(m_signIn.DestinationPath + pathSeparator(), QString(), Qt::CaseSensitive);

        QString line;
        if (paramType == 0)
            line = QStringLiteral("File ID: ") + QString::number(paramId) + QStringLiteral(" , File Name: ")
                   + paramName + QStringLiteral(" , File Location: ") + location;
        else if (paramType == 1)
            line = QStringLiteral("Folder ID: ") + QString::number(paramId) + QStringLiteral(" , Folder Name: ")
                   + paramName + QStringLiteral(" , Folder Location: ") + location;

        ++m_result.failures;
        m_pendingLine = line;
        if (m_options.observer)
            m_options.observer->failureLogged(line);
        if (m_options.dryRun)
            return;
        appendLogLine(line);
        m_pendingLine.clear();
    });
}

void Exporter::appendLogLine(const QString &line)
{
    const QString folder = logFolder();
    const QString path = folder + pathSeparator() + m_result.logName;
    // Without a folder the name alone would land in the file system's root.
    if (folder.isEmpty())
        HuntERR::raise(ERR_LOG_WRITE, QStringLiteral("Path/File access error: there is no documents folder "
                                                     "for the export log"));
    QFile log(path);
    // Unbuffered: the line is one write, and what a full disk took of it is cut off again,
    // so the log never ends in half a line.
    if (!log.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered))
        HuntERR::raise(ERR_LOG_WRITE, QStringLiteral("Path/File access error: cannot open the export log %1 (%2)")
                                          .arg(path, log.errorString()));
    const qint64 before = log.size();
    const QByteArray bytes = line.toLocal8Bit() + QByteArrayLiteral("\r\n");
    const qint64 written = log.write(bytes);
    const QString why = log.errorString();
    if (written != bytes.size()) {
        log.resize(before);
        HuntERR::raise(ERR_LOG_WRITE, QStringLiteral("Path/File access error: cannot write the export log %1 (%2)")
                                          .arg(path, why));
    }
    log.close();
    m_logFolder = folder;
    m_logWritten = true;
}

QString cancellationLine(const QStringList &unfinished)
{
    return QStringLiteral("Copy cancelled by the user; folders not finished: ")
           + (unfinished.isEmpty() ? QStringLiteral("none") : unfinished.join(QStringLiteral(", ")));
}

// A ticked folder the walk never reached, left part way, or whose documents were abandoned in
// flight is unfinished; one it met and passed over (excluded, failed, written before) is not.
void Exporter::noteUnfinished()
{
    FolderTree &tree = m_tree.tree();
    for (int index = 1; index <= tree.count(); ++index) {
        const FolderTree::Node *node = tree.node(index);
        if (!node->checked || folderIdOfKey(node->key) == 1)
            continue;
        const auto walk = m_tickedWalks.constFind(node);
        bool finished = walk != m_tickedWalks.cend() && walk->whole;
        for (const qint64 serial : std::as_const(m_abandoned))
            finished = finished && (serial < walk->firstSerial || serial > walk->lastSerial);
        if (!finished)
            m_result.unfinished << repositoryPathOf(node);
    }
    if (m_options.logCancellation && !m_options.dryRun) {
        try {
            appendLogLine(cancellationLine(m_result.unfinished));
        } catch (...) {
            // The window's closing message names them as well.
        }
    }
}

void Exporter::logFailure(const QString &source, qint64 id, const QString &name, const QString &location,
                          quint8 type)
{
    // The log keeps walk order: documents handed out before this line are logged before it.
    if (m_documents && !m_retiring)
        m_documents->drain();
    m_pendingLine.clear();
    m_lastFailure = failureMessage(HuntERR::preservedCause());
    if (m_options.observer)
        m_options.observer->itemFailed(type == 0 ? location + pathSeparator() + name : location, m_lastFailure);
    if (type == 1) // a document's record is made where the document is handled
        record(ExportRecord::of(ExportRecord::Kind::Folder, id, name, ReportStatus::Failed, m_lastFailure), location);
    HuntERR::resume(source, [&] { fxnWriteLog(id, name, location, type); });
    // A line the log could not take is not dropped: the caller shows it another way.
    if (!m_options.dryRun && !m_pendingLine.isEmpty()) {
        m_result.unloggedLines << m_pendingLine;
        if (m_options.observer)
            m_options.observer->failureUnlogged(m_pendingLine);
        m_pendingLine.clear();
    }
}

} // namespace exporting
