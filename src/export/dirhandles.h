#pragma once
// The one place that touches the export's destination through the operating system. Everything
// is done relative to an open handle of a directory, one name at a time, and symbolic links are
// never followed: a link is an entry like a file, removed or refused, never entered. That keeps
// every change inside the destination even when the tree below it changes during a run.

#include "repository/valuereader.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>

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
Kind kindOf(const Dir &parent, const QString &name);
Result makeDirectory(const Dir &parent, const QString &name);
// Removes the entry; a directory with everything below it. Links are removed, not followed;
// read-only entries and directories without permissions go too.
Result removeEntry(const Dir &parent, const QString &name);
// Creates the file afresh (an existing file or link of that name is removed first, so a hard
// link's other names keep their bytes) and writes what source gives, chunk by chunk. nameRefused
// when it could not be created; a failure while writing (or the source raising) removes the torn
// file. written receives the bytes written.
Result writeFile(const Dir &parent, const QString &name, repo::ValueReader &source, qint64 *written);
// Gives the file the document's date without following a link: the creation time on Windows,
// the modification time elsewhere (the access time stays).
bool setFileTime(const Dir &parent, const QString &name, const QDateTime &when);
// Longest full path, in the system's encoding, that every program can still open by name.
qsizetype maximumPathLength();

} // namespace dirhandles
