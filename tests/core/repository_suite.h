#pragma once
// Every statement form the tool sends, in the exact text the procedures concatenate, and a run of
// them against the demo server, which the repository test makes through each SQLite driver so
// both are held to the same results.

#include "errors/hunterr.h"
#include "testsupport.h"
#include "repository/connection.h"
#include "session/signin.h"

namespace suite {

// --- The statements (doubled blanks are part of them) ------------------------------------

inline QString catalogueList() { return QStringLiteral("select Com_db, com_type from com_company order by Com_db"); }
inline QString databaseExists(const QString &name) { return "select name from sysdatabases  where name = '" + name + "'"; }

inline QString liveDatabase(const QString &archive)
{
    return "select com_db from zar_master..Com_Company where com_id = (select live_com_id from "
           "zar_master..com_company where com_db ='"
        + archive + "')";
}

inline QString firstLevel(qint64 parent)
{
    return QStringLiteral("SELECT  a.Rec_ID,  a.Folder_Parent,  a.Folder_Name,  a.IsAdmin ,  a.Icon_rec_id ,  "
                          "a.Folder_Type  FROM ZAR_Folder a, zar_FolderLive b where a.rec_id = b.rec_id and "
                          "(a.Folder_Parent=%1) ORDER BY a.Folder_Parent, a.Folder_Name")
        .arg(parent);
}

inline QString liveChildren(qint64 parent)
{
    return QStringLiteral("SELECT a.rec_id, a.icon_rec_id, a.Folder_Type, a.Folder_Name  FROM ZAR_FOLDER a, "
                          "zar_folderLive b WHERE a.rec_id = b.rec_id and  a.FOLDER_PARENT=%1 order by "
                          "a.Folder_Parent, a.Folder_Name, a.rec_id")
        .arg(parent);
}

inline QString archiveChildren(qint64 parent)
{
    const auto half = [&](const char *origin, const char *list) {
        return QStringLiteral("select a.rec_id, a.icon_rec_id, a.Folder_Parent, a.Folder_Name,  a.Folder_Type, c.TS "
                              "as TS , b.relative_level_no relative_level_no, %1 FOLDER  From zar_folder a , "
                              "zar_folder_matrix b, zar_folder_name_path c,  %2 d Where  a.rec_id = c.rec_id and "
                              "a.Rec_id = b.child_rec_id And  a.Rec_ID = d.Rec_ID and  b.parent_rec_id = (%3) And "
                              "b.relative_level_no = 1 ")
            .arg(QLatin1String(origin), QLatin1String(list), QString::number(parent));
    };
    return half("'LIVE' as", "ZAR_FolderLive") + " Union All  " + half("'ARCHIVE' AS", "ZAR_FolderArchived")
        + " order by a.Folder_Parent, a.Folder_Name, a.rec_id";
}

// The archive probe of child loading and of the folder walk (the same text in both).
inline QString archivedBelow(qint64 id, const QString &archiveDb)
{
    return QStringLiteral("select parent_rec_id from zar_folder_matrix  Where parent_rec_id = %1 and  child_rec_id "
                          "in (select folder_rec_id from zar_file a, zar_fileArchived b,  %2..zar_FileArchive c "
                          "where a.rec_id = b.rec_id and b.rec_id = c.fileid )  Union All  select folder_rec_id from "
                          "zar_file a, zar_fileArchived b, %2..zar_FileArchive c  where a.rec_id = b.rec_id and "
                          "b.rec_id = c.fileid and folder_rec_id = %1")
        .arg(QString::number(id), archiveDb);
}

// The walk's live sub-folder query; the top level ends in a blank, the deeper levels do not.
inline QString subFoldersLive(qint64 parent, bool deep)
{
    return QStringLiteral("select a.rec_id, a.folder_name  from zar_folder a, zar_folderLive b where a.rec_id = "
                          "b.rec_id and a.folder_parent = %1 order by a.folder_name")
               .arg(parent)
        + (deep ? "" : " ");
}

inline QString subFoldersArchive(qint64 parent)
{
    const auto half = [&](const char *origin, const char *list) {
        return QStringLiteral("select a.rec_id, a.folder_name, '%1' as FOLDER  from zar_folder a, %2 b  Where "
                              "a.rec_id = b.rec_id And a.folder_parent = %3")
            .arg(QLatin1String(origin), QLatin1String(list), QString::number(parent));
    };
    return half("LIVE", "ZAR_FolderLive") + " Union All  " + half("ARCHIVE", "ZAR_FolderArchived")
        + " order by a.folder_name";
}

inline QString folderFilesLive(qint64 folder)
{
    return QStringLiteral("select a.rec_id, a.File_Name, a.File_Description  from zar_file a, zar_fileLive b  "
                          "where a.rec_id = b.rec_id and a.folder_rec_id = %1 order by a.File_Description")
        .arg(folder);
}

inline QString folderFilesArchive(qint64 folder, const QString &archiveDb)
{
    return QStringLiteral("select  a.rec_id,  a.File_Name,  a.File_Description  from  zar_file a,  ZAR_FileArchived "
                          "b, %2..zar_FileArchive c  where  a.rec_id = b.rec_id and  b.rec_id = c.fileid and  "
                          "a.folder_rec_id = %1 order by a.File_Description")
        .arg(QString::number(folder), archiveDb);
}

inline QString documentLive(qint64 id)
{
    return QStringLiteral("Select a.File_name, a.File_Description, a.file_data  FROM ZAR_File a, zar_FileLive b  "
                          "WHERE (a.rec_id = b.rec_id and a.Rec_ID =%1)")
        .arg(id);
}

inline QString documentArchive(qint64 id, const QString &archiveDb)
{
    return QStringLiteral("Select a.File_name, a.File_Description, b.FileData  FROM ZAR_File a, %2..zar_FileArchive b "
                          " WHERE (a.rec_id = b.FileID and a.Rec_ID =%1)")
        .arg(QString::number(id), archiveDb);
}

inline QString fileDates(qint64 id)
{
    const auto date = [](const char *column) {
        return QStringLiteral("convert(varchar(8),%1,112)+ ' '+RIGHT('0'+CAST(DATEPART(hh,%1)as VARCHAR),2)+ "
                              "RIGHT('0'+CAST(DATEPART(mi,%1)as VARCHAR),2)+ RIGHT('0'+CAST(DATEPART(ss,%1)as "
                              "VARCHAR),2)+ '.'+ RIGHT('0'+CAST(DATEPART(ms,%1)as VARCHAR),3) as %1")
            .arg(QLatin1String(column));
    };
    return "select " + date("FileActualDate") + ",  " + date("File_DateUploaded")
        + "  from zar_file  where rec_id = " + QString::number(id);
}

// --- Helpers -------------------------------------------------------------------------------

inline QString connectionText(const QString &server, const QString &catalogue, const QString &user = "demo",
                              const QString &password = QString())
{
    return "Provider=SQLOLEDB.1;Persist Security Info=true;User ID=" + user + ";Initial Catalog=" + catalogue
        + ";Data Source=" + server + ";Password=" + password;
}

// The text of one field over all rows ("<null>" for nulls).
inline QStringList column(repo::RecordSet rs, const QString &field)
{
    QStringList out;
    for (rs.moveFirst(); !rs.eof(); rs.moveNext())
        out << (rs.isNull(field) ? QStringLiteral("<null>") : rs.text(field));
    return out;
}

// The number a failing call raised (0 when it did not fail).
template <class F>
qint32 failure(F &&body, QString *description = nullptr)
{
    try {
        body();
    } catch (const HuntERR::Error &e) {
        if (description)
            *description = e.description();
        return e.number();
    }
    return 0;
}

inline QStringList ids(const QString &spaceSeparated) { return spaceSeparated.split(u' ', Qt::SkipEmptyParts); }

// Runs the statement forms against the demo server at `server` (user demo, empty password) for
// what only SQL Server's own rules decide: names without regard to case, three-part names, the
// pairing that finds no row, a folder in both lists, the date text with its milliseconds. (Which
// folders and documents come back is checked where they are used: the tree and export tests.)
// A failed check returns from it with the calling test marked failed.
inline void runStatementSuite(const QString &server)
{
    // Sign-in: the catalogue, the server's database list and the archive pairing.
    repo::Connection master;
    master.open(masterConnectionString("demo", server, QString()));
    QVERIFY(master.isEmbedded());
    QCOMPARE(column(master.execute(catalogueList()), "Com_Type"), QStringList({"L", "A", "l", "L", "L", "L", "A", "a"}));
    // A three-part name may also name the connection's own database.
    QCOMPARE(column(master.execute(liveDatabase("AcmeArchive")), "com_db"), QStringList({"Acme"}));

    repo::Connection mssql;
    mssql.open(serverMasterConnectionString("demo", server, QString()));
    // Names are compared as the server compares them: without regard to case.
    QCOMPARE(column(mssql.execute(databaseExists("acmearchive")), "NAME"), QStringList({"AcmeArchive"}));
    QCOMPARE(mssql.execute(databaseExists("Initech")).recordCount(), 0); // listed, but no file
    QCOMPARE(column(mssql.execute(liveDatabase("AcmeArchive")), "com_db"), QStringList({"Acme"}));
    QCOMPARE(mssql.execute(liveDatabase("VandelayArchive")).recordCount(), 0); // pairs with no row

    repo::Connection acme;
    acme.open(connectionText(server, "Acme"));
    const repo::RecordSet root = acme.execute(firstLevel(0));
    QCOMPARE(QStringList({root.text("Rec_ID"), root.text("FOLDER_NAME"), root.text("Folder_Type"),
                          root.text("folder_parent"), root.text("Icon_rec_id"), root.text("IsAdmin")}),
             QStringList({"1", "Acme Corporation", "ROOT", "0", "1", "0"}));
    const repo::RecordSet archive = acme.execute(archiveChildren(1));
    QCOMPARE(column(archive, "FOLDER").at(column(archive, "rec_id").indexOf("20")), QStringLiteral("ARCHIVE"));
    QVERIFY(archive.fieldNames().contains(QStringLiteral("TS"), Qt::CaseInsensitive));
    // In Twofold a folder stands in both lists: it comes back twice.
    repo::Connection twofold;
    twofold.open(connectionText(server, "Twofold"));
    const repo::RecordSet both = twofold.execute(archiveChildren(1));
    QCOMPARE(column(both, "rec_id"), ids("2 3 3"));
    QStringList origins3 = column(both, "Folder").mid(1); // equal sort keys: either order
    origins3.sort();
    QCOMPARE(origins3, QStringList({"ARCHIVE", "LIVE"}));
    QVERIFY(acme.execute(archivedBelow(28, "acmearchive")).recordCount() >= 1); // any letter case
    QCOMPARE(column(acme.execute(subFoldersArchive(20)), "FOLDER"), QStringList(4, QStringLiteral("ARCHIVE")));
    const repo::RecordSet archived = acme.execute(documentArchive(1101, "AcmeArchive"));
    QCOMPARE(archived.text("File_name"), QStringLiteral("ledger-2009.csv"));
    QVERIFY(archived.value("FileData").toByteArray().contains("Document 1101"));

    // File dates: exactly the text SQL Server gives, milliseconds and null dates included.
    const auto dates = [&](qint64 id) {
        const repo::RecordSet rs = acme.execute(fileDates(id));
        return column(rs, "FileActualDate") + column(rs, "file_dateuploaded");
    };
    QCOMPARE(dates(1007).at(0), QStringLiteral("20160305 140709.250"));
    QCOMPARE(dates(1008), QStringList({"<null>", "20151231 235959.00"}));
    QCOMPARE(dates(1009), QStringList({"<null>", "<null>"}));
    QCOMPARE(dates(1010).at(0), QStringLiteral("20140701 083000.07")); // stored .005: datetime holds .007

    // An archive database has no folder tables (tree building calls that an invalid database).
    repo::Connection archiveDb;
    archiveDb.open(connectionText(server, "AcmeArchive"));
    QCOMPARE(failure([&] { archiveDb.execute(firstLevel(0)); }), repo::ERR_NO_OBJECT);
}

} // namespace suite
