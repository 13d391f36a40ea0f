#pragma once
// The export engine: the walk over the ticked tree, directories, documents under clean names,
// file dates and the export log. Used by the window's "Start &Copy" and by the command line.
//
// Threads: an Exporter and everything it calls back (the observer, the records, the form) belong
// to the thread that calls run(), the walk's thread, which also owns the error trail. The window
// calls it on a thread of its own, with a session whose connection was opened there; its form
// port hands the calls on to the window's thread. With more than one job, workers fetch
// documents through the run's DocumentFetcher only (documentfetcher.h); their outcomes come back
// to the walk's thread through the DocumentQueue.
// The run's stop request (ExportOptions::stop, stoprequest.h) may be set from any thread or a
// signal handler while run() goes on.

#include "export/documentfetcher.h"
#include "export/documentqueue.h"
#include "export/exportreport.h"
#include "export/nameowners.h"
#include "export/stoprequest.h"
#include "names/filenames.h"
#include "repository/valuereader.h"
#include "tree/treesession.h"
#include "tree/treeprocs.h"

#include <QDateTime>
#include <QRegularExpression>

#include <QHash>
#include <QSet>
#include <QStringList>

#include <deque>
#include <functional>
#include <memory>

namespace exporting {

class DestinationLock;
class ExportDisk;

// The user's documents folder, without a trailing separator; "" when the platform has none.
QString fxnGetMyFolderLocation();
// The user's Documents folder by the platform's rule (QStandardPaths), not made; "" when there is
// none (no home).
QString documentsFolder();
// "\zarnivo Parcelwise Log " + year month day hour minute, unpadded, + ".txt" (leading separator
// is the platform's).
QString exportLogNameFor(const QDateTime &when);
// The export log's last line for a run the person cancelled: "Copy cancelled by the user; folders
// not finished: A, B/C" ("none" when every ticked folder was finished).
QString cancellationLine(const QStringList &unfinished);

// The instant a document's date text ("yyyyMMdd hhmmss.mmm", read at fixed positions, the
// milliseconds ignored) stands for, taken as local time with the offset in force today.
// Raises HuntERR::Error (13) on a text too short or not numeric where digits belong.
QDateTime fileDateFromRepositoryText(const QString &text);
// A glob ("*" any run of characters, "/" included; "?" one; "[...]" one of a set) as an
// expression matching whole texts, letter case aside.
QRegularExpression globExpression(const QString &glob);
// A folder's path below the root: the names as stored from the top down, joined by "/".
QString repositoryPathOf(const tree::FolderTree::Node *node);

// The date the export gives a document's file: its own date, else its upload date, read with the
// date statement; invalid when it has neither. Raises HuntERR::Error when the statement fails.
QDateTime documentDate(repo::Connection &cn, qint64 recId);
// The same date from the current row of a record set with the date statement's two columns
// (the date statement's own, or a folder's size listing); invalid when there is no row.
QDateTime documentDateOf(const repo::RecordSet &rs);

// What the command line wants to hear about while the walk runs; the window counts the documents
// and bytes written for its progress bar.
class ExportObserver {
public:
    virtual ~ExportObserver() = default;
    virtual void folderStarted(const QString &path) { Q_UNUSED(path); }
    virtual void directoryRemoved(const QString &path) { Q_UNUSED(path); }   // an existing target deleted first
    virtual void directoryCreated(const QString &path) { Q_UNUSED(path); }
    virtual void documentWritten(const QString &filePath, qint64 bytes) { Q_UNUSED(filePath); Q_UNUSED(bytes); }
    // Bytes already on their way to files of documents not yet reported written (a large document,
    // or several at once): told now and then while they stream.
    virtual void documentBytes(qint64 bytesInFlight) { Q_UNUSED(bytesInFlight); }
    virtual void failureLogged(const QString &line) { Q_UNUSED(line); }
    // The same failure as the person reads it: the item's path (a document: its folder and its
    // listed title) and the error's own words, as its report record carries them.
    virtual void itemFailed(const QString &path, const QString &reason) { Q_UNUSED(path); Q_UNUSED(reason); }
    // --update: an existing directory kept, a document's file left as it was, and (dry run) a
    // file in a kept directory that the repository no longer lists.
    virtual void directoryKept(const QString &path) { Q_UNUSED(path); }
    virtual void documentKept(const QString &filePath, qint64 bytes) { Q_UNUSED(filePath); Q_UNUSED(bytes); }
    virtual void fileNotListed(const QString &filePath) { Q_UNUSED(filePath); }
    // The log could not hold this line: it must reach the person another way.
    virtual void failureUnlogged(const QString &line) { Q_UNUSED(line); }
};

// How a run goes: for real or as a dry run, where the log goes, who hears of each step.
struct ExportOptions {
    bool dryRun = false;        // list what would be written, write nothing
    QString logFolder;          // "" = the documents folder
    ExportObserver *observer = nullptr;
    QStringList madeDirectories; // dry run: directories taken as made before the walk (a destination to create)
    // Documents fetched and written at once, each on a connection of its own. The result on disk
    // and in the log is the same for any number. A dry run (and step mode) uses one.
    int jobs = 1;
    // Finish or refresh an earlier export: existing directories are kept, and a document whose
    // file is there with its size and date is left as it is.
    bool update = false;
    ExportRecords *records = nullptr; // one record per folder and document, as the run goes
    // Files the caller relies on (its report): the run refuses to write where they lie.
    QStringList reliedOn;
    // Asked to stop (stoprequest.h): the walk starts nothing more, documents in flight are
    // abandoned, and the run returns what it wrote with stopped set. The caller keeps it alive.
    StopRequest *stop = nullptr;
    // How a statement whose connection broke (every connection of the run: the walk's and the
    // workers') is tried again; the run supplies the pause (ended by stop) and the count.
    repo::RetryPolicy retry = repo::installedRetryPolicy();
    // Filters; what they leave out is recorded as skipped. A folder whose path below the root
    // ("/"-separated, names as stored) matches one of these globs (letter case aside; "*" spans
    // "/" too) is left out with its whole subtree.
    QStringList exclude;
    // Valid: a document dated before it (its own date, else its upload date) is left out; it is
    // dated with the date statement before its bytes are read. Undated documents are exported.
    QDateTime since;
    // The window's Cancel: a run the stop request ended says so at the end of its export log,
    // naming the ticked folders it did not finish (cancellationLine), and the log is opened.
    bool logCancellation = false;
};

// What a run did. failures counts every item that could not be written (in a dry run: would
// have been logged); unloggedLines are the failure lines the log could not take, for the caller
// to show another way.
struct ExportResult {
    qint64 folders = 0;
    qint64 documents = 0;
    qint64 bytes = 0;
    qint64 failures = 0;
    qint64 kept = 0; // --update: documents left as they were (not in documents)
    qint64 skipped = 0; // folders and documents the filters left out
    QStringList unloggedLines;
    QString logName; // the log's file name this run chose (it may have written none)
    QString logPath; // the log this run wrote to; "" when it wrote none
    // Workers asked for and those that could connect (fewer do all the jobs between them; with
    // none, the walk's own connection does), and why the first that could not did not.
    int jobs = 1;
    int connections = 1;
    QString connectionError;
    bool stopped = false; // the stop request ended the run early: the counts are what was written
    // Stopped: the ticked folders (paths below the root, in tree order) whose walk was cut short,
    // or never began, or whose documents were abandoned in flight.
    QStringList unfinished;
    qint64 statementsRetried = 0; // statements sent again after their connection broke
    // Something failed: the log was shown, or lines could not be logged, or (dry run) would be.
    bool anythingFailed() const { return failures > 0 || !unloggedLines.isEmpty(); }
};

class Exporter {
public:
    Exporter(tree::SessionState &signIn, tree::TreeProcs &tree);
    ~Exporter();

