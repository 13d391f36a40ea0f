#include "export/filetimes.h"

#include <QDir>
#include <QFile>

#ifdef Q_OS_WIN
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/stat.h>
#endif

bool setDocumentFileTime(const QString &path, const QDateTime &when)
{
    if (!when.isValid())
        return false;
#ifdef Q_OS_WIN
    const QString native = QDir::toNativeSeparators(path);
    HANDLE file = CreateFileW(reinterpret_cast<LPCWSTR>(native.utf16()), GENERIC_WRITE,
                              FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return false;
    // 100-nanosecond intervals since 1 January 1601 (UTC).
    const qint64 ticks = (when.toMSecsSinceEpoch() + Q_INT64_C(11644473600000)) * 10000;
    FILETIME created;
    created.dwLowDateTime = DWORD(quint64(ticks) & 0xFFFFFFFFu);
    created.dwHighDateTime = DWORD(quint64(ticks) >> 32);
    const bool ok = SetFileTime(file, &created, nullptr, nullptr) != 0;
    CloseHandle(file);
    return ok;
#else
    const qint64 msecs = when.toMSecsSinceEpoch();
    struct timespec times[2];
    times[0].tv_sec = 0;
    times[0].tv_nsec = UTIME_OMIT;
    times[1].tv_sec = time_t(msecs >= 0 ? msecs / 1000 : -((-msecs + 999) / 1000));
    times[1].tv_nsec = long((msecs - qint64(times[1].tv_sec) * 1000) * 1000000);
    return utimensat(AT_FDCWD, QFile::encodeName(path).constData(), times, 0) == 0;
#endif
}
