// The export run and the folder walk: every ticked folder becomes a directory under the
// destination, filled with its documents and, where the tree never loaded its children, with
// its whole subfolder tree read from the repository. One bad folder or document never stops the
// walk: the failure is recorded by the error trail, written to the export log, and the walk goes
// on with the next statement.

#include "export/exporter.h"

#include "errors/hunterr.h"
#include "export/exportdisk.h"
#include "export/hashingreader.h"
#include "repository/statements.h"

#include <cmath>
#include <vector>

namespace {

const QString kForm = QStringLiteral("FrmSendtofolder.");
const QString kFold = QStringLiteral("Fold");
constexpr quint8 kFileLine = 0;
constexpr quint8 kFolderLine = 1;

QString wholeNumberText(double value)
{
    return QString::number(qint64(std::trunc(value)));
}

qint64 recordId(const repo::RecordSet &rs)
{
    const QVariant value = rs.value(QStringLiteral("rec_id"));
    bool ok = false;
    const qint64 id = value.toLongLong(&ok);
    if (ok)
        return id;
    return qint64(value.toDouble());
}

} // namespace

Exporter::Exporter(SessionState &signIn, TreeProcs &tree)
    : m_signIn(signIn)
    , m_tree(tree)
{
}

Exporter::~Exporter() = default;

ExportDisk &Exporter::disk()
{
    if (!m_disk || m_disk->isDryRun() != m_options.dryRun)
        m_disk = std::make_unique<ExportDisk>(m_signIn.DestinationPath, m_options.dryRun);
    return *m_disk;
}

ExportResult Exporter::run(const ExportOptions &options)
{
    // Without a destination every target would hang off the file system's root.
    if (m_signIn.DestinationPath.isEmpty())
        HuntERR::raise(HuntERR::ERR_PATH_NOT_FOUND, QStringLiteral("Path not found: no destination folder was chosen"));
    m_options = options;
    m_result = ExportResult{};
    m_walked.clear();
    m_nodeDirs.clear();
    m_keptDirs.clear();
    m_disk = std::make_unique<ExportDisk>(m_signIn.DestinationPath, options.dryRun); // from the disk as it is
    if (options.dryRun) {
        for (const QString &made : options.madeDirectories)
            m_disk->assumeMade(made);
    }

    LogWritten = false;
    ExportLogName.clear();
    ExportLogName = exportLogNameFor(QDateTime::currentDateTime());

    CopyCheckedFolders();

    if (LogWritten && !options.dryRun) {
        LogWritten = false;
        m_result.logPath = ExportLogPath;
        m_signIn.form().openLog(ExportLogFolder, ExportLogName.mid(1));
    }
    return m_result;
}

// --- Folder walk ---------------------------------------------------------------------------

QString Exporter::directoryFor(const QString &parent, const QString &cleaned, qint64 id, QString *status)
{
    const QChar sep = pathSeparator();
    const QString base = parent.endsWith(sep) ? parent : parent + sep;
    const QString tag = idTag(id);
    // A name that is no name (or means this directory or its parent) would put the folder on
    // top of another one: it keeps its id instead, as documents do.
    QString name = isNoName(cleaned) ? tag : cleaned;
    QString how = name == tag ? reportstatus::fallback : reportstatus::written;
    // Never replace what this run made: siblings that clean alike each keep their own directory.
    while (disk().madeThisRun(base + name) || disk().wroteThisRun(base + name)) {
        name += QLatin1Char(' ') + tag;
        how = reportstatus::renamed;
    }
    if (status)
        *status = how;
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
        kept.status = reportstatus::skipped;
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

    const int count = tree.count();
    for (ExportNodeIndex = 1; ExportNodeIndex <= count; ExportNodeIndex += 1) {
        FolderTree::Node *node = nullptr;
        if (!HuntERR::resume(source, [&] { node = tree.node(int(ExportNodeIndex)); }))
            continue;
        if (!node->checked)
            continue;
        const double id = folderIdOfKey(node->key);
        if (id == 1)
            continue; // the repository root is never a directory of its own

        // The nearest ticked ancestor's directory as this run made it: it may carry its id.
        QString parentDir = destination;
        const FolderTree::Node *up = node->parent;
        const bool underTicked = up && up->checked && folderIdOfKey(up->key) != 1;
        if (underTicked)
            parentDir = m_nodeDirs.value(up);
        QString tag = node->tag;
        const QString cleaned = RemoveSpChr(tag);
        QString target = parentDir + pathSeparator() + cleaned;
        auto logged = [&] { logFailure(source, qint64(id), node->tag, target, kFolderLine); };
        if (parentDir.isEmpty() || m_walked.contains(qint64(id))) {
            logged(); // its parent's directory could not be made, or the folder was already written
            continue;
        }
        m_walked.insert(qint64(id));
        ExportRecord folder = ExportRecord::of(ExportRecord::Kind::Folder, qint64(id), node->tag);
        target = directoryFor(parentDir, cleaned, qint64(id), &folder.status);
        if (!recreateDirectory(source, target, logged, folder))
            continue;
        m_nodeDirs.insert(node, target);
        if (!HuntERR::resume(source, [&] { MakeDir(target); }))
            logged();
    }
}

