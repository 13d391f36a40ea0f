#include "cli/logcheck.h"

#include "export/exporter.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryFile>

namespace cli {

bool logFolderTakesLines(const QString &logDir, QString *problem)
{
    const QString folder =
        logDir.isEmpty() ? exporting::documentsFolder() : logDir;
    if (folder.isEmpty()) {
        *problem = QStringLiteral("no Documents folder is known for the export log (is HOME set?); name a folder "
                                  "with --log-dir");
        return false;
    }
    QString reason;
    // A folder still to be made is made only when a line is logged: a clean run leaves none behind.
    QString existing = QDir::cleanPath(QFileInfo(folder).absoluteFilePath());
    while (!QFileInfo::exists(existing) && !QFileInfo(existing).isRoot())
        existing = QFileInfo(existing).path();
    const QFileInfo nearest(existing);
    if (existing != QDir::cleanPath(QFileInfo(folder).absoluteFilePath())) {
        if (!nearest.isDir() || !nearest.isWritable())
            reason = QStringLiteral("it cannot be created");
    } else if (!nearest.isDir()) {
        reason = QStringLiteral("it is not a directory");
    } else {
        QTemporaryFile probe(QDir(folder).filePath(QStringLiteral(".parcelwise-log-check-XXXXXX")));
        if (!probe.open() || probe.write("check\r\n") != 7 || !probe.flush())
            reason = probe.errorString();
    }
    if (reason.isEmpty())
        return true;
    *problem = QStringLiteral("the export log cannot be written to \"%1\" (%2); choose another folder with --log-dir")
                   .arg(QDir::toNativeSeparators(folder), reason);
    return false;
}

} // namespace cli
