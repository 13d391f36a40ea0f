#pragma once
// What the two halves of the disk layer share (directories and entries in dirhandles.cpp, files
// in dirfiles.cpp): the handle's inside, the one-entry name check and the system's reasons.

#include "export/dirhandles.h"

#include <QString>

#ifdef Q_OS_WIN
#include <windows.h>

#include <string>
#else
#include <cerrno>
#include <cstring>
#endif

namespace exporting {

namespace dirhandles {

// A name that would not stay one entry of its directory.
inline bool singleEntryName(const QString &name)
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

inline Result failed(const QString &reason, bool nameRefused = false)
{
    Result r;
    r.ok = false;
    r.reason = reason;
    r.nameRefused = nameRefused;
    return r;
}

#ifndef Q_OS_WIN
struct Access {
    static int fd(const Dir &d) { return d.m_fd; }
    static Dir make(int fd)
    {
        Dir d;
        d.m_fd = fd;
        return d;
    }
};

inline QString systemReason() { return QString::fromLocal8Bit(std::strerror(errno)); }
#else
struct Access {
    static const QString &path(const Dir &d) { return d.m_path; }
    static Dir make(const QString &path)
    {
        Dir d;
        d.m_path = path;
        return d;
    }
};

inline std::wstring wide(const QString &path) { return path.toStdWString(); }
inline QString child(const Dir &parent, const QString &name) { return Access::path(parent) + QLatin1Char('\\') + name; }
inline QString systemReason() { return QStringLiteral("system error %1").arg(GetLastError()); }
inline DWORD attributesOf(const QString &path) { return GetFileAttributesW(wide(path).c_str()); }
// Clears read-only first; a directory must be empty.
bool removeOne(const QString &path, DWORD attributes);
#endif

} // namespace dirhandles

} // namespace exporting
