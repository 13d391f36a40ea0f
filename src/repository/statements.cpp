#include "repository/statements.h"

namespace repo::statements {

namespace {

// One date column as "yyyyMMdd hhmmss.mmm": style 112 for the date, the time's parts zero-padded;
// named column, read from source (the column itself, or it qualified by its table's alias).
QString dateText(const QString &column, const QString &source)
{
    return QStringLiteral("convert(varchar(8),") + source + QStringLiteral(",112)+ ' '+RIGHT('0'+CAST(DATEPART(hh,")
        + source + QStringLiteral(")as VARCHAR),2)+ RIGHT('0'+CAST(DATEPART(mi,") + source
        + QStringLiteral(")as VARCHAR),2)+ RIGHT('0'+CAST(DATEPART(ss,") + source
        + QStringLiteral(")as VARCHAR),2)+ '.'+ RIGHT('0'+CAST(DATEPART(ms,") + source
        + QStringLiteral(")as VARCHAR),3) as ") + column;
}

QString dateText(const QString &column)
{
    return dateText(column, column);
}

// A folder's documents with the length of their bytes and their dates; bytes and joins as named.
QString documentSizes(const QString &bytes, const QString &tables, const QString &joins, const QString &folderId)
{
    // The same for every folder, and long: built once (statements are built for every folder).
    static const QString dates = dateText(QStringLiteral("FileActualDate"), QStringLiteral("a.FileActualDate"))
        + QStringLiteral(", ") + dateText(QStringLiteral("File_DateUploaded"), QStringLiteral("a.File_DateUploaded"));
    return QStringLiteral("select a.rec_id, DATALENGTH(") + bytes + QStringLiteral(") as File_Size, ") + dates
        + QStringLiteral(" from ") + tables + QStringLiteral(" where ") + joins
        + QStringLiteral(" and a.folder_rec_id = ") + folderId;
}

// One half of the live-and-archived children: the folders of one kind one level below parentId.
QString childrenOfKind(const QString &parentId, const QString &kindLiteral, const QString &kindTable)
{
    return QStringLiteral(" select a.rec_id, a.icon_rec_id, a.Folder_Parent, a.Folder_Name, ")
        + QStringLiteral(" a.Folder_Type, c.TS as TS , b.relative_level_no relative_level_no, ") + kindLiteral
        + QStringLiteral(" From zar_folder a , zar_folder_matrix b, zar_folder_name_path c, ")
        + QStringLiteral(" ") + kindTable + QStringLiteral(" d Where ")
        + QStringLiteral(" a.rec_id = c.rec_id and a.Rec_id = b.child_rec_id And ")
        + QStringLiteral(" a.Rec_ID = d.Rec_ID and ")
        + QStringLiteral(" b.parent_rec_id = (") + parentId + QStringLiteral(") And b.relative_level_no = 1 ");
}

} // namespace

QString companyDatabases()
{
    return QStringLiteral("select Com_db, com_type from com_company order by Com_db");
}

QString databaseExists(const QString &name)
{
    return QStringLiteral("select name from sysdatabases  where name = '") + name + QStringLiteral("'");
}

QString liveDatabaseOf(const QString &archiveDb)
{
    return QStringLiteral("select com_db from zar_master..Com_Company where com_id = (select live_com_id from "
                          "zar_master..com_company where com_db ='")
        + archiveDb + QStringLiteral("')");
}

QString firstLevel(const QString &startFolderId)
{
    return QStringLiteral("SELECT ") + QStringLiteral(" a.Rec_ID, ") + QStringLiteral(" a.Folder_Parent, ")
        + QStringLiteral(" a.Folder_Name, ") + QStringLiteral(" a.IsAdmin , ") + QStringLiteral(" a.Icon_rec_id , ")
        + QStringLiteral(" a.Folder_Type ") + QStringLiteral(" FROM ZAR_Folder a, zar_FolderLive b")
        + QStringLiteral(" where a.rec_id = b.rec_id and (a.Folder_Parent=") + startFolderId + QStringLiteral(")")
        + QStringLiteral(" ORDER BY a.Folder_Parent, a.Folder_Name");
}

QString liveChildren(const QString &parentId)
{
    return QStringLiteral("SELECT a.rec_id, a.icon_rec_id, a.Folder_Type, a.Folder_Name ")
        + QStringLiteral(" FROM ZAR_FOLDER a, zar_folderLive b")
        + QStringLiteral(" WHERE a.rec_id = b.rec_id and  a.FOLDER_PARENT=") + parentId
        + QStringLiteral(" order by a.Folder_Parent, a.Folder_Name, a.rec_id");
}

QString liveAndArchivedChildren(const QString &parentId)
{
    // The first half starts without the blank the second half's fragment carries.
    return childrenOfKind(parentId, QStringLiteral("'LIVE' as FOLDER "), QStringLiteral("ZAR_FolderLive")).mid(1)
        + QStringLiteral(" Union All ")
        + childrenOfKind(parentId, QStringLiteral("'ARCHIVE' AS FOLDER "), QStringLiteral("ZAR_FolderArchived"))
        + QStringLiteral(" order by a.Folder_Parent, a.Folder_Name, a.rec_id");
}

QString archivedBelowProbe(const QString &folderId, const QString &archiveDb)
{
    return QStringLiteral("select parent_rec_id from zar_folder_matrix ") + QStringLiteral(" Where parent_rec_id = ")
        + folderId + QStringLiteral(" and ")
        + QStringLiteral(" child_rec_id in (select folder_rec_id from zar_file a, zar_fileArchived b,  ") + archiveDb
        + QStringLiteral("..zar_FileArchive c") + QStringLiteral(" where a.rec_id = b.rec_id and b.rec_id = c.fileid ) ")
        + QStringLiteral(" Union All ") + QStringLiteral(" select folder_rec_id from zar_file a, zar_fileArchived b, ")
        + archiveDb + QStringLiteral("..zar_FileArchive c ")
        + QStringLiteral(" where a.rec_id = b.rec_id and b.rec_id = c.fileid and folder_rec_id = ") + folderId;
}

QString liveSubFolders(const QString &folderId, bool firstLevel)
{
    return QStringLiteral("select a.rec_id, a.folder_name ") + QStringLiteral(" from zar_folder a, zar_folderLive b")
        + QStringLiteral(" where a.rec_id = b.rec_id and a.folder_parent = ") + folderId
        + (firstLevel ? QStringLiteral(" order by a.folder_name ") : QStringLiteral(" order by a.folder_name"));
}

QString archiveSubFolders(const QString &folderId)
{
    return QStringLiteral("select a.rec_id, a.folder_name, 'LIVE' as FOLDER ")
        + QStringLiteral(" from zar_folder a, ZAR_FolderLive b ")
        + QStringLiteral(" Where a.rec_id = b.rec_id And a.folder_parent = ") + folderId + QStringLiteral(" Union All ")
        + QStringLiteral(" select a.rec_id, a.folder_name, 'ARCHIVE' as FOLDER ")
        + QStringLiteral(" from zar_folder a, ZAR_FolderArchived b ")
        + QStringLiteral(" Where a.rec_id = b.rec_id And a.folder_parent = ") + folderId
        + QStringLiteral(" order by a.folder_name");
}

QString liveDocuments(const QString &folderId)
{
    return QStringLiteral("select a.rec_id, a.File_Name, a.File_Description ")
        + QStringLiteral(" from zar_file a, zar_fileLive b ")
        + QStringLiteral(" where a.rec_id = b.rec_id and a.folder_rec_id = ") + folderId
        + QStringLiteral(" order by a.File_Description");
}

QString archiveDocuments(const QString &folderId, const QString &archiveDb)
{
    return QStringLiteral("select ") + QStringLiteral(" a.rec_id, ") + QStringLiteral(" a.File_Name, ")
        + QStringLiteral(" a.File_Description ") + QStringLiteral(" from ") + QStringLiteral(" zar_file a, ")
        + QStringLiteral(" ZAR_FileArchived b, ") + archiveDb + QStringLiteral("..zar_FileArchive c ")
        + QStringLiteral(" where ") + QStringLiteral(" a.rec_id = b.rec_id and ")
        + QStringLiteral(" b.rec_id = c.fileid and ") + QStringLiteral(" a.folder_rec_id = ") + folderId
        + QStringLiteral(" order by a.File_Description");
}

QString liveDocument(const QString &recId)
{
    return QStringLiteral("Select a.File_name, a.File_Description, a.file_data ")
        + QStringLiteral(" FROM ZAR_File a, zar_FileLive b ")
        + QStringLiteral(" WHERE (a.rec_id = b.rec_id and a.Rec_ID =") + recId + QStringLiteral(")");
}

QString archiveDocument(const QString &recId, const QString &archiveDb)
{
    return QStringLiteral("Select a.File_name, a.File_Description, b.FileData ") + QStringLiteral(" FROM ZAR_File a, ")
        + archiveDb + QStringLiteral("..zar_FileArchive b ")
        + QStringLiteral(" WHERE (a.rec_id = b.FileID and a.Rec_ID =") + recId + QStringLiteral(")");
}

QString documentDates(const QString &recId)
{
    static const QString head = QStringLiteral("select ") + dateText(QStringLiteral("FileActualDate"))
        + QStringLiteral(", ") + QStringLiteral(" ") + dateText(QStringLiteral("File_DateUploaded"))
        + QStringLiteral(" ") + QStringLiteral(" from zar_file  where rec_id = ");
    return head + recId;
}

QString liveDocumentSizes(const QString &folderId)
{
    static const QString head = documentSizes(QStringLiteral("a.file_data"), QStringLiteral("zar_file a, zar_fileLive b"),
                                              QStringLiteral("a.rec_id = b.rec_id"), QString());
    return head + folderId;
}

// The documents archiveDocuments lists, with the bytes archiveDocument reads.
QString archiveDocumentSizes(const QString &folderId, const QString &archiveDb)
{
    return documentSizes(QStringLiteral("c.FileData"),
                         QStringLiteral("zar_file a, ZAR_FileArchived b, ") + archiveDb + QStringLiteral("..zar_FileArchive c"),
                         QStringLiteral("a.rec_id = b.rec_id and b.rec_id = c.fileid"), folderId);
}

} // namespace repo::statements
