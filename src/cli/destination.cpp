#include "cli/destination.h"

#include <QDir>
#include <QFileInfo>

namespace cli {

bool checkDestination(const QString &text, Destination *destination, QString *error)
{
    if (text.trimmed().isEmpty()) {
        *error = QStringLiteral("no directory name given");
        return false;
    }
    const QString absolute = QDir::cleanPath(QFileInfo(text).absoluteFilePath());
    destination->path = QDir::toNativeSeparators(absolute);
    destination->missing = !QFileInfo(absolute).isDir();
    // The nearest part of the path that exists has to be a directory, or nothing can be made below it.
    QString existing = absolute;
    while (!QFileInfo::exists(existing) && !QFileInfo(existing).isRoot()) {
        const QString up = QFileInfo(existing).path();
        if (up == existing)
            break;
        existing = up;
    }
    if (!QFileInfo(existing).isDir()) {
        *error = QStringLiteral("\"%1\" is not a directory: \"%2\" is a file")
                     .arg(text, QDir::toNativeSeparators(existing));
        return false;
    }
    return true;
}

namespace {

bool createDestination(const Destination &destination, QString *error)
{
    if (!destination.missing || QDir().mkpath(QDir::fromNativeSeparators(destination.path)))
        return true;
    *error = QStringLiteral("cannot create the directory \"%1\"").arg(destination.path);
    return false;
}

} // namespace

bool checkOutputFolders(const QString &destText, const QString *logText, OutputFolders *folders, QString *error)
{
    if (!checkDestination(destText, &folders->dest, error)) {
        *error = QStringLiteral("destination ") + *error;
        return false;
    }
    // The log folder is made like the destination, so "--dest ./out --log-dir ./out" works on a
    // fresh machine.
    if (logText && !checkDestination(*logText, &folders->log, error)) {
        *error = QStringLiteral("log directory ") + *error;
        return false;
    }
    return true;
}

bool createOutputFolders(const OutputFolders &folders, QString *error)
{
    return createDestination(folders.dest, error) && createDestination(folders.log, error);
}

QStringList directoriesToMake(const Destination &destination)
{
    QStringList made;
    QString at = QDir::fromNativeSeparators(destination.path);
    while (destination.missing && !QFileInfo::exists(at)) {
        made.prepend(QDir::toNativeSeparators(at));
        const QString up = QFileInfo(at).path();
        if (up == at)
            break;
        at = up;
    }
    return made;
}

QString destinationNote(const Destination &destination, bool dryRun)
{
    if (!destination.missing)
        return {};
    return (dryRun ? QStringLiteral("; destination would be created: ") : QStringLiteral("; destination created: "))
        + destination.path;
}

} // namespace cli
