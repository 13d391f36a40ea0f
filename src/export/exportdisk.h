#pragma once
// What the export does to the disk: remove an entry with everything in it, create one directory
// level, write one file, date it. Paths are full paths strictly below the destination; anything
// else (the destination itself, a parent, a name that is not one entry) is refused before the
// disk is touched. Each step that changes the disk walks down from the destination's handle,
// never through a symbolic link (see dirhandles.h); what only looks may start from a directory
// reached that way a little earlier and kept open (openfolders.h).
// A dry run keeps the same decisions on a picture of the disk (what exists, what it would have
// removed and created), so its listing is what a real run does. Both remember what this run
// made, so the walk can keep the run from replacing its own work.
// Every failure is raised as a HuntERR::Error; a file that cannot be created under its name
// raises ERR_WRITE_FAILED.
//
// Threads: one ExportDisk per run, made and destroyed by the walk. stageFile, setFileTime,
// fileFacts and wroteThisRun may run on any thread at once (a parallel export's workers stage
// and date files) while the walk makes directories, puts staged files in place and asks what this
// run wrote; everything else is the walk's.

#include "export/openfolders.h"
#include "repository/valuereader.h"

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QMutex>
#include <QSet>
#include <QString>
#include <QStringList>

#include <functional>

namespace exporting {

constexpr qint32 ERR_DISK_FULL = 61;

class ExportDisk {
public:
    ExportDisk(const QString &destination, bool dryRun);
    ~ExportDisk();
    bool isDryRun() const { return m_dry; }

    bool isDirectory(const QString &path) const;
    // A directory or a symbolic link: what a folder's directory replaces.
    bool isReplaceable(const QString &path) const;
    // Forced: read-only entries go too. A symbolic link is removed as a link, never followed.
    void removeDirectory(const QString &path);
    // One level: the parent must exist.
    void makeDirectory(const QString &path);
    // Writes the document into a new temporary file in filePath's directory, remembered under
    // filePath until it is put in place (commitFile) or given up (discardFile); setFileTime on
    // filePath dates the temporary file. Returns the bytes written. A dry run reads nothing and
    // returns the size the source knows (0 when it does not). The first write into a directory
    // removes the temporary files an earlier, killed run left there.
    qint64 stageFile(const QString &filePath, repo::ValueReader &source);
    // Renames what was staged under stagedPath to finalPath (the same directory), replacing a
    // file there. ERR_WRITE_FAILED when the name is refused; the staged file then stays staged.
    void commitFile(const QString &stagedPath, const QString &finalPath);
    void discardFile(const QString &stagedPath);
    // Dates the file (its temporary file while staged): the date it carries afterwards, which is
    // when or, where the file system cannot hold when, the nearest it can; invalid when the file
    // could not be dated at all. A dry run says when.
    QDateTime dateFile(const QString &filePath, const QDateTime &when);
    // A regular file at path (never through a link): its size and the date the export sets.
    bool fileFacts(const QString &path, qint64 *size, QDateTime *date) const;
    // An existing file or directory kept as it is by an update: it counts as this run's.
    void keepFile(const QString &filePath);
    void keepDirectory(const QString &dir);
    // Removes the temporary files an earlier, killed run left in dir (once per run and directory).
    void removeLeftovers(const QString &dir);
    // Files in the directory that this run neither wrote nor kept (temporary files left out).
    QStringList filesNotOfThisRun(const QString &dir) const;

    // Names as the file system compares them.
    bool madeThisRun(const QString &dir) const;
    bool wroteThisRun(const QString &filePath) const;

    // Tests: called before each step ("remove", "mkdir", "write") with its path.
    using StepHook = std::function<void(const QString &step, const QString &path)>;
    static void setStepHook(StepHook hook);
    // Dry run: takes the directory as made, as a step before the run would have made it.
    void assumeMade(const QString &path);

private:
    enum class Kind { None, File, Directory, Link };
    Kind kind(const QString &path) const;
    bool underRemoved(const QString &key) const;
    // The names below the destination; raises when path is not strictly inside it.
    QStringList entryNames(const QString &path) const;
    // The directory holding the last name, reached without following links: from the
    // destination, to change anything there, or from a directory kept open, to look.
    DirRef openParent(const QStringList &names, QString *why) const;
    DirRef lookParent(const QStringList &names, QString *why) const;
    void checkLength(const QString &path, qint32 error) const;
    // inside: the names of an entry of dir (from the destination down).
    void sweepLeftovers(const dirhandles::Dir &dir, const QString &dirPath, const QStringList &inside);
    // The temporary name staged for stagedPath: null when nothing is staged there, "" in a dry run.
    QString stagedName(const QString &stagedPath) const;

    QString m_destination;
    QString m_prefix; // destination with one trailing separator
    bool m_dry;
    QSet<QString> m_removed; // dry run: directories gone, with everything below them
    QSet<QString> m_dirs;    // directories made by this run
    QSet<QString> m_files;   // files written by this run
    QHash<QString, QString> m_staged; // file path -> temporary name beside it
    QSet<QString> m_swept;   // directories whose leftovers are gone
    // Guards every set above: workers stage and date files while the walk makes directories and
    // puts files in place. The bytes themselves are copied outside it.
    mutable QMutex m_lock;
    mutable OpenFolders m_folders;
};

} // namespace exporting
