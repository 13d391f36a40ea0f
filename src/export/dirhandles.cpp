#include "export/dirhandles.h"

#include <QDir>
#include <QFile>

#include <string>
#include <utility>
#include <vector>

#ifdef Q_OS_WIN
#include <windows.h>
#else
#include <cerrno>
#include <climits>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace dirhandles {

namespace {
// How much of a document is in memory at a time on its way to the file.
constexpr qsizetype kChunk = 1 << 20;
} // namespace

namespace {

// A name that would not stay one entry of its directory.
bool singleEntryName(const QString &name)
{
    if (name.isEmpty() || name == QLatin1String(".") || name == QLatin1String(".."))
        return false;
    if (name.contains(QLatin1Char('/')) || name.contains(QChar(0)))
        return false;
#ifdef Q_OS_WIN
    if (name.contains(QLatin1Char('\\')))
        return false;
#endif
    return true;
}

Result failed(const QString &reason, bool nameRefused = false)
{
    Result r;
    r.ok = false;
    r.reason = reason;
    r.nameRefused = nameRefused;
    return r;
}

} // namespace

#ifndef Q_OS_WIN
// --- POSIX: directory descriptors, *at calls, O_NOFOLLOW ------------------------------------

struct Access {
    static int fd(const Dir &d) { return d.m_fd; }
    static Dir make(int fd)
    {
        Dir d;
        d.m_fd = fd;
        return d;
    }
};

namespace {

QString systemReason() { return QString::fromLocal8Bit(std::strerror(errno)); }

constexpr int kDirFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// A directory without read, write or search permission for its owner cannot be emptied; open it
// up. Asked only after fstatat saw a directory (not a link) there.
int openForRemoval(int parent, const char *name)
{
    int fd = openat(parent, name, kDirFlags);
    if (fd < 0 && errno == EACCES) {
        struct stat st;
        if (fstatat(parent, name, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode)) {
            fchmodat(parent, name, (st.st_mode & 07777) | S_IRWXU, 0);
            fd = openat(parent, name, kDirFlags);
        }
    }
    if (fd >= 0) {
        struct stat st;
        if (fstat(fd, &st) == 0 && (st.st_mode & S_IRWXU) != S_IRWXU)
            fchmod(fd, (st.st_mode & 07777) | S_IRWXU);
    }
    return fd;
}

// Empties the directory parent/name with an explicit stack: depth is not limited by the call stack.
Result emptyTree(int parent, const QByteArray &name)
{
    struct Frame {
        DIR *dir;
        QByteArray name; // within the frame below
    };
    std::vector<Frame> stack;
    auto closeAll = [&] {
        for (Frame &f : stack)
            closedir(f.dir);
        stack.clear();
    };
    auto push = [&](int at, const QByteArray &entry) {
        const int fd = openForRemoval(at, entry.constData());
        DIR *dir = fd < 0 ? nullptr : fdopendir(fd);
        if (!dir) {
            if (fd >= 0)
                close(fd);
            return false;
        }
        stack.push_back({dir, entry});
        return true;
    };
    if (!push(parent, name))
        return failed(systemReason());
    while (!stack.empty()) {
        DIR *dir = stack.back().dir;
        const int at = dirfd(dir);
        errno = 0;
        const dirent *e = readdir(dir);
        if (!e) {
            if (errno != 0) {
                const QString reason = systemReason();
                closeAll();
                return failed(reason);
            }
            const QByteArray done = stack.back().name;
            closedir(dir);
            stack.pop_back();
            if (!stack.empty() && unlinkat(dirfd(stack.back().dir), done.constData(), AT_REMOVEDIR) != 0) {
                const QString reason = systemReason();
                closeAll();
                return failed(reason);
            }
            continue;
        }
        const QByteArray entry(e->d_name);
        if (entry == "." || entry == "..")
            continue;
        struct stat st;
        bool ok = fstatat(at, entry.constData(), &st, AT_SYMLINK_NOFOLLOW) == 0;
        if (ok && S_ISDIR(st.st_mode))
            ok = push(at, entry);
        else if (ok)
            ok = unlinkat(at, entry.constData(), 0) == 0;
        if (!ok && errno != ENOENT) {
            const QString reason = systemReason();
            closeAll();
            return failed(reason);
        }
    }
    return {};
}

} // namespace

