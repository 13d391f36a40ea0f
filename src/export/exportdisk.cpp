#include "export/exportdisk.h"

#include "errors/hunterr.h"
#include "export/dirhandles.h"
#include "names/filenames.h"

#include <QFile>
#include <QMutexLocker>

namespace exporting {

using names::pathSeparator;

namespace {

ExportDisk::StepHook &stepHook()
{
    static ExportDisk::StepHook hook;
    return hook;
}

void step(const char *what, const QString &path)
{
    if (stepHook())
        stepHook()(QString::fromLatin1(what), path);
}

// Names compared as the file system compares them: exactly here, ignoring case where the
// platform's file systems do.
QString fsKey(const QString &path)
{
    return names::fileSystemKey(path);
}

QString parentOf(const QString &path)
{
    const qsizetype cut = path.lastIndexOf(pathSeparator());
    return cut <= 0 ? QString() : path.left(cut);
}

[[noreturn]] void refuse(qint32 number, const QString &text)
{
    HuntERR::raise(number, text);
}

} // namespace

ExportDisk::ExportDisk(const QString &destination, bool dryRun)
    : m_destination(destination)
    , m_prefix(destination.endsWith(pathSeparator()) ? destination : destination + pathSeparator())
    , m_dry(dryRun)
    , m_folders(destination)
{
}

ExportDisk::~ExportDisk() = default;

void ExportDisk::setStepHook(StepHook hook)
{
    stepHook() = std::move(hook);
}

QStringList ExportDisk::entryNames(const QString &path) const
{
    if (m_destination.isEmpty() || !path.startsWith(m_prefix) || path.size() == m_prefix.size())
        refuse(HuntERR::ERR_PATH_FILE_ACCESS,
               QStringLiteral("Path/File access error: %1 is not inside the destination %2").arg(path, m_destination));
    const QStringList names = path.mid(m_prefix.size()).split(pathSeparator());
    for (const QString &name : names) {
        if (name.isEmpty() || name == QLatin1String(".") || name == QLatin1String(".."))
            refuse(HuntERR::ERR_PATH_FILE_ACCESS,
                   QStringLiteral("Path/File access error: %1 is not inside the destination %2").arg(path, m_destination));
    }
    return names;
}

DirRef ExportDisk::openParent(const QStringList &names, QString *why) const
{
    return m_folders.toChange(names, why);
}

DirRef ExportDisk::lookParent(const QStringList &names, QString *why) const
{
    return m_folders.toLook(names, why);
}

void ExportDisk::checkLength(const QString &path, qint32 error) const
{
    if (QFile::encodeName(path).size() > dirhandles::maximumPathLength())
        refuse(error, QStringLiteral("Path not found: %1 is longer than the file system's paths (%2 bytes)")
                          .arg(path)
                          .arg(dirhandles::maximumPathLength()));
}

bool ExportDisk::underRemoved(const QString &key) const
{
    if (m_removed.isEmpty())
        return false;
    // Up the path one level at a time: as cheap for a deep tree as for a wide one.
    for (QString at = key; !at.isEmpty(); at = parentOf(at)) {
        if (m_removed.contains(at))
            return true;
    }
    return false;
}

ExportDisk::Kind ExportDisk::kind(const QString &path) const
{
    const QString key = fsKey(path);
    {
        const QMutexLocker locked(&m_lock);
        if (m_dirs.contains(key))
            return Kind::Directory;
        if (m_files.contains(key))
            return Kind::File;
        if (m_dry && underRemoved(key))
            return Kind::None;
    }
    if (fsKey(m_destination) == key || fsKey(m_prefix) == key || fsKey(m_prefix.chopped(1)) == key)
        return Kind::Directory;
    if (!path.startsWith(m_prefix))
        return Kind::None;
    const QStringList names = path.mid(m_prefix.size()).split(pathSeparator());
    QString why;
    const DirRef parent = lookParent(names, &why);
    if (!parent)
        return Kind::None;
    switch (dirhandles::kindOf(*parent, names.last())) {
    case dirhandles::Kind::Directory:
        return Kind::Directory;
    case dirhandles::Kind::File:
        return Kind::File;
    case dirhandles::Kind::Link:
        return Kind::Link;
    case dirhandles::Kind::None:
        break;
    }
    return Kind::None;
}

bool ExportDisk::isDirectory(const QString &path) const
{
    return kind(path) == Kind::Directory;
}

bool ExportDisk::isReplaceable(const QString &path) const
{
    const Kind k = kind(path);
    return k == Kind::Directory || k == Kind::Link;
}

bool ExportDisk::madeThisRun(const QString &dir) const
{
    const QMutexLocker locked(&m_lock);
    return m_dirs.contains(fsKey(dir));
}

bool ExportDisk::wroteThisRun(const QString &filePath) const
{
    const QMutexLocker locked(&m_lock);
    return m_files.contains(fsKey(filePath));
}

void ExportDisk::removeDirectory(const QString &path)
{
    const QStringList names = entryNames(path);
    const QString key = fsKey(path);
    if (madeThisRun(path) || wroteThisRun(path))
        refuse(HuntERR::ERR_PATH_FILE_ACCESS,
               QStringLiteral("Path/File access error: %1 was written by this run and is kept").arg(path));
    step("remove", path);
    if (m_dry) {
        const QMutexLocker locked(&m_lock);
        m_removed.insert(key);
        return;
    }
    QString why;
    const DirRef parent = openParent(names, &why);
    m_folders.forget(names); // before it goes: nothing reaches into it through a handle kept open
    const dirhandles::Result r = parent ? dirhandles::removeEntry(*parent, names.last())
                                        : dirhandles::Result{false, why, false};
    if (!r.ok)
        refuse(HuntERR::ERR_PATH_FILE_ACCESS,
               QStringLiteral("Path/File access error: cannot delete %1 (%2)").arg(path, r.reason));
}

void ExportDisk::makeDirectory(const QString &path)
{
    const QStringList names = entryNames(path);
    checkLength(path, HuntERR::ERR_PATH_NOT_FOUND);
    // A dry run asks its picture what a real run learns from the system calls themselves.
    if (m_dry) {
        const QString parentPath = parentOf(path);
        if (kind(parentPath) != Kind::Directory)
            refuse(HuntERR::ERR_PATH_NOT_FOUND,
                   QStringLiteral("Path not found: %1 (no directory %2)").arg(path, parentPath));
        if (kind(path) != Kind::None)
            refuse(HuntERR::ERR_PATH_FILE_ACCESS,
                   QStringLiteral("Path/File access error: %1 already exists and is not a folder of this run").arg(path));
    }
    step("mkdir", path);
    if (!m_dry) {
        QString why;
        const DirRef parent = openParent(names, &why);
        if (!parent)
            refuse(HuntERR::ERR_PATH_NOT_FOUND, QStringLiteral("Path not found: %1 (%2)").arg(path, why));
        const dirhandles::Result r = dirhandles::makeDirectory(*parent, names.last());
        if (!r.ok)
            refuse(HuntERR::ERR_PATH_FILE_ACCESS,
                   QStringLiteral("Path/File access error: cannot create the directory %1 (%2)").arg(path, r.reason));
    }
    const QMutexLocker locked(&m_lock);
    m_dirs.insert(fsKey(path));
}

qint64 ExportDisk::stageFile(const QString &filePath, repo::ValueReader &source)
{
    qint64 written = m_dry ? qMax<qint64>(source.size(), 0) : 0;
    const QStringList names = entryNames(filePath);
    const QString parentPath = parentOf(filePath);
    if (m_dry && kind(parentPath) != Kind::Directory)
        refuse(HuntERR::ERR_PATH_NOT_FOUND, QStringLiteral("Path not found: %1 (no directory %2)").arg(filePath, parentPath));
    checkLength(filePath, HuntERR::ERR_WRITE_FAILED);
    if (m_dry && kind(filePath) == Kind::Directory)
        refuse(HuntERR::ERR_WRITE_FAILED, QStringLiteral("Write to file failed: a directory stands at %1").arg(filePath));
    step("write", filePath);
    QString tempName;
    if (!m_dry) {
        QString why;
        const DirRef parent = openParent(names, &why);
        if (!parent)
            refuse(HuntERR::ERR_PATH_NOT_FOUND, QStringLiteral("Path not found: %1 (%2)").arg(filePath, why));
        sweepLeftovers(*parent, parentPath, names);
        const dirhandles::Result r = dirhandles::writeTemporary(*parent, source, &tempName, &written);
        if (!r.ok && r.nameRefused)
            refuse(HuntERR::ERR_PATH_FILE_ACCESS,
                   QStringLiteral("Path/File access error: cannot create a file in %1 (%2)").arg(parentPath, r.reason));
        if (!r.ok)
            refuse(ERR_DISK_FULL,
                   QStringLiteral("Disk full: %1 could not be written completely (%2)").arg(filePath, r.reason));
    }
    const QMutexLocker locked(&m_lock);
    m_staged.insert(fsKey(filePath), tempName);
    return written;
}

void ExportDisk::sweepLeftovers(const dirhandles::Dir &dir, const QString &dirPath, const QStringList &inside)
{
    {
        // Decided under the lock, swept outside it: one worker sweeps, the others write on.
        const QMutexLocker locked(&m_lock);
        if (m_swept.contains(fsKey(dirPath)))
            return;
        m_swept.insert(fsKey(dirPath));
    }
    // Names of this process are its own files in flight, never leftovers. Looked for from
    // wherever dir was reached, removed from the destination down.
    QStringList leftovers;
    for (const QString &name : dirhandles::temporaryFileNames(dir)) {
        if (!dirhandles::isOwnTemporaryName(name))
            leftovers << name;
    }
    if (leftovers.isEmpty())
        return;
    QString why;
    const DirRef fresh = openParent(inside, &why);
    if (!fresh)
        return;
    for (const QString &name : std::as_const(leftovers))
        dirhandles::removeEntry(*fresh, name);
}

void ExportDisk::commitFile(const QString &stagedPath, const QString &finalPath)
{
    const QString key = fsKey(stagedPath);
    const QString tempName = stagedName(stagedPath);
    if (tempName.isNull())
        refuse(HuntERR::ERR_WRITE_FAILED, QStringLiteral("Write to file failed: nothing was written for %1").arg(finalPath));
    const QStringList names = entryNames(finalPath);
    checkLength(finalPath, HuntERR::ERR_WRITE_FAILED);
    if (parentOf(finalPath) != parentOf(stagedPath))
        refuse(HuntERR::ERR_PATH_FILE_ACCESS,
               QStringLiteral("Path/File access error: %1 is not beside %2").arg(finalPath, stagedPath));
    if (m_dry && kind(finalPath) == Kind::Directory)
        refuse(HuntERR::ERR_WRITE_FAILED, QStringLiteral("Write to file failed: a directory stands at %1").arg(finalPath));
    // A run never replaces what it wrote itself.
    if (wroteThisRun(finalPath) || madeThisRun(finalPath))
        refuse(HuntERR::ERR_WRITE_FAILED,
               QStringLiteral("Write to file failed: %1 was written by this run and is kept").arg(finalPath));
    if (!m_dry) {
        QString why;
        const DirRef parent = openParent(names, &why);
        if (!parent)
            refuse(HuntERR::ERR_PATH_NOT_FOUND, QStringLiteral("Path not found: %1 (%2)").arg(finalPath, why));
        const dirhandles::Result r = dirhandles::renameEntry(*parent, tempName, names.last());
        if (!r.ok)
            refuse(HuntERR::ERR_WRITE_FAILED,
                   QStringLiteral("Write to file failed: cannot create %1 (%2)").arg(finalPath, r.reason));
    }
    const QMutexLocker locked(&m_lock);
    m_staged.remove(key);
    m_files.insert(fsKey(finalPath));
}

QString ExportDisk::stagedName(const QString &stagedPath) const
{
    const QMutexLocker locked(&m_lock);
    const auto it = m_staged.constFind(fsKey(stagedPath));
    return it == m_staged.cend() ? QString() : (it->isNull() ? QStringLiteral("") : *it);
}

void ExportDisk::discardFile(const QString &stagedPath)
{
    QString tempName;
    {
        const QMutexLocker locked(&m_lock);
        tempName = m_staged.take(fsKey(stagedPath));
    }
    if (m_dry || tempName.isEmpty())
        return;
    QString why;
    const QStringList names = entryNames(stagedPath);
    const DirRef parent = openParent(names, &why);
    if (parent)
        dirhandles::removeEntry(*parent, tempName);
}

QDateTime ExportDisk::dateFile(const QString &filePath, const QDateTime &when)
{
    if (m_dry)
        return when;
    const QStringList names = entryNames(filePath);
    QString why;
    const DirRef parent = openParent(names, &why);
    // A document waiting under its temporary name is dated there, before it takes its name.
    const QString staged = stagedName(filePath);
    const QString name = staged.isEmpty() ? names.last() : staged;
    if (!parent)
        return {};
    // Some file systems clamp a date they cannot hold, others refuse it: then the nearest date
    // every one of them holds is tried. What the file carries is read back either way.
    if (!dirhandles::setFileTime(*parent, name, when)
        && !dirhandles::setFileTime(*parent, name, qBound(dirhandles::earliestFileTime(), when, dirhandles::latestFileTime())))
        return {};
    qint64 size = 0;
    QDateTime carried;
    return dirhandles::fileFacts(*parent, name, &size, &carried) ? carried : QDateTime();
}

bool ExportDisk::fileFacts(const QString &path, qint64 *size, QDateTime *date) const
{
    if (!path.startsWith(m_prefix))
        return false;
    if (m_dry) {
        const QMutexLocker locked(&m_lock);
        if (underRemoved(fsKey(path)))
            return false;
    }
    const QStringList names = path.mid(m_prefix.size()).split(pathSeparator());
    QString why;
    const DirRef parent = lookParent(names, &why);
    return parent && dirhandles::fileFacts(*parent, names.last(), size, date);
}

void ExportDisk::keepFile(const QString &filePath)
{
    const QMutexLocker locked(&m_lock);
    m_files.insert(fsKey(filePath));
}

void ExportDisk::keepDirectory(const QString &dir)
{
    const QMutexLocker locked(&m_lock);
    m_dirs.insert(fsKey(dir));
}

void ExportDisk::assumeMade(const QString &path)
{
    const QMutexLocker locked(&m_lock);
    m_dirs.insert(path);
}

void ExportDisk::removeLeftovers(const QString &dir)
{
    if (m_dry || !dir.startsWith(m_prefix))
        return;
    QStringList names = entryNames(dir);
    names << QStringLiteral("x"); // the directory itself is the parent of a name in it
    QString why;
    const DirRef parent = lookParent(names, &why);
    if (parent)
        sweepLeftovers(*parent, dir, names);
}

QStringList ExportDisk::filesNotOfThisRun(const QString &dir) const
{
    QStringList result;
    if (!dir.startsWith(m_prefix))
        return result;
    QStringList names = dir.mid(m_prefix.size()).split(pathSeparator());
    names << QStringLiteral("x"); // the directory itself is the parent of a name in it
    QString why;
    const DirRef parent = lookParent(names, &why);
    if (!parent)
        return result;
    const QChar sep = pathSeparator();
    for (const QString &name : dirhandles::fileNames(*parent)) {
        if (!dirhandles::isTemporaryName(name) && !wroteThisRun(dir + sep + name))
            result << dir + sep + name;
    }
    result.sort();
    return result;
}

} // namespace exporting
