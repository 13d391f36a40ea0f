// The export run and the folder walk: every ticked folder becomes a directory under the
// destination, filled with its documents and, where the tree never loaded its children, with
// its whole subfolder tree read from the repository. One bad folder or document never stops the
// walk: the failure is recorded by the error trail, written to the export log, and the walk goes
// on with the next statement.

#include "export/exporter.h"

#include "errors/hunterr.h"
#include "export/exportdisk.h"
#include "export/filetimes.h"

#include <cmath>

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

Exporter::Exporter(SignIn &signIn, TreeProcs &tree)
    : m_signIn(signIn)
    , m_tree(tree)
{
}

Exporter::~Exporter() = default;

ExportDisk &Exporter::disk()
{
    if (!m_disk || m_disk->isDryRun() != dryRun)
        m_disk = std::make_unique<ExportDisk>(dryRun);
    return *m_disk;
}

bool Exporter::run()
{
    // Without a destination every target would hang off the file system's root.
    if (m_signIn.DestinationPath.isEmpty())
        HuntERR::raise(HuntERR::ERR_PATH_NOT_FOUND, QStringLiteral("Path not found: no destination folder was chosen"));
    stats = Stats{};
    m_disk = std::make_unique<ExportDisk>(dryRun); // a dry run starts from the disk as it is
    if (dryRun) {
        for (const QString &made : std::as_const(dryRunMadeDirectories))
            m_disk->assumeMade(made);
    }

    LogWritten = false;
    ExportLogName.clear();
    ExportLogName = exportLogNameFor(QDateTime::currentDateTime());

    CopyCheckedFolders();

    if (dryRun)
        return stats.failures > 0;
    if (!LogWritten)
        return false;
    LogWritten = false;
    m_signIn.form().openLog(ExportLogFolder, ExportLogName.mid(1));
    return true;
}

// --- Folder walk ---------------------------------------------------------------------------

void Exporter::CopyCheckedFolders()
{
    const QString source = kForm + QStringLiteral("CopyCheckedFolders");
    const QChar sep = pathSeparator();
    const QString &destination = m_signIn.DestinationPath;
    FolderTree &tree = m_tree.tree();

    QString path;
    QString target;
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

        auto logged = [&] { logFailure(source, qint64(id), node->tag, target, kFolderLine); };

        const bool placed = HuntERR::resume(source, [&] {
            double index = ExportNodeIndex; // the path search moves its argument up the tree
            path = m_tree.FindParentPAth(index);
        });
        if (!placed)
            path.clear(); // directly under the destination rather than inside another folder's directory
        QString tag = node->tag;
        const QString name = RemoveSpChr(tag);
        target = destination.endsWith(sep) ? destination + path + name : destination + sep + path + name;
        if (!placed)
            logged();

        if (observer)
            observer->folderStarted(target);
        if (!HuntERR::resume(source, [&] {
                // Every run replaces what an earlier run wrote for the same folder.
                if (disk().isDirectory(target)) {
                    disk().removeDirectory(target);
                    if (observer)
                        observer->directoryRemoved(target);
                }
            }))
            logged();
        if (!HuntERR::resume(source, [&] {
                disk().makeDirectory(target);
                ++stats.folders;
                if (observer)
                    observer->directoryCreated(target);
            }))
            logged();
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
    copySubFolders(key, parentPath, QStringLiteral(" order by a.folder_name "),
                   "FrmSendtofolder.CopySubFolders(key,parentPath)");
}

void Exporter::CopySubFoldersDeep(const QString &key, const QString &parentPath)
{
    copySubFolders(key, parentPath, QStringLiteral(" order by a.folder_name"),
                   "FrmSendtofolder.CopySubFoldersDeep(key,parentPath)");
}

