#pragma once
// What the export does to the disk: remove a directory with everything in it, create one
// directory level, write one file. A dry run keeps the same decisions on a picture of the disk
// (what exists, what it would have removed and created), so its listing is what a real run does.
// Every failure is raised as a HuntERR::Error; a name the file system cannot hold raises
// ERR_WRITE_FAILED before anything is touched.

#include <QByteArray>
#include <QSet>
#include <QString>

constexpr qint32 ERR_DISK_FULL = 61;

class ExportDisk {
public:
    explicit ExportDisk(bool dryRun);
    bool isDryRun() const { return m_dry; }

    bool isDirectory(const QString &path) const;
    // Forced: read-only entries go too. A symbolic link is removed as a link, never followed.
    void removeDirectory(const QString &path);
    // One level: the parent must exist.
    void makeDirectory(const QString &path);
    // Creates or replaces dir + separator + fileName with exactly these bytes, in one write.
    // The caller decides whether fileName is acceptable (titleCanBeFileName).
    void writeFile(const QString &filePath, const QByteArray &bytes);
    // Dry run: takes the directory as made, as a step before the run would have made it.
    void assumeMade(const QString &path) { m_dirs.insert(path); }

private:
    enum class Kind { None, File, Directory };
    Kind kind(const QString &path) const;
    bool underRemoved(const QString &path) const;
    static QString parentOf(const QString &path);

    bool m_dry;
    QSet<QString> m_removed; // dry run: directories gone, with everything below them
    QSet<QString> m_dirs;    // dry run: directories made
    QSet<QString> m_files;   // dry run: files written
};
