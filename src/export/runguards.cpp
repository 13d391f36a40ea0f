#include "export/runguards.h"

#include "names/filenames.h"
#include "repository/drivers.h"

#include <QDir>
#include <QFileInfo>
#include <QLockFile>

namespace exporting {

using names::fileSystemKey;
using names::idTag;

namespace {

// The path with links resolved as far as it exists, the rest appended as given.
QString resolved(const QString &path)
{
    QFileInfo info(QDir::cleanPath(QFileInfo(path).absoluteFilePath()));
    QString tail;
    while (!info.exists() && !info.isSymLink() && !info.isRoot()) {
        tail = QLatin1Char('/') + info.fileName() + tail;
        info = QFileInfo(info.absolutePath());
    }
    const QString head = info.canonicalFilePath();
    return (head.isEmpty() ? info.absoluteFilePath() : head) + tail;
}

// Whether the first name of rel below the destination is one the walk may give a top directory.
bool namesTop(const QString &first, const QList<TopDirectory> &tops)
{
    const QString name = fileSystemKey(first);
    for (const TopDirectory &top : tops) {
        const QString tag = fileSystemKey(idTag(top.id)), cleaned = fileSystemKey(top.cleaned);
        if (name == tag || name == cleaned || (name.startsWith(cleaned + QLatin1Char(' ')) && name.endsWith(tag)))
            return true;
    }
    return false;
}

} // namespace

QString reliedOnInside(const QString &destination, const QList<TopDirectory> &tops, const QStringList &reliedOn)
{
    const QString dest = resolved(destination);
    for (const QString &path : reliedOn) {
        if (path.isEmpty())
            continue;
        const QString at = resolved(path);
        if (!fileSystemKey(at).startsWith(fileSystemKey(dest + QLatin1Char('/'))))
            continue;
        const QString first = at.mid(dest.size() + 1).section(QLatin1Char('/'), 0, 0);
        if (namesTop(first, tops))
            return QStringLiteral("the export would write into \"%1\"; the run relies on \"%2\" there")
                .arg(QDir::toNativeSeparators(QDir(destination).filePath(first)), QDir::toNativeSeparators(path));
    }
    return {};
}

QStringList embeddedServerFiles(const QString &folder)
{
    if (folder.isEmpty())
        return {};
    QStringList files{folder};
    for (const QString &name : repo::embeddedDatabaseNames(folder))
        files << repo::embeddedDatabaseFile(folder, name);
    return files;
}

const QString DestinationLock::kFileName = QStringLiteral(".parcelwise.lock");

DestinationLock::DestinationLock() = default;
DestinationLock::~DestinationLock() = default;

bool DestinationLock::lock(const QString &destination, QString *error)
{
    const QString path = QDir(destination).filePath(kFileName);
    m_file = std::make_unique<QLockFile>(path);
    // Held for as long as the run takes: never taken over for its age, only when its process is gone.
    m_file->setStaleLockTime(0);
    if (m_file->tryLock(0))
        return true;
    qint64 pid = 0;
    QString host, program;
    if (m_file->error() == QLockFile::LockFailedError && m_file->getLockInfo(&pid, &host, &program)) {
        *error = QStringLiteral("another export (process %1 on %2) is writing into \"%3\"; its lock is \"%4\"")
                     .arg(pid)
                     .arg(host, QDir::toNativeSeparators(destination), QDir::toNativeSeparators(path));
    } else {
        *error = QStringLiteral("cannot lock \"%1\" for this export: \"%2\" cannot be made")
                     .arg(QDir::toNativeSeparators(destination), QDir::toNativeSeparators(path));
    }
    m_file.reset();
    return false;
}

} // namespace exporting