void Exporter::copySubFolders(const QString &key, const QString &parentPath, const QString &ordering,
                              const char *sourceName)
{
    const QString source = QString::fromLatin1(sourceName);
    const QChar sep = pathSeparator();
    repo::Connection &cn = m_signIn.cnDb();
    const bool archive = m_signIn.blnArchive;
    const QString &archiveDb = m_signIn.strSelectedDb;

    QString id = key;
    id.remove(kFold);

    QString sql;
    if (!archive) {
        sql = QStringLiteral("select a.rec_id, a.folder_name ") + QStringLiteral(" from zar_folder a, zar_folderLive b")
              + QStringLiteral(" where a.rec_id = b.rec_id and a.folder_parent = ") + id + ordering;
    } else {
        sql = QStringLiteral("select a.rec_id, a.folder_name, 'LIVE' as FOLDER ")
              + QStringLiteral(" from zar_folder a, ZAR_FolderLive b ")
              + QStringLiteral(" Where a.rec_id = b.rec_id And a.folder_parent = ") + id + QStringLiteral(" Union All ")
              + QStringLiteral(" select a.rec_id, a.folder_name, 'ARCHIVE' as FOLDER ")
              + QStringLiteral(" from zar_folder a, ZAR_FolderArchived b ")
              + QStringLiteral(" Where a.rec_id = b.rec_id And a.folder_parent = ") + id
              + QStringLiteral(" order by a.folder_name");
    }

    repo::RecordSet rs;
    if (!HuntERR::resume(source, [&] { rs = cn.execute(sql); })) {
        // Without the list the subfolders of this folder are lost: say which folder it was.
        logFailure(source, qint64(folderIdOfKey(key)), QString(), parentPath, kFolderLine);
        return;
    }

    while (!rs.eof()) {
        qint64 childId = 0;
        QString folderName;
        if (!HuntERR::resume(source, [&] {
                childId = recordId(rs);
                folderName = rs.text(QStringLiteral("folder_name"));
            })) {
            logFailure(source, childId, folderName, parentPath, kFolderLine);
            rs.moveNext();
            continue;
        }
        const QString storedLocation = parentPath + sep + folderName;
        auto logged = [&] { logFailure(source, childId, folderName, storedLocation, kFolderLine); };

        if (archive) {
            bool holdsArchived = false;
            if (!HuntERR::resume(source, [&] {
                    holdsArchived = cn.execute(archivedBelowProbe(QString::number(childId), archiveDb)).recordCount() >= 1;
                }))
                logged();
            if (!holdsArchived) {
                rs.moveNext();
                continue;
            }
        }

        QString cleaned = folderName;
        const QString childPath = parentPath + sep + RemoveSpChr(cleaned);
        if (observer)
            observer->folderStarted(childPath);
        if (!HuntERR::resume(source, [&] {
                if (disk().isDirectory(childPath)) {
                    disk().removeDirectory(childPath);
                    if (observer)
                        observer->directoryRemoved(childPath);
                }
            }))
            logged();
        if (!HuntERR::resume(source, [&] {
                disk().makeDirectory(childPath);
                ++stats.folders;
                if (observer)
                    observer->directoryCreated(childPath);
            }))
            logged();
        if (!HuntERR::resume(source, [&] { CopyFolderFiles(double(childId), childPath); }))
            logged();
        if (!HuntERR::resume(source, [&] { CopySubFoldersDeep(QString::number(childId), childPath); }))
            logged();

        m_signIn.form().setStatus(QStringLiteral(" Creating Folder: ") + childPath);
        m_signIn.form().repaint();
        rs.moveNext();
    }
    if (rs.isOpen())
        rs.close();
}

// --- Documents -----------------------------------------------------------------------------

void Exporter::CopyFolderFiles(double folderId, const QString &path)
{
    const QString source = kForm + QStringLiteral("CopyFolderFiles(folderId,path)");
    const QChar sep = pathSeparator();
    const QString id = wholeNumberText(folderId);

    QString sql;
    if (!m_signIn.blnArchive) {
        sql = QStringLiteral("select a.rec_id, a.File_Name, a.File_Description ")
              + QStringLiteral(" from zar_file a, zar_fileLive b ")
              + QStringLiteral(" where a.rec_id = b.rec_id and a.folder_rec_id = ") + id
              + QStringLiteral(" order by a.File_Description");
    } else {
        sql = QStringLiteral("select ") + QStringLiteral(" a.rec_id, ") + QStringLiteral(" a.File_Name, ")
              + QStringLiteral(" a.File_Description ") + QStringLiteral(" from ") + QStringLiteral(" zar_file a, ")
              + QStringLiteral(" ZAR_FileArchived b, ") + m_signIn.strSelectedDb
              + QStringLiteral("..zar_FileArchive c ") + QStringLiteral(" where ")
              + QStringLiteral(" a.rec_id = b.rec_id and ") + QStringLiteral(" b.rec_id = c.fileid and ")
              + QStringLiteral(" a.folder_rec_id = ") + id + QStringLiteral(" order by a.File_Description");
    }

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
        }
        m_signIn.form().setStatus(QStringLiteral(" Copying File: ") + path + sep + description);
        m_signIn.form().repaint();
        rs.moveNext();
    }
}