    // cmdStart_Click's steps 4-7 without the dialogs: names the log, walks, and shows the log
    // through the form when anything was logged. In a dry run nothing is written, not even the
    // log or its folder.
    ExportResult run(const ExportOptions &options = {});
    // Before anything is written: "" when the run may go ahead, otherwise why not, naming the
    // directory it would write into and what it relies on there (the embedded server it reads,
    // the report, the log, the program). run() refuses (raises) for the same reason.
    QString refusal(const ExportOptions &options) const;
    // One run per destination: "" when this exporter now holds the destination's lock (until
    // run() ends), otherwise why not, naming the holder. run() takes it when the caller did not.
    QString lockDestination();
    // What the last run did (the window reads it after its run).
    const ExportResult &lastResult() const { return m_result; }

private:
    void CopyCheckedFolders();
    // The ticked node's directory filled: its subfolders (unless the tree loaded them) and documents.
    void MakeDir(const tree::FolderTree::Node *node, const QString &strPath);
    void CopySubFolders(const QString &key, const QString &parentPath, const QString &repoPath);
    void CopyFolderFiles(qint64 folderId, const QString &path);
    // Names the document as the folder's listing gives it and hands it over to be fetched,
    // written and dated (at once, or by a worker with more than one job).
    // Of the documents whose names collide, the one of lowest id (owners) keeps the title.
    void fxnSaveDocument(qint64 recId, const QString &path, const QString &listedTitle, const QString &listedFileName,
                         const NameOwners &owners);
    void fxnWriteLog(qint64 paramId, QString paramName, QString paramLocation, quint8 paramType);
    // Appends one line to this run's log (raises when it cannot).
    void appendLogLine(const QString &line);
    // A stopped run: which ticked folders it did not finish, and (the window) the log's last line.
    void noteUnfinished();

