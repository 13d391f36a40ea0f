#pragma once
// Every statement form the tool sends, built the way the procedures build them, run against the
// demo server and checked row by row. Shared by the QSQLITE and the SQLite ODBC test programs so
// both drivers are held to the same results.

#include "errors/hunterr.h"
#include "repository/connection.h"
#include "repository/signin.h"

#include <QtTest>

namespace suite {

// --- The statements, concatenated exactly as the procedures concatenate them -----------------

inline QString catalogueList()
{
    return QStringLiteral("select Com_db, com_type from com_company order by Com_db");
}

inline QString databaseExists(const QString &paramDbName)
{
    return "select name from sysdatabases  where name = '" + paramDbName + "'";
}

inline QString liveDatabase(const QString &paramArchiveDbNm)
{
    return "select com_db from zar_master..Com_Company where com_id = (select live_com_id from "
           "zar_master..com_company where com_db ='"
        + paramArchiveDbNm + "')";
}

inline QString firstLevel(double lngStartFolderID)
{
    return QString("SELECT ") + " a.Rec_ID, " + " a.Folder_Parent, " + " a.Folder_Name, " + " a.IsAdmin , "
        + " a.Icon_rec_id , " + " a.Folder_Type " + " FROM ZAR_Folder a, zar_FolderLive b"
        + " where a.rec_id = b.rec_id and (a.Folder_Parent=" + QString::number(lngStartFolderID) + ")"
        + " ORDER BY a.Folder_Parent, a.Folder_Name";
}

inline QString liveChildren(const QString &parentnode)
{
    const QString id = QString(parentnode).remove(QStringLiteral("Fold"));
    return QString("SELECT a.rec_id, a.icon_rec_id, a.Folder_Type, a.Folder_Name ")
        + " FROM ZAR_FOLDER a, zar_folderLive b" + " WHERE a.rec_id = b.rec_id and  a.FOLDER_PARENT=" + id
        + " order by a.Folder_Parent, a.Folder_Name, a.rec_id";
}

inline QString archiveChildren(const QString &parentnode)
{
    const QString id = QString::number(QString(parentnode).remove(QStringLiteral("Fold")).toLongLong());
    return QString("select a.rec_id, a.icon_rec_id, a.Folder_Parent, a.Folder_Name, ")
        + " a.Folder_Type, c.TS as TS , b.relative_level_no relative_level_no, 'LIVE' as FOLDER "
        + " From zar_folder a , zar_folder_matrix b, zar_folder_name_path c, " + " ZAR_FolderLive d Where "
        + " a.rec_id = c.rec_id and a.Rec_id = b.child_rec_id And " + " a.Rec_ID = d.Rec_ID and "
        + " b.parent_rec_id = (" + id + ") And b.relative_level_no = 1 " + " Union All "
        + " select a.rec_id, a.icon_rec_id, a.Folder_Parent, a.Folder_Name, "
        + " a.Folder_Type, c.TS as TS , b.relative_level_no relative_level_no, 'ARCHIVE' AS FOLDER "
        + " From zar_folder a , zar_folder_matrix b, zar_folder_name_path c, " + " ZAR_FolderArchived d Where "
        + " a.rec_id = c.rec_id and a.Rec_id = b.child_rec_id And " + " a.Rec_ID = d.Rec_ID and "
        + " b.parent_rec_id = (" + id + ") And b.relative_level_no = 1 "
        + " order by a.Folder_Parent, a.Folder_Name, a.rec_id";
}

// The probe of child loading and of the archive folder walk (the same text in both).
inline QString archivedBelow(qint64 recId, const QString &strSelectedDb)
{
    const QString id = QString::number(recId);
    return QString("select parent_rec_id from zar_folder_matrix ") + " Where parent_rec_id = " + id + " and "
        + " child_rec_id in (select folder_rec_id from zar_file a, zar_fileArchived b,  " + strSelectedDb
        + "..zar_FileArchive c" + " where a.rec_id = b.rec_id and b.rec_id = c.fileid ) " + " Union All "
        + " select folder_rec_id from zar_file a, zar_fileArchived b, " + strSelectedDb + "..zar_FileArchive c "
        + " where a.rec_id = b.rec_id and b.rec_id = c.fileid and folder_rec_id = " + id;
}

inline QString subFoldersLive(const QString &id, bool deep)
{
    return QString("select a.rec_id, a.folder_name ") + " from zar_folder a, zar_folderLive b"
        + " where a.rec_id = b.rec_id and a.folder_parent = " + id
        + (deep ? QString(" order by a.folder_name") : QString(" order by a.folder_name "));
}

inline QString subFoldersArchive(const QString &id)
{
    return QString("select a.rec_id, a.folder_name, 'LIVE' as FOLDER ") + " from zar_folder a, ZAR_FolderLive b "
        + " Where a.rec_id = b.rec_id And a.folder_parent = " + id + " Union All "
        + " select a.rec_id, a.folder_name, 'ARCHIVE' as FOLDER " + " from zar_folder a, ZAR_FolderArchived b "
        + " Where a.rec_id = b.rec_id And a.folder_parent = " + id + " order by a.folder_name";
}

inline QString folderFilesLive(qint64 folderId)
{
    return QString("select a.rec_id, a.File_Name, a.File_Description ") + " from zar_file a, zar_fileLive b "
        + " where a.rec_id = b.rec_id and a.folder_rec_id = " + QString::number(folderId)
        + " order by a.File_Description";
}

inline QString folderFilesArchive(qint64 folderId, const QString &strSelectedDb)
{
    return QString("select ") + " a.rec_id, " + " a.File_Name, " + " a.File_Description " + " from "
        + " zar_file a, " + " ZAR_FileArchived b, " + strSelectedDb + "..zar_FileArchive c " + " where "
        + " a.rec_id = b.rec_id and " + " b.rec_id = c.fileid and " + " a.folder_rec_id = "
        + QString::number(folderId) + " order by a.File_Description";
}

inline QString documentLive(qint64 recId)
{
    return QString("Select a.File_name, a.File_Description, a.file_data ") + " FROM ZAR_File a, zar_FileLive b "
        + " WHERE (a.rec_id = b.rec_id and a.Rec_ID =" + QString::number(recId) + ")";
}

inline QString documentArchive(qint64 recId, const QString &strSelectedDb)
{
    return QString("Select a.File_name, a.File_Description, b.FileData ") + " FROM ZAR_File a, " + strSelectedDb
        + "..zar_FileArchive b " + " WHERE (a.rec_id = b.FileID and a.Rec_ID =" + QString::number(recId) + ")";
}

inline QString fileDates(qint64 recId)
{
    return QString("select convert(varchar(8),FileActualDate,112)+ ' '+RIGHT('0'+CAST(DATEPART(hh,FileActualDate)as "
                   "VARCHAR),2)+ RIGHT('0'+CAST(DATEPART(mi,FileActualDate)as VARCHAR),2)+ "
                   "RIGHT('0'+CAST(DATEPART(ss,FileActualDate)as VARCHAR),2)+ '.'+ "
                   "RIGHT('0'+CAST(DATEPART(ms,FileActualDate)as VARCHAR),3) as FileActualDate, ")
        + " convert(varchar(8),File_DateUploaded,112)+ ' '+RIGHT('0'+CAST(DATEPART(hh,File_DateUploaded)as VARCHAR),2)+ "
          "RIGHT('0'+CAST(DATEPART(mi,File_DateUploaded)as VARCHAR),2)+ "
          "RIGHT('0'+CAST(DATEPART(ss,File_DateUploaded)as VARCHAR),2)+ '.'+ "
          "RIGHT('0'+CAST(DATEPART(ms,File_DateUploaded)as VARCHAR),3) as File_DateUploaded "
        + " from zar_file  where rec_id = " + QString::number(recId);
}

// --- Helpers -------------------------------------------------------------------------------

inline QString connectionText(const QString &server, const QString &catalogue, const QString &user = "demo",
                              const QString &password = QString())
{
    return "Provider=SQLOLEDB.1;Persist Security Info=true;User ID=" + user + ";Initial Catalog=" + catalogue
        + ";Data Source=" + server + ";Password=" + password;
}

// The text of one field over all rows, read forwards from where the set stands.
inline QStringList column(repo::RecordSet rs, const QString &field)
{
    QStringList out;
    rs.moveFirst();
    while (!rs.eof()) {
        out << (rs.isNull(field) ? QStringLiteral("<null>") : rs.text(field));
        rs.moveNext();
    }
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

inline QStringList ids(const QString &spaceSeparated)
{
    return spaceSeparated.split(u' ', Qt::SkipEmptyParts);
}

// Runs every statement form against the demo server at `server` (user demo, empty password).
// Used inside a test function: a failed check returns from it with the test marked failed.
inline void runStatementSuite(const QString &server)
{
    // Sign-in: the catalogue, the server's database list and the archive pairing.
    {
        repo::Connection master;
        master.cursorLocation = repo::adUseClient;
        master.open(masterConnectionString(QStringLiteral("demo"), server, QString()));
        QVERIFY(master.isEmbedded());
        QCOMPARE(master.state(), repo::adStateOpen);
        const repo::RecordSet list = master.execute(catalogueList());
        QCOMPARE(list.recordCount(), 6);
        QCOMPARE(column(list, "Com_db"),
                 QStringList({"Acme", "AcmeArchive", "Globex", "Initech", "Scratch", "VandelayArchive"}));
        QCOMPARE(column(list, "Com_Type"), QStringList({"L", "A", "l", "L", "L", "a"}));
        // A three-part name may also name the connection's own database.
        QCOMPARE(column(master.execute(liveDatabase("AcmeArchive")), "com_db"), QStringList({"Acme"}));
    }
    {
        repo::Connection server_;
        server_.open(serverMasterConnectionString(QStringLiteral("demo"), server, QString()));
        // Names are compared as the server compares them: without regard to case.
        QCOMPARE(column(server_.execute(databaseExists("Acme")), "name"), QStringList({"Acme"}));
        QCOMPARE(column(server_.execute(databaseExists("acmearchive")), "NAME"), QStringList({"AcmeArchive"}));
        QCOMPARE(server_.execute(databaseExists("Initech")).recordCount(), 0); // listed, but no file
        QCOMPARE(server_.execute(databaseExists("zar_Master")).recordCount(), 1);
        QCOMPARE(column(server_.execute(liveDatabase("AcmeArchive")), "com_db"), QStringList({"Acme"}));
        QCOMPARE(server_.execute(liveDatabase("VandelayArchive")).recordCount(), 0); // pairs with no row
        QCOMPARE(server_.execute(liveDatabase("Acme")).recordCount(), 0);             // a live one has no pair
    }

    repo::Connection acme;
    acme.open(databaseConnectionString(QStringLiteral("demo"), QStringLiteral("Acme"), server, QString()));

    // Tree building: the first level is the root alone.
    {
        const repo::RecordSet rs = acme.execute(firstLevel(0));
        QCOMPARE(rs.recordCount(), 1);
        QCOMPARE(rs.value("Rec_ID").toLongLong(), 1);
        QCOMPARE(rs.text("FOLDER_NAME"), QStringLiteral("Acme Corporation"));
        QCOMPARE(rs.text("Folder_Type"), QStringLiteral("ROOT"));
        QCOMPARE(rs.value("folder_parent").toLongLong(), 0);
        QCOMPARE(rs.value("Icon_rec_id").toLongLong(), 1);
        QCOMPARE(rs.value("IsAdmin").toLongLong(), 0);
    }

    // Child loading, live: every live child of the root in parent, name, id order.
    {
        const repo::RecordSet rs = acme.execute(liveChildren("Fold1"));
        QCOMPARE(column(rs, "REC_ID"), ids("2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19"));
        QCOMPARE(column(rs, "FOLDER_NAME").at(0), QStringLiteral("A/B"));
        QCOMPARE(column(rs, "Folder_Type").at(2), QStringLiteral("ADMIN"));
        QCOMPARE(column(rs, "icon_rec_id").at(10), QStringLiteral("99"));
        QCOMPARE(acme.execute(liveChildren("Fold9")).recordCount(), 0);
    }

    // Child loading, archive: both folder lists with their origin, and the probe per child.
    {
        const repo::RecordSet rs = acme.execute(archiveChildren("Fold1"));
        const QStringList recIds = column(rs, "rec_id");
        const QStringList origins = column(rs, "FOLDER");
        QCOMPARE(recIds, ids("2 3 4 20 5 6 7 8 9 10 11 12 13 38 14 15 16 17 18 19"));
        QCOMPARE(origins.at(recIds.indexOf("20")), QStringLiteral("ARCHIVE"));
        QCOMPARE(origins.at(recIds.indexOf("10")), QStringLiteral("LIVE"));
        QCOMPARE(column(rs, "relative_level_no"), QStringList(20, QStringLiteral("1")));
        QCOMPARE(column(rs, "Folder_Parent"), QStringList(20, QStringLiteral("1")));
        QVERIFY(rs.fieldNames().contains(QStringLiteral("TS"), Qt::CaseInsensitive));

        QStringList shown;
        for (const QString &id : recIds)
            if (acme.execute(archivedBelow(id.toLongLong(), QStringLiteral("AcmeArchive"))).recordCount() >= 1)
                shown << id;
        QCOMPARE(shown, ids("20 10 12 38"));

        // Legal holds the folder that stands in both lists: it comes back twice.
        const repo::RecordSet legal = acme.execute(archiveChildren("Fold12"));
        QCOMPARE(column(legal, "rec_id"), ids("31 30 30"));
        QStringList origins30 = column(legal, "Folder").mid(1); // equal sort keys: either order
        origins30.sort();
        QCOMPARE(origins30, QStringList({"ARCHIVE", "LIVE"}));
    }

    // Folder walk: live sub-folders with and without the trailing blank, archive halves, probe.
    {
        QCOMPARE(column(acme.execute(subFoldersLive("14", false)), "rec_id"), ids("25"));
        QCOMPARE(column(acme.execute(subFoldersLive("25", true)), "folder_name"), QStringList({"2016"}));
        QCOMPARE(column(acme.execute(subFoldersLive("12", false)), "rec_id"), ids("31 30"));
        const repo::RecordSet archive = acme.execute(subFoldersArchive("20"));
        QCOMPARE(column(archive, "rec_id"), ids("32 36 37 33"));
        QCOMPARE(column(archive, "FOLDER"), QStringList(4, QStringLiteral("ARCHIVE")));
        QCOMPARE(column(acme.execute(subFoldersArchive("10")), "folder_name"), QStringList({"Budgets", "Ledgers 2009"}));
        QCOMPARE(acme.execute(archivedBelow(37, "AcmeArchive")).recordCount(), 0);
        QCOMPARE(acme.execute(archivedBelow(29, "AcmeArchive")).recordCount(), 0);
        QVERIFY(acme.execute(archivedBelow(33, "AcmeArchive")).recordCount() >= 1); // only at the bottom
        QVERIFY(acme.execute(archivedBelow(28, "acmearchive")).recordCount() >= 1);  // any letter case
    }

    // Documents of a folder, live and archived, and one document's bytes.
    {
        const repo::RecordSet docs = acme.execute(folderFilesLive(7));
        QCOMPARE(docs.recordCount(), 18);
        const QStringList docIds = column(docs, "rec_id");
        for (qint64 id = 1007; id <= 1024; ++id)
            QVERIFY2(docIds.contains(QString::number(id)), qPrintable(QString::number(id)));
        QCOMPARE(acme.execute(folderFilesLive(9)).recordCount(), 0);

        QCOMPARE(column(acme.execute(folderFilesArchive(28, "AcmeArchive")), "File_Description"),
                 QStringList({"Audit 2009", "Ledger 2009"}));
        // 1122's bytes are missing from the archive store, so it is not listed.
        QCOMPARE(column(acme.execute(folderFilesArchive(32, "AcmeArchive")), "rec_id"), ids("1120 1121"));
        QCOMPARE(acme.execute(folderFilesArchive(29, "AcmeArchive")).recordCount(), 0);

        const repo::RecordSet live = acme.execute(documentLive(1007));
        QCOMPARE(live.recordCount(), 1);
        QCOMPARE(live.text("File_Name"), QStringLiteral("minutes.txt"));
        QCOMPARE(live.text("File_Description"), QStringLiteral("Minutes 12/03/2015"));
        QVERIFY(live.value("File_Data").toByteArray().contains("Document 1007"));
        QCOMPARE(acme.execute(documentLive(1101)).recordCount(), 0); // archived: not in the live list

        const repo::RecordSet archived = acme.execute(documentArchive(1101, "AcmeArchive"));
        QCOMPARE(archived.recordCount(), 1);
        QCOMPARE(archived.text("File_name"), QStringLiteral("ledger-2009.csv"));
        QVERIFY(archived.value("FileData").toByteArray().contains("Document 1101"));
        QCOMPARE(acme.execute(documentArchive(1122, "AcmeArchive")).recordCount(), 0);
    }

    // File dates: exactly the text SQL Server gives, null dates included.
    {
        repo::RecordSet rs = acme.execute(fileDates(1007));
        QCOMPARE(rs.text("FileActualDate"), QStringLiteral("20160305 140709.250"));
        rs = acme.execute(fileDates(1008));
        QVERIFY(rs.isNull("FileActualDate"));
        QCOMPARE(rs.text("File_DateUploaded"), QStringLiteral("20151231 235959.00"));
        rs = acme.execute(fileDates(1009));
        QVERIFY(rs.isNull("FileActualDate"));
        QVERIFY(rs.isNull("File_DateUploaded"));
        rs = acme.execute(fileDates(1010));
        QCOMPARE(rs.text("FileActualDate"), QStringLiteral("20140701 083000.05"));
        rs = acme.execute(fileDates(1011));
        QCOMPARE(rs.text("fileactualdate"), QStringLiteral("20160715 120000.00"));
        QCOMPARE(acme.execute(fileDates(999999)).recordCount(), 0);
    }

    // The tree of an archive company is read from its live database; the archive database itself
    // has no folder tables, which the tree building turns into "Invalid database selected".
    {
        repo::Connection archiveDb;
        archiveDb.open(databaseConnectionString("demo", "AcmeArchive", server, QString()));
        QCOMPARE(failure([&] { archiveDb.execute(firstLevel(0)); }), repo::ERR_NO_OBJECT);
        repo::Connection scratch;
        scratch.open(databaseConnectionString("demo", "Scratch", server, QString()));
        QCOMPARE(failure([&] { scratch.execute(firstLevel(0)); }), repo::ERR_NO_OBJECT);
        repo::Connection globex;
        globex.open(databaseConnectionString("demo", "globex", server, QString()));
        QCOMPARE(column(globex.execute(liveChildren("Fold1")), "Folder_Name"), QStringList({"Sales", "Support"}));
    }
}

} // namespace suite
