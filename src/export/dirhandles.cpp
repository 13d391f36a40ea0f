#include "export/dirhandles.h"
#include "export/dirhandles_p.h"

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
#if defined(Q_OS_LINUX) && __has_include(<linux/openat2.h>)
#include <atomic>
#include <linux/openat2.h>
#include <sys/syscall.h>
#endif

namespace exporting {

namespace dirhandles {

#ifndef Q_OS_WIN
// --- POSIX: directory descriptors, *at calls, O_NOFOLLOW ------------------------------------

namespace {


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

qsizetype maximumPathLength() { return PATH_MAX - 1; }

namespace {

// Linux's openat2 walks the whole relative path beneath top and fails on any link or any way out
// of top, also when the tree is renamed meanwhile: what openChild after openChild checks, in
// one call instead of one per level. Invalid (not an error) where the system lacks it.
Dir openBeneath(const Dir &top, const QStringList &names, qsizetype count)
{
#if defined(SYS_openat2) && defined(RESOLVE_BENEATH)
    // No such call here: an old kernel (ENOSYS), or a sandbox that refuses calls it does not know
    // (ENOSYS or EPERM, which opening a directory never gives otherwise).
    static std::atomic<bool> lacking{false};
    if (count < 2 || lacking)
        return {};
    QByteArray path;
    for (qsizetype i = 0; i < count; ++i) {
        if (!singleEntryName(names.at(i)))
            return {};
        path += (i > 0 ? "/" : "") + QFile::encodeName(names.at(i));
    }
    open_how how{};
    how.flags = kDirFlags;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
    const long fd = syscall(SYS_openat2, Access::fd(top), path.constData(), &how, sizeof how);
    if (fd < 0 && (errno == ENOSYS || errno == EPERM))
        lacking = true;
    return Access::make(fd < 0 ? -1 : int(fd));
#else
    Q_UNUSED(top);
    Q_UNUSED(names);
    Q_UNUSED(count);
    return {};
#endif
}

} // namespace

#else
// --- Windows: best effort. Each directory is held as a checked long path ("\\?\" form); an
// entry that is a reparse point (link, junction) is never entered and is removed as itself.
// Between the check and the use a swapped entry is not caught as it is with POSIX descriptors.

bool removeOne(const QString &path, DWORD attributes)
{
    SetFileAttributesW(wide(path).c_str(), attributes & ~FILE_ATTRIBUTE_READONLY);
    if (attributes & FILE_ATTRIBUTE_DIRECTORY)
        return RemoveDirectoryW(wide(path).c_str()) != 0;
    return DeleteFileW(wide(path).c_str()) != 0;
}

namespace {

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

qsizetype maximumPathLength() { return 32767 - 1; }

namespace {

// No call here reaches a directory deep down in one go while refusing links on the way.
Dir openBeneath(const Dir &, const QStringList &, qsizetype) { return {}; }

} // namespace

#endif

Dir openBelow(const Dir &top, const QStringList &names, qsizetype count, Result *result)
{
    Dir below = openBeneath(top, names, count);
    if (below.isOpen()) {
        *result = {};
        return below;
    }
    for (qsizetype i = 0; i < count; ++i) {
        below = openChild(i == 0 ? top : below, names.at(i), result);
        if (!result->ok)
            return {};
    }
    return below;
}

} // namespace dirhandles

} // namespace exporting