    // The outcome's counts, log lines, error trail, files put in place and report records, on
    // the walk's thread in walk order.
    void retireDocument(const DocumentJob &job, DocumentOutcome &outcome);
    void retireKept(DocumentOutcome &o, ExportRecord &rec);
    // The staged file put in place and counted; the file, or "" when it failed (logged).
    QString retireWritten(const DocumentJob &job, DocumentOutcome &o, ExportRecord &rec);
    // Puts the staged file in place: under its name, else under "[id].ext". "" when neither took.
    QString commitDocument(const QString &source, const QString &staged, const QString &fallback, ExportRecord &rec);
    // A record made while documents handed out earlier are still out waits for them: the report
    // keeps walk order for any number of jobs.
    void record(ExportRecord r, const QString &path);
    // The records that waited for the job with this serial (and those before it).
    void releaseRecords(qint64 serial);
    void writeRecord(ExportRecord r, const QString &path);
    // What this run wrote at path, once every document that may still write there is done.
    bool wroteThisRun(const QString &path);
    QString childFoldersQuery(const QString &id, bool firstLevel) const;
    void walkSubFolders(const QString &key, const QString &topPath, const QString &topRepoPath, bool firstLevel);
    QString nextSubFolder(const repo::RecordSet &rs, const QString &parentPath, const QString &parentRepoPath,
                          const QString &source, QSet<qint64> &listed, const NameOwners &siblings);
    // The glob of --exclude that the folder path (or one above it) matches; "" when none does.
    QString exclusion(const QString &repoPath) const;
    // An item the filters leave out, recorded as skipped at the path it would have had.
    void leaveOut(ExportRecord::Kind kind, qint64 id, const QString &name, const QString &path, const QString &why);
    void folderDone(const QString &path);
    // The walk's own statements, sent ahead by the workers when there are any.
    void prefetchBelow(repo::RecordSet rs);
    NameOwners subfolderOwners(const repo::RecordSet &rs);
    void topUpPrefetch();
    void dropAhead(qint64 childId);
    repo::RecordSet listing(const QString &sql);
    // The directory a folder gets below parent: its cleaned name unless that is no name, belongs
    // to a sibling of lower id, or this run already made it; then its id goes in.
    QString directoryFor(const QString &parent, const QString &cleaned, qint64 id, const NameOwners &siblings,
                         ReportStatus *status = nullptr);
    // Replaces an earlier run's entry and makes the directory (an update keeps a directory that is
    // there); a failure is logged once.
    bool recreateDirectory(const QString &source, const QString &target, const std::function<void()> &logged,
                           const ExportRecord &folder);
    // Dry run of an update: the files of a kept directory that this run would leave alone.
    void listNotListed(const QString &dir);
    // The statement an update sends for a folder's documents' sizes and dates.
    QString sizesQuery(const QString &folderId) const;
    // An update's size listing of a folder's documents, by id: what it cannot tell (it failed, a
    // document listed twice or without bytes) the documents' own statements tell. Not sent for a
    // folder that lists no documents.
    QHash<qint64, ListedFacts> listedSizes(const QString &folderId, bool anyListed);
    // Writes one failure line and keeps a failure of the log itself from ending the walk.
    void logFailure(const QString &source, qint64 id, const QString &name, const QString &location, quint8 type);
    QString logFolder() const;
    bool stopped() const { return stopRequested(m_options.stop); }
    ExportDisk &disk();
    // The run's disk layer, its fetcher and its queue, made in this order and gone in the reverse.
    void startQueue(int jobs);
    void stopQueue();