Dir::~Dir()
{
    if (m_fd >= 0)
        close(m_fd);
}

Dir::Dir(Dir &&other) noexcept
    : m_fd(std::exchange(other.m_fd, -1))
{
}

Dir &Dir::operator=(Dir &&other) noexcept
{
    if (this != &other) {
        if (m_fd >= 0)
            close(m_fd);
        m_fd = std::exchange(other.m_fd, -1);
    }
    return *this;
}

bool Dir::isOpen() const { return m_fd >= 0; }

Dir openTop(const QString &path, Result *result)
{
    const int fd = open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    *result = fd < 0 ? failed(systemReason()) : Result{};
    return Access::make(fd);
}

Dir openChild(const Dir &parent, const QString &name, Result *result)
{
    if (!singleEntryName(name)) {
        *result = failed(QStringLiteral("not a name of one entry"), true);
        return {};
    }
    const int fd = openat(Access::fd(parent), QFile::encodeName(name).constData(), kDirFlags);
    if (fd < 0) {
        // ELOOP: a link stands where a directory belongs; it is not entered.
        *result = failed(errno == ELOOP ? QStringLiteral("a symbolic link stands there") : systemReason());
        return {};
    }
    *result = {};
    return Access::make(fd);
}

Kind kindOf(const Dir &parent, const QString &name)
{
    if (!singleEntryName(name))
        return Kind::None;
    struct stat st;
    if (fstatat(Access::fd(parent), QFile::encodeName(name).constData(), &st, AT_SYMLINK_NOFOLLOW) != 0)
        return Kind::None;
    if (S_ISLNK(st.st_mode))
        return Kind::Link;
    return S_ISDIR(st.st_mode) ? Kind::Directory : Kind::File;
}

Result makeDirectory(const Dir &parent, const QString &name)
{
    if (!singleEntryName(name))
        return failed(QStringLiteral("not a name of one entry"), true);
    if (mkdirat(Access::fd(parent), QFile::encodeName(name).constData(), 0777) != 0)
        return failed(systemReason(), true);
    return {};
}

Result removeEntry(const Dir &parent, const QString &name)
{
    if (!singleEntryName(name))
        return failed(QStringLiteral("not a name of one entry"));
    const QByteArray n = QFile::encodeName(name);
    const int at = Access::fd(parent);
    struct stat st;
    if (fstatat(at, n.constData(), &st, AT_SYMLINK_NOFOLLOW) != 0)
        return errno == ENOENT ? Result{} : failed(systemReason());
    if (S_ISDIR(st.st_mode)) {
        const Result emptied = emptyTree(at, n);
        if (!emptied.ok)
            return emptied;
        if (unlinkat(at, n.constData(), AT_REMOVEDIR) != 0)
            return failed(systemReason());
        return {};
    }
    if (unlinkat(at, n.constData(), 0) != 0 && errno != ENOENT)
        return failed(systemReason());
    return {};
}

