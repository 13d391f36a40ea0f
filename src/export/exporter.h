#pragma once
// The export engine: the walk over the ticked tree, directories, documents under clean names,
// file dates and the export log. Used by the window's "Start &Copy" and by the command line.

#include "repository/signin.h"
#include "tree/treeprocs.h"

#include <QDateTime>

#include <memory>

class ExportDisk;

// Cleans in place (the caller's text gets the replaced, untrimmed form) and returns it trimmed.
QString RemoveSpChr(QString &strFileName);
QString GetFileExtension(const QString &pFileName);
// The user's documents folder, without a trailing separator; "" when the platform has none.
QString fxnGetMyFolderLocation();
// "\zarnivo Parcelwise Log " + year month day hour minute, unpadded, + ".txt" (leading separator
// is the platform's).
QString exportLogNameFor(const QDateTime &when);

// A document title with the characters file names cannot hold turned into blanks; not trimmed.
QString cleanDocumentTitle(const QString &description);
// Whether cleanedTitle + ext can be created as a file here; when not, the document is saved
// under "[" + rec_id + "]" + ext instead. Platform rules live only here.
bool titleCanBeFileName(const QString &cleanedTitle, const QString &ext);
// The instant a document's date text ("yyyyMMdd hhmmss.mmm", read at fixed positions, the
// milliseconds ignored) stands for, taken as local time with the offset in force today.
// Raises HuntERR::Error (13) on a text too short or not numeric where digits belong.
QDateTime fileDateFromRepositoryText(const QString &text);

// What the command line wants to hear about while the walk runs; the window ignores it.
class ExportObserver {
public:
    virtual ~ExportObserver() = default;
    virtual void folderStarted(const QString &path) { Q_UNUSED(path); }
    virtual void directoryRemoved(const QString &path) { Q_UNUSED(path); }   // an existing target deleted first
    virtual void directoryCreated(const QString &path) { Q_UNUSED(path); }
    virtual void documentWritten(const QString &filePath, qint64 bytes) { Q_UNUSED(filePath); Q_UNUSED(bytes); }
    virtual void failureLogged(const QString &line) { Q_UNUSED(line); }
};

class Exporter {
public:
    Exporter(SignIn &signIn, TreeProcs &tree);
    ~Exporter();

    // cmdStart_Click's steps 4-7 without the dialogs: names the log, walks, and shows the log
    // through the form when anything was logged. Returns true when something was logged (in a
    // dry run: would have been; nothing is written then, not even the log or its folder).
    bool run();

    void CopyCheckedFolders();
    void MakeDir(const QString &strPath);
    void CopySubFolders(const QString &key, const QString &parentPath);
    void CopySubFoldersDeep(const QString &key, const QString &parentPath);
    void CopyFolderFiles(double folderId, const QString &path);
    QString fxnSaveDocument(qint64 recId, const QString &path);
    bool fxnSetFileDate(repo::Connection &paramConnection, qint64 paramRec_Id, const QString &paramFilePath);
    void fxnWriteLog(qint32 paramId, QString paramName, QString paramLocation, quint8 paramType);

    QString ExportLogName;
    QString ExportLogFolder;
    QString ExportLogPath;
    bool LogWritten = false;
    double ExportNodeIndex = 0;

    // Command line extras.
    QString logFolderOverride; // "" = the documents folder
    bool dryRun = false;       // list what would be written, write nothing
    // A dry run takes these as made (a destination the real run would create first).
    QStringList dryRunMadeDirectories;
    ExportObserver *observer = nullptr;
    struct Stats {
        qint64 folders = 0;
        qint64 documents = 0;
        qint64 bytes = 0;
        qint64 failures = 0;
    } stats;

private:
    void copySubFolders(const QString &key, const QString &parentPath, const QString &ordering, const char *source);
    // Writes one failure line and keeps a failure of the log itself from ending the walk.
    void logFailure(const QString &source, qint64 id, const QString &name, const QString &location, quint8 type);
    QString logFolder() const;
    ExportDisk &disk();
    std::unique_ptr<ExportDisk> m_disk;
    SignIn &m_signIn;
    TreeProcs &m_tree;
};