    // Members in the order of their lifetimes: destroyed from the bottom up, the queue (whose
    // workers use the fetcher and the disk, and whose outcomes retire into the walk's
    // bookkeeping) goes before anything it uses.
    tree::SessionState &m_signIn;
    tree::TreeProcs &m_tree;
    // One run's, set by run() before the walk starts.
    ExportOptions m_options;
    ExportResult m_result;
    // The walk's bookkeeping.
    QSet<qint64> m_walked;                             // folders written by this run
    // Ticked nodes the walk went through: whole (not cut short by a stop) and the serials of the
    // documents it handed out meanwhile; and the serials of documents abandoned by a stop.
    struct TickedWalk {
        bool whole = true;
        qint64 firstSerial = 0;
        qint64 lastSerial = -1;
    };
    QHash<const tree::FolderTree::Node *, TickedWalk> m_tickedWalks;
    QSet<qint64> m_abandoned;
    QHash<const tree::FolderTree::Node *, QString> m_nodeDirs; // ticked nodes' directories
    QSet<QString> m_keptDirs;  // --update: directories kept from an earlier run
    QHash<qint64, ListedFacts> m_listed; // --update: the sizes and dates of the folder being listed
    qint64 m_childId = 0;
    QString m_childRepoPath; // and its path below the root
    QList<QPair<QString, QRegularExpression>> m_excluded; // --exclude's globs
    qint64 m_submitted = 0;    // documents handed out so far
    std::deque<std::pair<qint64, ExportRecord>> m_heldRecords; // waiting for the job of that serial
    std::deque<QString> m_ahead; // statements the walk will send, in its order, not yet sent ahead
    bool m_retiring = false;   // taking a document's outcome back: its log lines are in order already
    QString m_pendingLine;     // composed but not yet in the log
    QString m_lastFailure;     // what the last logged failure was
    QString m_logFolder;       // where the log went; set with the first line written
    bool m_logWritten = false;
    // The destination's lock: from lockDestination() (or the start of run()) until run() ends.
    std::unique_ptr<DestinationLock> m_lock;
    // Made for a run and dropped at its end, in this order.
    std::unique_ptr<ExportDisk> m_disk;
    std::unique_ptr<DocumentFetcher> m_fetcher;
    std::unique_ptr<DocumentQueue> m_documents;
};

} // namespace exporting