Result writeFile(const Dir &parent, const QString &name, repo::ValueReader &source, qint64 *written)
{
    *written = 0;
    if (!singleEntryName(name))
        return failed(QStringLiteral("not a name of one entry"), true);
    const QByteArray n = QFile::encodeName(name);
    const int at = Access::fd(parent);
    struct stat st;
    if (fstatat(at, n.constData(), &st, AT_SYMLINK_NOFOLLOW) == 0) {
        if (S_ISDIR(st.st_mode))
            return failed(QStringLiteral("a directory stands there"), true);
        if (unlinkat(at, n.constData(), 0) != 0 && errno != ENOENT)
            return failed(systemReason(), true);
    }
    const int fd = openat(at, n.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd < 0)
        return failed(systemReason(), true);
    // A torn copy must not pass for the document.
    const auto torn = [&](const QString &why) {
        close(fd);
        unlinkat(at, n.constData(), 0);
        return failed(why);
    };
    std::vector<char> chunk(kChunk);
    for (;;) {
        qint64 got = 0;
        try {
            got = source.read(chunk.data(), qint64(chunk.size()));
        } catch (...) {
            torn(QString());
            throw;
        }
        if (got <= 0)
            break;
        for (const char *data = chunk.data(); got > 0;) {
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

qsizetype maximumPathLength() { return PATH_MAX - 1; }

#else
// --- Windows: best effort. Each directory is held as a checked long path ("\\?\" form); an
// entry that is a reparse point (link, junction) is never entered and is removed as itself.
// Between the check and the use a swapped entry is not caught as it is with POSIX descriptors.

struct Access {
    static const QString &path(const Dir &d) { return d.m_path; }
    static Dir make(const QString &path)
    {
        Dir d;
        d.m_path = path;
        return d;
    }
};

namespace {

std::wstring wide(const QString &path) { return path.toStdWString(); }
QString child(const Dir &parent, const QString &name) { return Access::path(parent) + QLatin1Char('\\') + name; }
QString systemReason() { return QStringLiteral("system error %1").arg(GetLastError()); }

DWORD attributesOf(const QString &path) { return GetFileAttributesW(wide(path).c_str()); }

bool removeOne(const QString &path, DWORD attributes)
{
    SetFileAttributesW(wide(path).c_str(), attributes & ~FILE_ATTRIBUTE_READONLY);
    if (attributes & FILE_ATTRIBUTE_DIRECTORY)
        return RemoveDirectoryW(wide(path).c_str()) != 0;
    return DeleteFileW(wide(path).c_str()) != 0;
}

// Directories are emptied with an explicit stack; reparse points are removed, not entered.
bool removeTree(const QString &top)
{
    std::vector<QString> pending{top};
    std::vector<QString> emptied;
    while (!pending.empty()) {
        const QString dir = pending.back();
        pending.pop_back();
        emptied.push_back(dir);
        WIN32_FIND_DATAW found;
        HANDLE h = FindFirstFileW(wide(dir + QStringLiteral("\\*")).c_str(), &found);
        if (h == INVALID_HANDLE_VALUE)
            continue;
        do {
            const QString name = QString::fromWCharArray(found.cFileName);
            if (name == QLatin1String(".") || name == QLatin1String(".."))
                continue;
            const QString entry = dir + QLatin1Char('\\') + name;
            const DWORD a = found.dwFileAttributes;
            if ((a & FILE_ATTRIBUTE_DIRECTORY) && !(a & FILE_ATTRIBUTE_REPARSE_POINT))
                pending.push_back(entry);
            else if (!removeOne(entry, a)) {
                FindClose(h);
                return false;
            }
        } while (FindNextFileW(h, &found));
        FindClose(h);
    }
    for (auto it = emptied.rbegin(); it != emptied.rend(); ++it) {
        if (!removeOne(*it, attributesOf(*it)))
            return false;
    }
    return true;
}

} // namespace

Dir::~Dir() = default;
Dir::Dir(Dir &&other) noexcept : m_path(std::exchange(other.m_path, QString())) {}
Dir &Dir::operator=(Dir &&other) noexcept
{
    m_path = std::exchange(other.m_path, QString());
    return *this;
}
bool Dir::isOpen() const { return !m_path.isEmpty(); }

Dir openTop(const QString &path, Result *result)
{
    QString full = QDir::toNativeSeparators(QDir::cleanPath(QDir(path).absolutePath()));
    if (!full.startsWith(QLatin1String("\\\\?\\")))
        full = full.startsWith(QLatin1String("\\\\")) ? QStringLiteral("\\\\?\\UNC\\") + full.mid(2)
                                                        : QStringLiteral("\\\\?\\") + full;
    const DWORD a = attributesOf(full);
    if (a == INVALID_FILE_ATTRIBUTES || !(a & FILE_ATTRIBUTE_DIRECTORY)) {
        *result = failed(QStringLiteral("not a directory"));
        return {};
    }
    *result = {};
    return Access::make(full);
}

Dir openChild(const Dir &parent, const QString &name, Result *result)
{
    const DWORD a = singleEntryName(name) ? attributesOf(child(parent, name)) : INVALID_FILE_ATTRIBUTES;
    if (a == INVALID_FILE_ATTRIBUTES || !(a & FILE_ATTRIBUTE_DIRECTORY) || (a & FILE_ATTRIBUTE_REPARSE_POINT)) {
        *result = failed(QStringLiteral("no directory of that name (links are not entered)"));
        return {};
    }
    *result = {};
    return Access::make(child(parent, name));
}

Kind kindOf(const Dir &parent, const QString &name)
{
    const DWORD a = singleEntryName(name) ? attributesOf(child(parent, name)) : INVALID_FILE_ATTRIBUTES;
    if (a == INVALID_FILE_ATTRIBUTES)
        return Kind::None;
    if (a & FILE_ATTRIBUTE_REPARSE_POINT)
        return Kind::Link;
    return (a & FILE_ATTRIBUTE_DIRECTORY) ? Kind::Directory : Kind::File;
}

Result makeDirectory(const Dir &parent, const QString &name)
{
    if (!singleEntryName(name) || !CreateDirectoryW(wide(child(parent, name)).c_str(), nullptr))
        return failed(systemReason(), true);
    return {};
}

Result removeEntry(const Dir &parent, const QString &name)
{
    if (!singleEntryName(name))
        return failed(QStringLiteral("not a name of one entry"));
    const QString path = child(parent, name);
    const DWORD a = attributesOf(path);
    if (a == INVALID_FILE_ATTRIBUTES)
        return {};
    const bool ok = ((a & FILE_ATTRIBUTE_DIRECTORY) && !(a & FILE_ATTRIBUTE_REPARSE_POINT)) ? removeTree(path)
                                                                                             : removeOne(path, a);
    return ok ? Result{} : failed(systemReason());
}

Result writeFile(const Dir &parent, const QString &name, repo::ValueReader &source, qint64 *written)
{
    *written = 0;
    if (!singleEntryName(name))
        return failed(QStringLiteral("not a name of one entry"), true);
    const QString path = child(parent, name);
    const DWORD a = attributesOf(path);
    if (a != INVALID_FILE_ATTRIBUTES) {
        if ((a & FILE_ATTRIBUTE_DIRECTORY) && !(a & FILE_ATTRIBUTE_REPARSE_POINT))
            return failed(QStringLiteral("a directory stands there"), true);
        if (!removeOne(path, a))
            return failed(systemReason(), true);
    }
    HANDLE h = CreateFileW(wide(path).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                           FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return failed(systemReason(), true);
    const auto torn = [&](const QString &why) {
        CloseHandle(h);
        DeleteFileW(wide(path).c_str());
        return failed(why);
    };
    std::vector<char> chunk(kChunk);
    for (;;) {
        qint64 got = 0;
        try {
            got = source.read(chunk.data(), qint64(chunk.size()));
        } catch (...) {
            torn(QString());
            throw;
        }
        if (got <= 0)
            break;
        for (const char *data = chunk.data(); got > 0;) {
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

bool setFileTime(const Dir &parent, const QString &name, const QDateTime &when)
{
    if (!when.isValid() || !singleEntryName(name))
        return false;
    HANDLE h = CreateFileW(wide(child(parent, name)).c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                           nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return false;
    // 100-nanosecond intervals since 1 January 1601 (UTC).
    const qint64 ticks = (when.toMSecsSinceEpoch() + Q_INT64_C(11644473600000)) * 10000;
    FILETIME created;
    created.dwLowDateTime = DWORD(quint64(ticks) & 0xFFFFFFFFu);
    created.dwHighDateTime = DWORD(quint64(ticks) >> 32);
    const bool ok = SetFileTime(h, &created, nullptr, nullptr) != 0;
    CloseHandle(h);
    return ok;
}

qsizetype maximumPathLength() { return 32767 - 1; }

#endif

} // namespace dirhandles
