// The export run and the folder walk: every ticked folder becomes a directory under the
// destination, filled with its documents and, where the tree never loaded its children, with
// its whole subfolder tree read from the repository. One bad folder or document never stops the
// walk: the failure is recorded by the error trail, written to the export log, and the walk goes
// on with the next statement.

#include "export/exporter.h"

#include "errors/hunterr.h"
#include "export/exportdisk.h"
#include "export/runguards.h"
#include "export/retryscope.h"
#include "repository/statements.h"

#include <algorithm>
#include <vector>

namespace exporting {

using names::RemoveSpChr;
using names::idTag;
using names::pathSeparator;
using tree::FolderTree;
using tree::SessionState;
using tree::TreeProcs;
using tree::folderIdOfKey;

namespace {

const QString kForm = QStringLiteral("FrmSendtofolder.");
const QString kFold = QStringLiteral("Fold");
constexpr quint8 kFileLine = 0;
constexpr quint8 kFolderLine = 1;

} // namespace

Exporter::Exporter(SessionState &signIn, TreeProcs &tree)
    : m_signIn(signIn)
    , m_tree(tree)
{
}

Exporter::~Exporter() = default;

ExportResult Exporter::run(const ExportOptions &options)
{
    // Without a destination every target would hang off the file system's root.
    if (m_signIn.DestinationPath.isEmpty())
        HuntERR::raise(HuntERR::ERR_PATH_NOT_FOUND, QStringLiteral("Path not found: no destination folder was chosen"));
    if (const QString refused = refusal(options); !refused.isEmpty())
        HuntERR::raise(HuntERR::ERR_PATH_FILE_ACCESS, refused);
    if (!options.dryRun && !m_lock) {
        if (const QString held = lockDestination(); !held.isEmpty())
            HuntERR::raise(HuntERR::ERR_PATH_FILE_ACCESS, held);
    }
    // The lock goes however the run ends.
    const std::unique_ptr<DestinationLock> lock = std::move(m_lock);
    if (options.records)
        options.records->begin();
    m_options = options;
    m_result = ExportResult{};
    m_walked.clear();
    m_tickedWalks.clear();
    m_abandoned.clear();
    m_nodeDirs.clear();
    m_keptDirs.clear();
    m_heldRecords.clear();
    m_ahead.clear();
    m_logWritten = false;
    m_logFolder.clear();
    m_result.logName = exportLogNameFor(QDateTime::currentDateTime()).mid(1);
    m_excluded.clear();
    for (const QString &glob : options.exclude)
        m_excluded.append({glob, globExpression(glob)});

    const RetryScope retrying(m_signIn.cnDb(), options.retry, options.stop);
    // One job in a dry run: it reads no bytes, and its picture of the disk belongs to the walk.
    // Step mode asks about each failure as it happens, which only the walk's thread can do.
    startQueue(options.dryRun || HuntERR::stepMode() ? 1 : qMax(1, options.jobs));
    try {
        CopyCheckedFolders();
    } catch (...) {
        stopQueue(); // stops the workers before anything they use goes away
        throw;
    }
    m_documents->drain();
    m_result.stopped = stopped();
    m_result.statementsRetried = retrying.statementsRetried();
    const DocumentQueue::Connections connections = m_documents->connections();
    m_result.jobs = connections.asked;
    m_result.connections = connections.connected;
    m_result.connectionError = connections.error;
    stopQueue();
    if (m_result.stopped)
        noteUnfinished();

    if (m_logWritten && !options.dryRun) {
        m_logWritten = false;
        m_result.logPath = m_logFolder + pathSeparator() + m_result.logName;
        m_signIn.form().openLog(m_logFolder, m_result.logName);
    }
    return m_result;
}

ExportDisk &Exporter::disk()
{
    return *m_disk;
}

void Exporter::startQueue(int jobs)
{
    m_disk = std::make_unique<ExportDisk>(m_signIn.DestinationPath, m_options.dryRun); // from the disk as it is
    if (m_options.dryRun) {
        for (const QString &made : std::as_const(m_options.madeDirectories))
            m_disk->assumeMade(made);
    }
    FetchSettings settings;
    settings.archive = m_signIn.blnArchive;
    settings.archiveDb = m_signIn.strSelectedDb;
    settings.update = m_options.update;
    settings.digests = m_options.records != nullptr;
    settings.stop = m_options.stop;
    settings.since = m_options.since;
    m_fetcher = std::make_unique<DocumentFetcher>(std::move(settings), *m_disk);
    const DocumentFetcher *fetcher = m_fetcher.get(); // all the workers see of the run
    m_documents = std::make_unique<DocumentQueue>(
        jobs, m_signIn.cnDb().connectionString, m_signIn.cnDb(),
        [fetcher](const DocumentJob &job, repo::Connection &cn, const DocumentQueue::Counted &counted,
                  const std::vector<const DocumentJob *> &ahead) { return fetcher->fetch(job, cn, counted, ahead); },
        [this](const DocumentJob &job, DocumentOutcome &outcome) { retireDocument(job, outcome); },
        [this](qint64 inFlight) {
            if (m_options.observer)
                m_options.observer->documentBytes(inFlight);
        },
        [fetcher](DocumentJob &job, DocumentOutcome &outcome) { return fetcher->settledAsListed(job, outcome); });
}

void Exporter::stopQueue()
{
    m_documents.reset(); // takes back what is still out, through the disk layer
    m_fetcher.reset();
    m_disk.reset();
    m_ahead.clear();
}

// --- Folder walk ---------------------------------------------------------------------------

QString Exporter::directoryFor(const QString &parent, const QString &cleaned, qint64 id, const NameOwners &siblings,
                               ReportStatus *status)
{
    const QChar sep = pathSeparator();
    const QString base = parent.endsWith(sep) ? parent : parent + sep;
    // Of siblings that clean alike the lowest id keeps the name; never over what this run made.
    bool renamed = false;
    const QString name = folderDirectoryName(cleaned, id, siblings, [&](const QString &n) {
        return disk().madeThisRun(base + n) || wroteThisRun(base + n);
    }, &renamed);
    if (status)
        *status = renamed ? ReportStatus::Renamed : name == idTag(id) ? ReportStatus::Fallback : ReportStatus::Written;
    return base + name;
}

bool Exporter::recreateDirectory(const QString &source, const QString &target, const std::function<void()> &logged,
                                 const ExportRecord &folder)
{
    if (m_options.observer)
        m_options.observer->folderStarted(target);
    if (m_options.update && disk().isDirectory(target)) {
        // An update finishes what an earlier run began: what is there stays.
        disk().keepDirectory(target);
        disk().removeLeftovers(target);
        m_keptDirs.insert(target);
        ++m_result.folders;
        if (m_options.observer)
            m_options.observer->directoryKept(target);
        ExportRecord kept = folder;
        kept.status = ReportStatus::Skipped;
        kept.message = QStringLiteral("kept");
        record(kept, target);
        return true;
    }
    const bool made = HuntERR::resume(source, [&] {
        // Every run replaces what an earlier run wrote for the same folder (a link there is
        // removed as a link).
        if (disk().isReplaceable(target)) {
            disk().removeDirectory(target);
            if (m_options.observer)
                m_options.observer->directoryRemoved(target);
        }
        disk().makeDirectory(target);
        ++m_result.folders;
        if (m_options.observer)
            m_options.observer->directoryCreated(target);
    });
    if (!made)
        logged(); // the folder's documents and subfolders had nowhere to go
    else
        record(folder, target);
    return made;
}

void Exporter::CopyCheckedFolders()
{
    const QString source = kForm + QStringLiteral("CopyCheckedFolders");
    const QString &destination = m_signIn.DestinationPath;
    FolderTree &tree = m_tree.tree();

    // Where each ticked folder belongs below the destination, made or not: a ticked folder below
    // one whose directory could not be made is logged at its own place.
    QHash<const FolderTree::Node *, QString> meant;
    const QHash<const FolderTree::Node *, NameOwners> siblings = tickedOwners(tree);
    const int count = tree.count();
    for (int index = 1; index <= count && !stopped(); ++index) {
        FolderTree::Node *node = nullptr;
        if (!HuntERR::resume(source, [&] { node = tree.node(index); }))
            continue;
        if (!node->checked)
            continue;
        const qint64 id = folderIdOfKey(node->key);
        if (id == 1)
            continue; // the repository root is never a directory of its own
        m_tickedWalks.insert(node, TickedWalk{});

        // The nearest ticked ancestor's directory as this run made it: it may carry its id.
        QString parentDir = destination;
        QString meantParent = destination;
        const FolderTree::Node *up = tickedParent(node);
        if (up) {
            parentDir = m_nodeDirs.value(up);
            meantParent = meant.value(up);
        }
        QString tag = node->tag;
        const QString cleaned = RemoveSpChr(tag);
        QString target = meantParent + pathSeparator() + cleaned;
        meant.insert(node, target);
        if (const QString glob = exclusion(repositoryPathOf(node)); !glob.isEmpty()) {
            leaveOut(ExportRecord::Kind::Folder, id, node->tag, target, QStringLiteral("excluded by ") + glob);
            continue;
        }
        auto logged = [&] { logFailure(source, id, node->tag, target, kFolderLine); };
        if (parentDir.isEmpty() || m_walked.contains(id)) {
            logged(); // its parent's directory could not be made, or the folder was already written
            continue;
        }
        m_walked.insert(id);
        ExportRecord folder = ExportRecord::of(ExportRecord::Kind::Folder, id, node->tag);
        target = directoryFor(parentDir, cleaned, id, siblings.value(up), &folder.status);
        meant.insert(node, target);
        if (!recreateDirectory(source, target, logged, folder))
            continue;
        m_nodeDirs.insert(node, target);
        TickedWalk &walk = m_tickedWalks[node];
        walk.firstSerial = m_submitted + 1;
        if (!HuntERR::resume(source, [&] { MakeDir(node, target); }))
            logged();
        walk.lastSerial = m_submitted;
        walk.whole = !stopped();
    }
}

void Exporter::MakeDir(const FolderTree::Node *node, const QString &strPath)
{
    HuntERR::inner(kForm + QStringLiteral("MakeDir(strPath)"), [&] {
        // Loaded children are nodes of their own and go with the walk only when ticked.
        if (node->children.size() < 1)
            CopySubFolders(node->key, strPath, repositoryPathOf(node));
        CopyFolderFiles(folderIdOfKey(node->key), strPath);
    });
}

void Exporter::CopySubFolders(const QString &key, const QString &parentPath, const QString &repoPath)
{
    walkSubFolders(key, parentPath, repoPath, true);
}

QString Exporter::childFoldersQuery(const QString &id, bool firstLevel) const
{
    return m_signIn.blnArchive ? repo::statements::archiveSubFolders(id) : repo::statements::liveSubFolders(id, firstLevel);
}

// The subfolder tree below one folder, depth first in name order, with an explicit stack of the
// open listings: the depth of a repository's tree never meets the depth of the call stack.
void Exporter::walkSubFolders(const QString &key, const QString &topPath, const QString &topRepoPath, bool firstLevel)
{
    struct Level {
        repo::RecordSet rs;
        QString path;
        QString repoPath;
        QString source;
        QSet<qint64> listed;
        NameOwners names; // which child keeps a name that several clean to
    };
    std::vector<Level> stack;
    auto list = [&](const QString &id, const QString &path, const QString &repoPath, bool first) {
        const QString source = first ? QStringLiteral("FrmSendtofolder.CopySubFolders(key,parentPath)")
                                     : QStringLiteral("FrmSendtofolder.CopySubFoldersDeep(key,parentPath)");
        repo::RecordSet rs;
        if (!HuntERR::resume(source, [&] { rs = listing(childFoldersQuery(id, first)); })) {
            // Without the list the subfolders of this folder are lost: say which folder it was.
            logFailure(source, folderIdOfKey(id), QString(), path, kFolderLine);
            return false;
        }
        prefetchBelow(rs);
        stack.push_back({rs, path, repoPath, source, {}, subfolderOwners(rs)});
        return true;
    };
    QString id = key;
    id.remove(kFold);
    list(id, topPath, topRepoPath, firstLevel);
    while (!stack.empty() && !stopped()) {
        if (stack.back().rs.eof()) {
            const QString done = stack.back().path;
            stack.pop_back();
            if (!stack.empty()) {
                folderDone(done);
                stack.back().rs.moveNext();
            }
            continue;
        }
        Level &level = stack.back();
        const QString childPath =
            nextSubFolder(level.rs, level.path, level.repoPath, level.source, level.listed, level.names);
        if (childPath.isEmpty() || !list(QString::number(m_childId), childPath, m_childRepoPath, false)) {
            if (!childPath.isEmpty())
                folderDone(childPath);
            stack.back().rs.moveNext();
        }
    }
}

void Exporter::folderDone(const QString &path)
{
    m_signIn.form().setStatus(QStringLiteral(" Creating Folder: ") + path);
    m_signIn.form().repaint();
}

// One row of a listing: the child's directory made and its documents written. Returns the
// directory to descend into, or "" when the child is skipped or failed (logged).
QString Exporter::nextSubFolder(const repo::RecordSet &rs, const QString &parentPath, const QString &parentRepoPath,
                                const QString &source, QSet<qint64> &listed, const NameOwners &siblings)
{
    qint64 childId = 0;
    QString folderName;
    if (!HuntERR::resume(source, [&] {
            childId = listedId(rs);
            folderName = rs.text(QStringLiteral("folder_name"));
        })) {
        logFailure(source, childId, folderName, parentPath, kFolderLine);
        return {};
    }
    const QString storedLocation = parentPath + pathSeparator() + folderName;
    auto logged = [&] { logFailure(source, childId, folderName, storedLocation, kFolderLine); };

    if (m_signIn.blnArchive) {
        bool holdsArchived = false;
        if (!HuntERR::resume(source, [&] {
                holdsArchived = listing(repo::statements::archivedBelowProbe(QString::number(childId), m_signIn.strSelectedDb))
                                    .recordCount()
                                >= 1;
            }))
            logged();
        if (!holdsArchived)
            return {};
        if (m_documents) { // kept: its documents are listed next, then its subfolders
            if (m_options.update)
                m_documents->prefetch(sizesQuery(QString::number(childId)));
            m_documents->prefetch(childFoldersQuery(QString::number(childId), false));
        }
    }
    // A folder listed twice by one listing (live and archived alike) is the same folder: it was
    // just written. Met again anywhere else it lies below itself: written once, walked once.
    if (listed.contains(childId))
        return {};
    listed.insert(childId);
    const QString repoPath = parentRepoPath + QLatin1Char('/') + folderName;
    if (const QString glob = exclusion(repoPath); !glob.isEmpty()) {
        QString cleaned = folderName;
        leaveOut(ExportRecord::Kind::Folder, childId, folderName, parentPath + pathSeparator() + RemoveSpChr(cleaned),
                 QStringLiteral("excluded by ") + glob);
        dropAhead(childId);
        return {};
    }
    if (m_walked.contains(childId)) {
        logged();
        dropAhead(childId);
        return {};
    }
    m_walked.insert(childId);

    QString cleaned = folderName;
    ExportRecord folder = ExportRecord::of(ExportRecord::Kind::Folder, childId, folderName);
    const QString childPath = directoryFor(parentPath, RemoveSpChr(cleaned), childId, siblings, &folder.status);
    if (!recreateDirectory(source, childPath, logged, folder)) {
        dropAhead(childId);
        return {};
    }
    if (!HuntERR::resume(source, [&] { CopyFolderFiles(childId, childPath); }))
        logged();
    m_childId = childId;
    m_childRepoPath = repoPath;
    return childPath;
}

// --- Documents -----------------------------------------------------------------------------

void Exporter::CopyFolderFiles(qint64 folderId, const QString &path)
{
    const QString source = kForm + QStringLiteral("CopyFolderFiles(folderId,path)");
    const QChar sep = pathSeparator();
    const QString id = QString::number(folderId);

    const QString sql = m_signIn.blnArchive ? repo::statements::archiveDocuments(id, m_signIn.strSelectedDb)
                                            : repo::statements::liveDocuments(id);

    repo::RecordSet rs;
    if (!HuntERR::resume(source, [&] { rs = listing(sql); })) {
        if (m_options.update)
            listedSizes(id, false); // nothing listed, nothing to size
        // The folder's documents could not even be listed; the log is the only place the
        // person will learn that this directory is incomplete.
        const qsizetype cut = path.lastIndexOf(sep);
        logFailure(source, folderId, cut < 0 ? path : path.mid(cut + 1), path, kFolderLine);
        return;
    }

    const NameOwners owners = documentOwners(rs);
    const int rows = rs.recordCount();
    if (m_options.update)
        m_listed = listedSizes(id, rows > 0);
    for (int row = 0; row < rows && !rs.eof() && !stopped(); ++row) {
        qint64 recId = 0;
        QString description;
        QString fileName;
        if (HuntERR::resume(source, [&] {
                recId = listedId(rs);
                description = rs.text(QStringLiteral("File_Description"));
                fileName = rs.text(QStringLiteral("File_Name"));
            })) {
            // The status line names the document once it is written (retireDocument).
            fxnSaveDocument(recId, path, description, fileName, owners);
        } else {
            logFailure(source, recId, description, path, kFileLine);
            record(ExportRecord::of(ExportRecord::Kind::Document, recId, description, ReportStatus::Failed, m_lastFailure),
                   path);
            m_signIn.form().setStatus(QStringLiteral(" Copying File: ") + path + sep + description);
            m_signIn.form().repaint();
        }
        rs.moveNext();
    }
    m_listed.clear();
    if (m_options.update && m_options.dryRun && m_keptDirs.contains(path))
        listNotListed(path);
}

} // namespace exporting
