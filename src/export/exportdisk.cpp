#include "export/exportdisk.h"

#include "errors/hunterr.h"
#include "tree/treeprocs.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

namespace {

bool isUnder(const QString &path, const QString &top)
{
    if (path == top)
        return true;
    const QChar sep = pathSeparator();
    return path.startsWith(top) && (top.endsWith(sep) || path.at(top.size()) == sep);
}

// Qt removes read-only files by itself; a directory without write or search permission still
// stops it, so open those up first. Links are not followed.
void openUpDirectories(const QString &top)
{
    const QFile::Permissions needed = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadUser
                                      | QFile::WriteUser | QFile::ExeUser;
    QFile::setPermissions(top, QFile::permissions(top) | needed);
    QDirIterator it(top, QDir::Dirs | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString dir = it.next();
        if (it.fileInfo().isSymLink())
            continue;
        const QFile::Permissions now = QFile::permissions(dir);
        if ((now & needed) != needed)
            QFile::setPermissions(dir, now | needed);
    }
}

} // namespace

ExportDisk::ExportDisk(bool dryRun)
    : m_dry(dryRun)
{
}

QString ExportDisk::parentOf(const QString &path)
{
    const QChar sep = pathSeparator();
    qsizetype end = path.size();
    while (end > 1 && path.at(end - 1) == sep)
        --end;
    const qsizetype cut = path.lastIndexOf(sep, end - 1);
    if (cut < 0)
        return QStringLiteral(".");
    if (cut == 0)
        return QString(sep);
    QString parent = path.left(cut);
    if (parent.endsWith(QLatin1Char(':'))) // a drive's root keeps its separator
        parent += sep;
    return parent;
}

bool ExportDisk::underRemoved(const QString &path) const
{
    if (m_removed.isEmpty())
        return false;
    // Up the path one level at a time: as cheap for a deep tree as for a wide one.
    QString at = path;
    for (;;) {
        if (m_removed.contains(at))
            return true;
        const QString up = parentOf(at);
        if (up == at || up == QLatin1String("."))
            return false;
        at = up;
    }
}

ExportDisk::Kind ExportDisk::kind(const QString &path) const
{
    if (m_dry) {
        if (m_dirs.contains(path))
            return Kind::Directory;
        if (m_files.contains(path))
            return Kind::File;
        if (underRemoved(path))
            return Kind::None;
    }
    const QFileInfo info(path);
    if (info.isDir())
        return Kind::Directory;
    if (info.exists() || info.isSymLink())
        return Kind::File;
    return Kind::None;
}

bool ExportDisk::isDirectory(const QString &path) const
{
    return kind(path) == Kind::Directory;
}

void ExportDisk::removeDirectory(const QString &path)
{
    if (m_dry) {
        m_removed.insert(path);
        for (auto it = m_dirs.begin(); it != m_dirs.end();)
            it = isUnder(*it, path) ? m_dirs.erase(it) : std::next(it);
        for (auto it = m_files.begin(); it != m_files.end();)
            it = isUnder(*it, path) ? m_files.erase(it) : std::next(it);
        return;
    }
    const QFileInfo info(path);
    if (info.isSymLink()) {
        if (!QFile::remove(path))
            HuntERR::raise(HuntERR::ERR_PATH_FILE_ACCESS,
                           QStringLiteral("Path/File access error: cannot remove the link %1").arg(path));
        return;
    }
    openUpDirectories(path);
    if (!QDir(path).removeRecursively())
        HuntERR::raise(HuntERR::ERR_PATH_FILE_ACCESS,
                       QStringLiteral("Path/File access error: cannot delete the directory %1").arg(path));
}

void ExportDisk::makeDirectory(const QString &path)
{
    const QString parent = parentOf(path);
    if (kind(parent) != Kind::Directory)
        HuntERR::raise(HuntERR::ERR_PATH_NOT_FOUND,
                       QStringLiteral("Path not found: %1 (no directory %2)").arg(path, parent));
    if (kind(path) != Kind::None)
        HuntERR::raise(HuntERR::ERR_PATH_FILE_ACCESS,
                       QStringLiteral("Path/File access error: %1 already exists and is not a folder of this run")
                           .arg(path));
    if (m_dry) {
        m_dirs.insert(path);
        return;
    }
    if (!QDir().mkdir(path))
        HuntERR::raise(HuntERR::ERR_PATH_FILE_ACCESS,
                       QStringLiteral("Path/File access error: cannot create the directory %1").arg(path));
}

void ExportDisk::writeFile(const QString &filePath, const QByteArray &bytes)
{
    const QString parent = parentOf(filePath);
    if (kind(parent) != Kind::Directory)
        HuntERR::raise(HuntERR::ERR_PATH_NOT_FOUND,
                       QStringLiteral("Path not found: %1 (no directory %2)").arg(filePath, parent));
    if (kind(filePath) == Kind::Directory)
        HuntERR::raise(HuntERR::ERR_PATH_FILE_ACCESS,
                       QStringLiteral("Path/File access error: a directory stands at %1").arg(filePath));
    if (m_dry) {
        m_files.insert(filePath);
        return;
    }
    QFile file(filePath);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        HuntERR::raise(HuntERR::ERR_PATH_FILE_ACCESS,
                       QStringLiteral("Path/File access error: cannot create %1 (%2)").arg(filePath, file.errorString()));
    const qint64 written = bytes.isEmpty() ? 0 : file.write(bytes);
    file.close();
    if (written != bytes.size() || file.error() != QFileDevice::NoError) {
        const QString reason = file.errorString();
        // A torn copy must not pass for the document.
        QFile::remove(filePath);
        HuntERR::raise(ERR_DISK_FULL, QStringLiteral("Disk full: %1 could not be written completely (%2)")
                                          .arg(filePath, reason));
    }
}