QString Exporter::fxnSaveDocument(qint64 recId, const QString &path)
{
    const QString source = kForm + QStringLiteral("fxnSaveDocument(recId,path)");
    const QChar sep = pathSeparator();
    const QString idText = QString::number(recId);
    repo::Connection &cn = m_signIn.cnDb();

    QString sql;
    QString dataField;
    if (!m_signIn.blnArchive) {
        sql = QStringLiteral("Select a.File_name, a.File_Description, a.file_data ")
              + QStringLiteral(" FROM ZAR_File a, zar_FileLive b ")
              + QStringLiteral(" WHERE (a.rec_id = b.rec_id and a.Rec_ID =") + idText + QStringLiteral(")");
        dataField = QStringLiteral("File_Data");
    } else {
        sql = QStringLiteral("Select a.File_name, a.File_Description, b.FileData ")
              + QStringLiteral(" FROM ZAR_File a, ") + m_signIn.strSelectedDb
              + QStringLiteral("..zar_FileArchive b ")
              + QStringLiteral(" WHERE (a.rec_id = b.FileID and a.Rec_ID =") + idText + QStringLiteral(")");
        dataField = QStringLiteral("FileData");
    }

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
        return {};
    }

    auto save = [&](const QString &fileName) {
        const QString filePath = path + sep + fileName;
        disk().writeFile(filePath, bytes);
        ++stats.documents;
        stats.bytes += bytes.size();
        if (observer)
            observer->documentWritten(filePath, bytes.size());
        return filePath;
    };

    QString written;
    QString filePath = path + sep + name + ext;
    if (titleCanBeFileName(name, ext)) {
        if (!HuntERR::resume(source, [&] { written = save(name + ext); }))
            logFailure(source, recId, description, path, kFileLine);
    } else {
        // The title cannot be a file name here: the document keeps its id instead. That is a
        // naming decision, not a failure, so nothing goes to the log.
        const QString fallback = QStringLiteral("[") + idText + QStringLiteral("]");
        filePath = path + sep + fallback + ext;
        if (!HuntERR::resume(source, [&] {
                if (!titleCanBeFileName(fallback, ext))
                    HuntERR::raise(HuntERR::ERR_WRITE_FAILED,
                                   QStringLiteral("Write to file failed: %1 cannot be a file name").arg(filePath));
                written = save(fallback + ext);
            }))
            logFailure(source, recId, description, path, kFileLine);
    }

    bytes.clear();
    if (!HuntERR::resume(source, [&] { fxnSetFileDate(cn, recId, filePath); }))
        logFailure(source, recId, description, path, kFileLine);
    return written;
}

// --- File dates ----------------------------------------------------------------------------

QDateTime fileDateFromRepositoryText(const QString &text)
{
    auto field = [&](qsizetype position, qsizetype length) {
        const QString digits = text.mid(position, length);
        bool ok = digits.size() == length;
        for (QChar c : digits)
            ok = ok && c.isDigit();
        if (!ok)
            HuntERR::raise(13, QStringLiteral("Type mismatch: \"%1\" is not a document date").arg(text));
        return digits.toInt();
    };
    const QDate date(field(0, 4), field(4, 2), field(6, 2));
    const QTime time(field(9, 2), field(11, 2), field(13, 2));
    if (!date.isValid() || !time.isValid())
        HuntERR::raise(5, QStringLiteral("Invalid procedure call or argument: \"%1\" is not a document date").arg(text));
    // Today's offset, not the one in force on the document's date: documents dated across a
    // daylight-saving change land one hour away from their true instant, as they always have.
    const int offset = QDateTime::currentDateTime().offsetFromUtc();
    return QDateTime(date, time, Qt::UTC).addSecs(-offset);
}

bool Exporter::fxnSetFileDate(repo::Connection &paramConnection, qint64 paramRec_Id, const QString &paramFilePath)
{
    const QString source = QStringLiteral("MCmnUtility.fxnSetFileDate(paramConnection,paramRec_Id,paramFilePath)");
    return HuntERR::inner(source, [&]() -> bool {
        const QString sql =
            QStringLiteral("select convert(varchar(8),FileActualDate,112)+ ' '+RIGHT('0'+CAST(DATEPART(hh,FileActualDate)as "
                           "VARCHAR),2)+ RIGHT('0'+CAST(DATEPART(mi,FileActualDate)as VARCHAR),2)+ "
                           "RIGHT('0'+CAST(DATEPART(ss,FileActualDate)as VARCHAR),2)+ '.'+ "
                           "RIGHT('0'+CAST(DATEPART(ms,FileActualDate)as VARCHAR),3) as FileActualDate, ")
            + QStringLiteral(" convert(varchar(8),File_DateUploaded,112)+ ' '+RIGHT('0'+CAST(DATEPART(hh,File_DateUploaded)as "
                             "VARCHAR),2)+ RIGHT('0'+CAST(DATEPART(mi,File_DateUploaded)as VARCHAR),2)+ "
                             "RIGHT('0'+CAST(DATEPART(ss,File_DateUploaded)as VARCHAR),2)+ '.'+ "
                             "RIGHT('0'+CAST(DATEPART(ms,File_DateUploaded)as VARCHAR),3) as File_DateUploaded ")
            + QStringLiteral(" from zar_file  where rec_id = ") + QString::number(paramRec_Id);

        repo::RecordSet rs = paramConnection.execute(sql);
        bool result = false;
        if (rs.recordCount() >= 1 && !rs.eof()) {
            QString text;
            bool dated = true;
            if (!rs.isNull(QStringLiteral("FileActualDate")))
                text = rs.text(QStringLiteral("FileActualDate"));
            else if (!rs.isNull(QStringLiteral("File_DateUploaded")))
                text = rs.text(QStringLiteral("File_DateUploaded"));
            else
                dated = false; // the file keeps the times the file system gave it
            if (dated) {
                const QDateTime when = fileDateFromRepositoryText(text);
                // A file that cannot be opened keeps its times; that is not reported.
                if (!dryRun)
                    setDocumentFileTime(paramFilePath, when);
                result = true;
            }
        }
        rs.close();
        return result;
    });
}
