#include "cli/logcheck.h"

#include <QDir>
#include <QStandardPaths>
#include <QTemporaryFile>

namespace cli {

bool logFolderTakesLines(const QString &logDir, QString *problem)
{
    const QString folder =
        logDir.isEmpty() ? QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation) : logDir;
    if (folder.isEmpty()) {
        *problem = QStringLiteral("no documents folder is known for the export log; name one with --log-dir");
        return false;
    }
    QString reason;
    if (!QDir().mkpath(folder)) {
        reason = QStringLiteral("it cannot be created");
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
