// Files of the disk layer: documents written under a temporary name beside their final one,
// dated there and renamed into place, so that a run killed at any moment leaves either the whole
// document under its name or nothing under it.

#include "export/chunkbuffer.h"
#include "export/dirhandles_p.h"

#include <QCoreApplication>
#include <QFile>

#include <atomic>
#include <cstring>

#ifndef Q_OS_WIN
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace exporting {

namespace dirhandles {

namespace {

const QString kTempPrefix = QStringLiteral(".parcelwise-");
const QString kTempSuffix = QStringLiteral(".part");

QString ownPrefix()
{
    return kTempPrefix + QString::number(QCoreApplication::applicationPid()) + QLatin1Char('-');
}

// Unique within the process (jobs may write side by side) and across processes.
QString freshTemporaryName()
{
    static std::atomic<quint64> counter{0};
    return temporaryName(QCoreApplication::applicationPid(), ++counter);
}

} // namespace

QString temporaryName(qint64 processId, quint64 serial)
{
    return kTempPrefix + QString::number(processId) + QLatin1Char('-') + QString::number(serial) + kTempSuffix;
}

bool isTemporaryName(const QString &name)
{
    return name.startsWith(kTempPrefix) && name.endsWith(kTempSuffix) && name.size() > kTempPrefix.size() + kTempSuffix.size();
}

bool isOwnTemporaryName(const QString &name)
{
    return isTemporaryName(name) && name.startsWith(ownPrefix());
}

QStringList temporaryFileNames(const Dir &parent)
{
    QStringList names = fileNames(parent, kTempPrefix);
    names.removeIf([](const QString &name) { return !isTemporaryName(name); });
    return names;
}

#ifndef Q_OS_WIN

Result writeTemporary(const Dir &parent, repo::ValueReader &source, QString *tempName, qint64 *written)
{
    *written = 0;
    const int at = Access::fd(parent);
    int fd = -1;
    QByteArray n;
    for (int attempt = 0; attempt < 16 && fd < 0; ++attempt) {
        *tempName = freshTemporaryName();
        n = QFile::encodeName(*tempName);
        fd = openat(at, n.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
        if (fd < 0 && errno != EEXIST)
            break;
    }
    if (fd < 0)
        return failed(systemReason(), true);
    // A torn copy must not stay behind.
    const auto torn = [&](const QString &why) {
        close(fd);
        unlinkat(at, n.constData(), 0);
        return failed(why);
    };
    char *const chunk = chunkBuffer();
    for (;;) {
        qint64 got = 0;
        try {
            got = source.read(chunk, kChunkBytes);
        } catch (...) {
            torn(QString());
            throw;
        }
        if (got <= 0)
            break;
        for (const char *data = chunk; got > 0;) {
            const ssize_t done = ::write(fd, data, size_t(got));
            if (done < 0 && errno == EINTR)
                continue;
            if (done <= 0)
                return torn(systemReason());
            data += done;
            got -= done;
            *written += done;
        }
    }
    if (close(fd) != 0) {
        const QString why = systemReason();
        unlinkat(at, n.constData(), 0);
        return failed(why);
    }
    return {};
}

Result renameEntry(const Dir &parent, const QString &from, const QString &to)
{
    if (!singleEntryName(from) || !singleEntryName(to))
        return failed(QStringLiteral("not a name of one entry"), true);
    const int at = Access::fd(parent);
    const QByteArray target = QFile::encodeName(to);
    struct stat st;
    if (fstatat(at, target.constData(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode))
        return failed(QStringLiteral("a directory stands there"), true);
    if (renameat(at, QFile::encodeName(from).constData(), at, target.constData()) != 0)
        return failed(systemReason(), true);
    return {};
}

QStringList fileNames(const Dir &parent, const QString &prefix)
{
    QStringList names;
    const QByteArray start = QFile::encodeName(prefix);
    const int fd = openat(Access::fd(parent), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR *dir = fd < 0 ? nullptr : fdopendir(fd);
    if (!dir) {
        if (fd >= 0)
            close(fd);
        return names;
    }
    while (const dirent *e = readdir(dir)) {
        if (!start.isEmpty() && std::strncmp(e->d_name, start.constData(), size_t(start.size())) != 0)
            continue;
        // Most file systems say what an entry is in the listing itself; asked only where not.
        bool regular = false;
#ifdef DT_REG
        if (e->d_type != DT_UNKNOWN)
            regular = e->d_type == DT_REG;
        else
#endif
        {
            struct stat st;
            regular = fstatat(dirfd(dir), e->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(st.st_mode);
        }
        if (regular)
            names << QFile::decodeName(e->d_name);
    }
    closedir(dir);
    return names;
}

bool fileFacts(const Dir &parent, const QString &name, qint64 *size, QDateTime *modified)
{
    struct stat st;
    if (!singleEntryName(name)
        || fstatat(Access::fd(parent), QFile::encodeName(name).constData(), &st, AT_SYMLINK_NOFOLLOW) != 0
        || !S_ISREG(st.st_mode))
        return false;
    *size = qint64(st.st_size);
    *modified = QDateTime::fromMSecsSinceEpoch(qint64(st.st_mtim.tv_sec) * 1000 + st.st_mtim.tv_nsec / 1000000, Qt::UTC);
    return true;
}

QDateTime earliestFileTime()
{
    return QDateTime::fromSecsSinceEpoch(-2147483647LL - 1, Qt::UTC);
}

QDateTime latestFileTime()
{
    return QDateTime::fromSecsSinceEpoch(2147483647LL, Qt::UTC);
}

bool setFileTime(const Dir &parent, const QString &name, const QDateTime &when)
{
    if (!when.isValid() || !singleEntryName(name))
        return false;
    const qint64 msecs = when.toMSecsSinceEpoch();
    struct timespec times[2];
    times[0].tv_sec = 0;
    times[0].tv_nsec = UTIME_OMIT;
    times[1].tv_sec = time_t(msecs >= 0 ? msecs / 1000 : -((-msecs + 999) / 1000));
    times[1].tv_nsec = long((msecs - qint64(times[1].tv_sec) * 1000) * 1000000);
    return utimensat(Access::fd(parent), QFile::encodeName(name).constData(), times, AT_SYMLINK_NOFOLLOW) == 0;
}

#else
// --- Windows: best effort, as in dirhandles.cpp.

namespace {

qint64 ticksOf(const QDateTime &when) { return (when.toMSecsSinceEpoch() + Q_INT64_C(11644473600000)) * 10000; }
QDateTime dateOfTicks(const FILETIME &t)
{
    const qint64 ticks = qint64((quint64(t.dwHighDateTime) << 32) | t.dwLowDateTime);
    return QDateTime::fromMSecsSinceEpoch(ticks / 10000 - Q_INT64_C(11644473600000), Qt::UTC);
}

} // namespace

Result writeTemporary(const Dir &parent, repo::ValueReader &source, QString *tempName, qint64 *written)
{
    *written = 0;
    HANDLE h = INVALID_HANDLE_VALUE;
    QString path;
    for (int attempt = 0; attempt < 16 && h == INVALID_HANDLE_VALUE; ++attempt) {
        *tempName = freshTemporaryName();
        path = child(parent, *tempName);
        h = CreateFileW(wide(path).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                        FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
        if (h == INVALID_HANDLE_VALUE && GetLastError() != ERROR_FILE_EXISTS)
            break;
    }
    if (h == INVALID_HANDLE_VALUE)
        return failed(systemReason(), true);
    const auto torn = [&](const QString &why) {
        CloseHandle(h);
        DeleteFileW(wide(path).c_str());
        return failed(why);
    };
    char *const chunk = chunkBuffer();
    for (;;) {
        qint64 got = 0;
        try {
            got = source.read(chunk, kChunkBytes);
        } catch (...) {
            torn(QString());
            throw;
        }
        if (got <= 0)
            break;
        for (const char *data = chunk; got > 0;) {
            DWORD done = 0;
            if (!WriteFile(h, data, DWORD(got), &done, nullptr) || done == 0)
                return torn(systemReason());
            data += done;
            got -= done;
            *written += done;
        }
    }
    CloseHandle(h);
    return {};
}

Result renameEntry(const Dir &parent, const QString &from, const QString &to)
{
    if (!singleEntryName(from) || !singleEntryName(to))
        return failed(QStringLiteral("not a name of one entry"), true);
    const QString target = child(parent, to);
    const DWORD a = attributesOf(target);
    if (a != INVALID_FILE_ATTRIBUTES) {
        if ((a & FILE_ATTRIBUTE_DIRECTORY) && !(a & FILE_ATTRIBUTE_REPARSE_POINT))
            return failed(QStringLiteral("a directory stands there"), true);
        SetFileAttributesW(wide(target).c_str(), a & ~FILE_ATTRIBUTE_READONLY);
    }
    if (!MoveFileExW(wide(child(parent, from)).c_str(), wide(target).c_str(), MOVEFILE_REPLACE_EXISTING))
        return failed(systemReason(), true);
    return {};
}

QStringList fileNames(const Dir &parent, const QString &prefix)
{
    QStringList names;
    WIN32_FIND_DATAW found;
    HANDLE h = FindFirstFileW(wide(Access::path(parent) + QStringLiteral("\\*")).c_str(), &found);
    if (h == INVALID_HANDLE_VALUE)
        return names;
    do {
        const DWORD a = found.dwFileAttributes;
        const QString name = QString::fromWCharArray(found.cFileName);
        if (!(a & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) && name.startsWith(prefix))
            names << name;
    } while (FindNextFileW(h, &found));
    FindClose(h);
    return names;
}

bool fileFacts(const Dir &parent, const QString &name, qint64 *size, QDateTime *modified)
{
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!singleEntryName(name) || !GetFileAttributesExW(wide(child(parent, name)).c_str(), GetFileExInfoStandard, &data)
        || (data.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)))
        return false;
    *size = qint64((quint64(data.nFileSizeHigh) << 32) | data.nFileSizeLow);
    *modified = dateOfTicks(data.ftCreationTime); // the time the export sets there
    return true;
}

QDateTime earliestFileTime()
{
    return QDateTime(QDate(1601, 1, 1), QTime(0, 0), Qt::UTC);
}

QDateTime latestFileTime()
{
    return QDateTime(QDate(30827, 12, 31), QTime(23, 59, 59), Qt::UTC);
}

bool setFileTime(const Dir &parent, const QString &name, const QDateTime &when)
{
    if (!when.isValid() || !singleEntryName(name))
        return false;
    HANDLE h = CreateFileW(wide(child(parent, name)).c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                           nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return false;
    // 100-nanosecond intervals since 1 January 1601 (UTC).
    const qint64 ticks = ticksOf(when);
    FILETIME created;
    created.dwLowDateTime = DWORD(quint64(ticks) & 0xFFFFFFFFu);
    created.dwHighDateTime = DWORD(quint64(ticks) >> 32);
    const bool ok = SetFileTime(h, &created, nullptr, nullptr) != 0;
    CloseHandle(h);
    return ok;
}

#endif

} // namespace dirhandles

} // namespace exporting
