#pragma once
// The one place that touches the export's destination through the operating system. Everything
// is done relative to an open handle of a directory, and symbolic links are never followed: a
// link is an entry like a file, removed or refused, never entered. That keeps every change
// inside the destination even when the tree below it changes during a run.
//
// Threads: every function may run on any thread at once; each works on the handles it is given
// and keeps no state of its own.

#include "repository/valuereader.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>

namespace exporting {

namespace dirhandles {

enum class Kind { None, File, Directory, Link };

// An open directory. Moves only; closes itself.
class Dir {
public:
    Dir() = default;
    ~Dir();
    Dir(Dir &&other) noexcept;
    Dir &operator=(Dir &&other) noexcept;
    Dir(const Dir &) = delete;
    Dir &operator=(const Dir &) = delete;
    bool isOpen() const;

private:
    friend struct Access;
#ifdef Q_OS_WIN
    QString m_path; // best effort: a checked path, see dirhandles.cpp
#else
    int m_fd = -1;
#endif
};

// The outcome of one call: ok, else the system's reason in words.
struct Result {
    bool ok = true;
    QString reason;
    bool nameRefused = false; // the entry could not be created under this name
};

// The destination itself (links to it are fine: the person chose it).
Dir openTop(const QString &path, Result *result);
// A directory entry of parent, never through a link.
Dir openChild(const Dir &parent, const QString &name, Result *result);
// The directory the first count of names leads to from top, each an entry of the one before,
// never through a link (as openChild one after another; count > 0). On Linux in one call that
// refuses every link and any way out of top; when that call fails, name by name again, so that
// a failure says what openChild says.
Dir openBelow(const Dir &top, const QStringList &names, qsizetype count, Result *result);
Kind kindOf(const Dir &parent, const QString &name);
Result makeDirectory(const Dir &parent, const QString &name);
// Removes the entry; a directory with everything below it. Links are removed, not followed;
// read-only entries and directories without permissions go too.
Result removeEntry(const Dir &parent, const QString &name);
// Writes what source gives, chunk by chunk, into a new file of a fresh temporary name in parent
// (tempName receives it): no file under a final name is ever partly written. A failure while
// writing (or the source raising) removes the torn file. written receives the bytes written.
Result writeTemporary(const Dir &parent, repo::ValueReader &source, QString *tempName, qint64 *written);
// Puts the entry from under the name to (an existing file or link of that name is replaced as an
// entry, so a hard link's other names keep their bytes). nameRefused when it cannot take the name.
Result renameEntry(const Dir &parent, const QString &from, const QString &to);
// The one rule for the names documents are staged under, beside their final name:
// ".parcelwise-<process id>-<serial>.part". Only such files are removed as leftovers, and never
// those of the running process (its files in flight).
QString temporaryName(qint64 processId, quint64 serial);
bool isTemporaryName(const QString &name);
bool isOwnTemporaryName(const QString &name);
// The files in parent named as temporary files are (this process's own among them).
QStringList temporaryFileNames(const Dir &parent);
// The names of the regular files (not links, not directories) in parent; only those beginning
// with prefix, when one is given (the others are not even decoded).
QStringList fileNames(const Dir &parent, const QString &prefix = QString());
// Seconds and bytes of a regular file, without following a link; false when there is none.
bool fileFacts(const Dir &parent, const QString &name, qint64 *size, QDateTime *modified);
// Gives the file the document's date without following a link: the creation time on Windows,
// the modification time elsewhere (the access time stays).
bool setFileTime(const Dir &parent, const QString &name, const QDateTime &when);
// The range of file dates every file system of the platform holds (a 32-bit time on Unix, the
// FILETIME range on Windows).
QDateTime earliestFileTime();
QDateTime latestFileTime();
// Longest full path, in the system's encoding, that every program can still open by name.
qsizetype maximumPathLength();

} // namespace dirhandles

} // namespace exporting