void Exporter::MakeDir(const QString &strPath)
{
    HuntERR::inner(kForm + QStringLiteral("MakeDir(strPath)"), [&] {
        FolderTree::Node *node = m_tree.tree().node(int(ExportNodeIndex));
        // Loaded children are nodes of their own and go with the walk only when ticked.
        if (node->children.size() < 1)
            CopySubFolders(node->key, strPath);
        node = m_tree.tree().node(int(ExportNodeIndex));
        CopyFolderFiles(std::trunc(folderIdOfKey(node->key)), strPath);
    });
}

void Exporter::CopySubFolders(const QString &key, const QString &parentPath)
{
    walkSubFolders(key, parentPath, true);
}

void Exporter::CopySubFoldersDeep(const QString &key, const QString &parentPath)
{
    walkSubFolders(key, parentPath, false);
}

QString Exporter::childFoldersQuery(const QString &id, bool firstLevel) const
{
    return m_signIn.blnArchive ? repo::statements::archiveSubFolders(id) : repo::statements::liveSubFolders(id, firstLevel);
}

// The subfolder tree below one folder, depth first in name order, with an explicit stack of the
// open listings: the depth of a repository's tree never meets the depth of the call stack.
void Exporter::walkSubFolders(const QString &key, const QString &topPath, bool firstLevel)
{
    struct Level {
        repo::RecordSet rs;
        QString path;
        QString source;
        QSet<qint64> listed;
    };
    std::vector<Level> stack;
    auto list = [&](const QString &id, const QString &path, bool first) {
        const QString source = first ? QStringLiteral("FrmSendtofolder.CopySubFolders(key,parentPath)")
                                     : QStringLiteral("FrmSendtofolder.CopySubFoldersDeep(key,parentPath)");
        repo::RecordSet rs;
        if (!HuntERR::resume(source, [&] { rs = m_signIn.cnDb().execute(childFoldersQuery(id, first)); })) {
            // Without the list the subfolders of this folder are lost: say which folder it was.
            logFailure(source, qint64(folderIdOfKey(id)), QString(), path, kFolderLine);
            return false;
        }
        stack.push_back({rs, path, source, {}});
        return true;
    };
    QString id = key;
    id.remove(kFold);
    list(id, topPath, firstLevel);
    while (!stack.empty()) {
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
        const QString childPath = nextSubFolder(level.rs, level.path, level.source, level.listed);
        if (childPath.isEmpty() || !list(QString::number(m_childId), childPath, false)) {
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
QString Exporter::nextSubFolder(const repo::RecordSet &rs, const QString &parentPath, const QString &source,
                                QSet<qint64> &listed)
{
    qint64 childId = 0;
    QString folderName;
    if (!HuntERR::resume(source, [&] {
            childId = recordId(rs);
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
                holdsArchived = m_signIn.cnDb()
                                    .execute(repo::statements::archivedBelowProbe(QString::number(childId), m_signIn.strSelectedDb))
                                    .recordCount()
                                >= 1;
            }))
            logged();
        if (!holdsArchived)
            return {};
    }
    // A folder listed twice by one listing (live and archived alike) is the same folder: it was
    // just written. Met again anywhere else it lies below itself: written once, walked once.
    if (listed.contains(childId))
        return {};
    listed.insert(childId);
    if (m_walked.contains(childId)) {
        logged();
        return {};
    }
    m_walked.insert(childId);

    QString cleaned = folderName;
    ExportRecord folder = ExportRecord::of(ExportRecord::Kind::Folder, childId, folderName);
    const QString childPath = directoryFor(parentPath, RemoveSpChr(cleaned), childId, &folder.status);
    if (!recreateDirectory(source, childPath, logged, folder))
        return {};
    if (!HuntERR::resume(source, [&] { CopyFolderFiles(double(childId), childPath); }))
        logged();
    m_childId = childId;
    return childPath;
}

// --- Documents -----------------------------------------------------------------------------

void Exporter::CopyFolderFiles(double folderId, const QString &path)
{
    const QString source = kForm + QStringLiteral("CopyFolderFiles(folderId,path)");
    const QChar sep = pathSeparator();
    const QString id = wholeNumberText(folderId);

    const QString sql = m_signIn.blnArchive ? repo::statements::archiveDocuments(id, m_signIn.strSelectedDb)
                                            : repo::statements::liveDocuments(id);

    repo::RecordSet rs;
    if (!HuntERR::resume(source, [&] { rs = m_signIn.cnDb().execute(sql); })) {
        // The folder's documents could not even be listed; the log is the only place the
        // person will learn that this directory is incomplete.
        const qsizetype cut = path.lastIndexOf(sep);
        logFailure(source, qint64(std::trunc(folderId)), cut < 0 ? path : path.mid(cut + 1), path, kFolderLine);
        return;
    }

    const int rows = rs.recordCount();
    for (int row = 0; row < rows && !rs.eof(); ++row) {
        qint64 recId = 0;
        QString description;
        if (HuntERR::resume(source, [&] {
                recId = recordId(rs);
                description = rs.text(QStringLiteral("File_Description"));
            })) {
            fxnSaveDocument(recId, path);
        } else {
            logFailure(source, recId, description, path, kFileLine);
            record(ExportRecord::of(ExportRecord::Kind::Document, recId, description, reportstatus::failed, m_lastFailure),
                   path);
        }
        m_signIn.form().setStatus(QStringLiteral(" Copying File: ") + path + sep + description);
        m_signIn.form().repaint();
        rs.moveNext();
    }
    if (m_options.update && m_options.dryRun && m_keptDirs.contains(path))
        listNotListed(path);
}

// Writes the document under a temporary name beside its file and dates it there, then puts it
// in place under its cleaned title, the title with its id when this run already wrote that name,
// or "[id].ext" when the file cannot be created under the title. Returns the file written, or ""
// when even that failed (logged).
QString Exporter::saveDocumentFile(const QString &source, qint64 recId, const QString &path, QString name,
                                   const QString &ext, repo::ValueReader &bytes, ExportRecord &rec)
{
    const QChar sep = pathSeparator();
    // Never overwrite what this run wrote: a second document that cleans to the same name keeps
    // its id beside its title.
    const QString tag = idTag(recId);
    rec.status = reportstatus::written;
    if (disk().wroteThisRun(path + sep + name + ext)) {
        name += QLatin1Char(' ') + tag;
        rec.status = reportstatus::renamed;
    }
    const QString fallback = path + sep + tag + ext;
    QString staged = path + sep + name + ext;
    if (!titleCanBeFileName(name, ext)) {
        staged = fallback;
        rec.status = reportstatus::fallback;
    }
    qint64 written = 0;
    const bool ok = HuntERR::resume(source, [&] {
        try {
            written = disk().stageFile(staged, bytes);
        } catch (const HuntERR::Error &e) {
            // A path the file system refuses before a byte is read: the fallback name below.
            if (e.number() != HuntERR::ERR_WRITE_FAILED || staged == fallback)
                throw;
            staged = fallback;
            rec.status = reportstatus::fallback;
            written = disk().stageFile(staged, bytes);
        }
    });
    if (!ok) {
        logFailure(source, recId, rec.name, path, kFileLine);
        rec.status = reportstatus::failed;
        rec.message = m_lastFailure;
        return {};
    }
    rec.bytes = written;
    // Dated before it takes its name: a file under a final name is always complete and dated.
    if (!HuntERR::resume(source, [&] { fxnSetFileDate(m_signIn.cnDb(), recId, staged); })) {
        logFailure(source, recId, rec.name, path, kFileLine);
        rec.message = m_lastFailure;
    }
    rec.date = m_lastFileDate;
    const QString filePath = commitDocument(source, staged, fallback, rec);
    if (filePath.isEmpty())
        return {};
    ++m_result.documents;
    m_result.bytes += written;
    if (m_options.observer)
        m_options.observer->documentWritten(filePath, written);
    return filePath;
}

QString Exporter::fxnSaveDocument(qint64 recId, const QString &path)
{
    const QString source = kForm + QStringLiteral("fxnSaveDocument(recId,path)");
    const QString idText = QString::number(recId);
    repo::Connection &cn = m_signIn.cnDb();

    const bool archive = m_signIn.blnArchive;
    const QString sql = archive ? repo::statements::archiveDocument(idText, m_signIn.strSelectedDb)
                                : repo::statements::liveDocument(idText);
    const QString dataField = archive ? QStringLiteral("FileData") : QStringLiteral("File_Data");

    QString description;
    QString name;
    QString ext;
    QByteArray bytes; // shares the record set's buffer: the document is held once
    const bool read = HuntERR::resume(source, [&] {
        repo::RecordSet rs = cn.execute(sql);
        if (rs.eof())
            HuntERR::raise(HuntERR::ERR_NO_CURRENT_RECORD,
                           QStringLiteral("Either BOF or EOF is True, or the current record has been deleted. "
                                          "Requested operation requires a current record."));
        description = rs.text(QStringLiteral("File_Description"));
        name = cleanDocumentTitle(description);
        if (rs.isNull(dataField))
            HuntERR::raise(HuntERR::ERR_GENERAL, QStringLiteral("Document %1 has no stored bytes").arg(recId));
        bytes = rs.value(dataField).toByteArray();
        ext = GetFileExtension(rs.text(QStringLiteral("File_name")));
        rs.close();
    });
    if (!read) {
        logFailure(source, recId, description, path, kFileLine);
        record(ExportRecord::of(ExportRecord::Kind::Document, recId, description, reportstatus::failed, m_lastFailure),
               path);
        return {};
    }

    repo::BytesReader reader(std::move(bytes));
    ExportRecord rec = ExportRecord::of(ExportRecord::Kind::Document, recId, description);
    if (m_options.update) {
        const QString unchanged = unchangedFile(recId, path, name, ext, reader, &rec.date);
        if (!unchanged.isEmpty()) {
            disk().keepFile(unchanged);
            ++m_result.kept;
            rec.bytes = reader.size();
            rec.status = reportstatus::skipped;
            if (m_options.observer)
                m_options.observer->documentKept(unchanged, rec.bytes);
            record(rec, unchanged);
            return unchanged;
        }
    }
    // The digest is taken only when a report wants it: it costs processor time the copy does not.
    HashingReader hashing(reader);
    repo::ValueReader &input = m_options.records ? static_cast<repo::ValueReader &>(hashing) : reader;
    const QString written = saveDocumentFile(source, recId, path, name, ext, input, rec);
    if (m_options.records && !written.isEmpty())
        rec.sha256 = hashing.sha256();
    record(rec, written.isEmpty() ? path : written);
    return written;
}
