// The demo repository is the ground every other test stands on: check that it is reproducible to
// the byte, that its tables are consistent, and that the cases it promises are really there.

#include "demo/demorepository.h"
#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QMap>
#include <QSet>
#include <QSettings>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QTemporaryDir>
#include <QtEndian>
#include <QtTest>

namespace {

using Rows = QList<QVariantList>;

// Read-only view of one database file of the demo server.
class Db {
public:
    explicit Db(const QString &file)
        : m_name(QStringLiteral("test_demo_%1").arg(++s_counter))
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_name);
        db.setDatabaseName(file);
        db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY"));
        m_open = db.open();
    }
    ~Db()
    {
        QSqlDatabase::database(m_name, false).close();
        QSqlDatabase::removeDatabase(m_name);
    }
    bool isOpen() const { return m_open; }

    // All rows of a statement; a failing statement fails the test with the driver's text.
    Rows rows(const QString &sql, bool *ok = nullptr)
    {
        QSqlQuery q(QSqlDatabase::database(m_name, false));
        Rows result;
        const bool done = q.exec(sql);
        if (ok)
            *ok = done;
        else if (!done)
            qWarning("%s: %s", qPrintable(sql), qPrintable(q.lastError().text()));
        while (done && q.next()) {
            QVariantList row;
            for (int i = 0; i < q.record().count(); ++i)
                row << q.value(i);
            result << row;
        }
        return result;
    }
    QVariant scalar(const QString &sql)
    {
        const Rows r = rows(sql);
        return r.isEmpty() ? QVariant() : r.first().value(0);
    }
    QList<qint64> ids(const QString &sql)
    {
        QList<qint64> out;
        for (const QVariantList &row : rows(sql))
            out << row.value(0).toLongLong();
        return out;
    }

private:
    static inline int s_counter = 0;
    QString m_name;
    bool m_open = false;
};

// Bit by bit, unlike the generator's table-driven CRC, so a shared mistake cannot hide.
quint32 referenceCrc32(const QByteArray &data)
{
    quint32 crc = 0xFFFFFFFFu;
    for (char ch : data) {
        crc ^= quint8(ch);
        for (int k = 0; k < 8; ++k)
            crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

// The archive probe of the child loader, with the archive database attached under its own name.
const char *kProbe = "select parent_rec_id from zar_folder_matrix "
                     " Where parent_rec_id = %1 and "
                     " child_rec_id in (select folder_rec_id from zar_file a, zar_fileArchived b,  "
                     "AcmeArchive.zar_FileArchive c where a.rec_id = b.rec_id and b.rec_id = c.fileid ) "
                     " Union All "
                     " select folder_rec_id from zar_file a, zar_fileArchived b, AcmeArchive.zar_FileArchive c "
                     " where a.rec_id = b.rec_id and b.rec_id = c.fileid and folder_rec_id = %1";

} // namespace

class TestDemo : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void reproducibleAndSelfContained();
    void refusesUnusableTargets();
    void catalogueAndPairing();
    void folderHierarchyIsConsistent();
    void liveViewOrderAndIcons();
    void archiveView();
    void documentCases();
    void generatedFilesAreWellFormed();

private:
    QTemporaryDir m_tmp;
    QString m_demo;
};

void TestDemo::initTestCase()
{
    QVERIFY(m_tmp.isValid());
    QString error;
    m_demo = writeDemo(m_tmp.path(), &error);
    QVERIFY2(!m_demo.isEmpty(), qPrintable(error));
}

void TestDemo::reproducibleAndSelfContained()
{
    QTemporaryDir other;
    QVERIFY(other.isValid());
    QString error;
    const QString second = writeDemo(other.path(), &error);
    QVERIFY2(!second.isEmpty(), qPrintable(error));
    QCOMPARE(sha256OfTree(second), sha256OfTree(m_demo));

    // Exactly the demo's files: no journals, no WAL side files, no database for Initech.
    QStringList expected = demo::demoFileNames();
    expected.sort();
    QStringList present = QDir(second).entryList(QDir::Files | QDir::Hidden, QDir::Name);
    QCOMPARE(present, expected);
    for (const QString &name : std::as_const(present)) {
        if (!name.endsWith(QLatin1String(".sqlite")))
            continue;
        QFile f(QDir(second).filePath(name));
        QVERIFY(f.open(QIODevice::ReadOnly));
        const QByteArray header = f.read(100);
        QVERIFY2(header.startsWith("SQLite format 3"), qPrintable(name));
        // Bytes 18 and 19 are the write and read versions: 1 = rollback journal, 2 = WAL.
        QCOMPARE(int(header.at(18)), 1);
        QCOMPARE(int(header.at(19)), 1);
    }

    // Writing over an earlier demo (even a damaged one) gives the same files again and leaves
    // other files alone; a stale Initech database is removed so the catalogue's case holds.
    QFile broken(QDir(second).filePath(QStringLiteral("Acme.sqlite")));
    QVERIFY(broken.open(QIODevice::WriteOnly | QIODevice::Truncate));
    broken.write("not a database");
    broken.close();
    QFile foreign(QDir(second).filePath(QStringLiteral("notes.txt")));
    QVERIFY(foreign.open(QIODevice::WriteOnly));
    foreign.write("keep me");
    foreign.close();
    QFile stale(QDir(second).filePath(QStringLiteral("Initech.sqlite")));
    QVERIFY(stale.open(QIODevice::WriteOnly));
    stale.close();
    QVERIFY2(writeDemoRepository(second, &error), qPrintable(error));
    QVERIFY(foreign.remove());
    QCOMPARE(sha256OfTree(second), sha256OfTree(m_demo));

    const QSettings ini(QDir(m_demo).filePath(QStringLiteral("server.ini")), QSettings::IniFormat);
    QCOMPARE(ini.childGroups(), QStringList{QStringLiteral("logins")});
    QVERIFY(ini.contains(QStringLiteral("logins/demo")));
    QCOMPARE(ini.value(QStringLiteral("logins/demo")).toString(), QString());
}

void TestDemo::refusesUnusableTargets()
{
    QString error;
    QVERIFY(!writeDemoRepository(QString(), &error));
    QVERIFY(!error.isEmpty());

    QTemporaryDir tmp;
    const QString file = QDir(tmp.path()).filePath(QStringLiteral("plain-file"));
    QFile f(file);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.close();
    error.clear();
    QVERIFY(!writeDemoRepository(file, &error));
    QVERIFY2(error.contains(QLatin1String("not a folder")), qPrintable(error));

    // A folder squatting on a database's name: clear message, nothing half-written left.
    const QString dir = QDir(tmp.path()).filePath(QStringLiteral("blocked"));
    QVERIFY(QDir().mkpath(QDir(dir).filePath(QStringLiteral("Globex.sqlite"))));
    error.clear();
    QVERIFY(!writeDemoRepository(dir, &error));
    QVERIFY2(error.contains(QLatin1String("Globex.sqlite")), qPrintable(error));
    QVERIFY(!QFile::exists(QDir(dir).filePath(QStringLiteral("Acme.sqlite"))));
}

void TestDemo::catalogueAndPairing()
{
    Db master(QDir(m_demo).filePath(QStringLiteral("zar_Master.sqlite")));
    QVERIFY(master.isOpen());
    const Rows list = master.rows(QStringLiteral("select Com_db, com_type from com_company order by Com_db"));
    QStringList names, types;
    for (const QVariantList &row : list) {
        names << row.value(0).toString();
        types << row.value(1).toString();
    }
    QCOMPARE(names, (QStringList{"Acme", "AcmeArchive", "Globex", "Initech", "Scratch", "VandelayArchive"}));
    QCOMPARE(types, (QStringList{"L", "A", "l", "L", "L", "a"}));

    // The pairing lookup, names matched without regard to case as on SQL Server.
    const QString pairing = QStringLiteral("select com_db from Com_Company where com_id = "
                                           "(select live_com_id from com_company where com_db ='%1')");
    QCOMPARE(master.scalar(pairing.arg("acmearchive")).toString(), QStringLiteral("Acme"));
    QVERIFY(master.rows(pairing.arg("VandelayArchive")).isEmpty());
    QVERIFY(master.rows(pairing.arg("Acme")).isEmpty());

    // Databases present as files are exactly the listed ones but Initech.
    QVERIFY(!QFile::exists(QDir(m_demo).filePath(QStringLiteral("Initech.sqlite"))));
    for (const QString &name : names) {
        if (name != QLatin1String("Initech"))
            QVERIFY2(QFile::exists(QDir(m_demo).filePath(name + ".sqlite")), qPrintable(name));
    }

    // Scratch is a real database without the repository's tables: the tree query must fail.
    Db scratch(QDir(m_demo).filePath(QStringLiteral("Scratch.sqlite")));
    QVERIFY(scratch.isOpen());
    QCOMPARE(scratch.scalar(QStringLiteral("select count(*) from notes")).toInt(), 2);
    bool ok = true;
    scratch.rows(QStringLiteral("SELECT  a.Rec_ID,  a.Folder_Parent  FROM ZAR_Folder a, zar_FolderLive b"), &ok);
    QVERIFY(!ok);

    Db vandelay(QDir(m_demo).filePath(QStringLiteral("VandelayArchive.sqlite")));
    QCOMPARE(vandelay.scalar(QStringLiteral("select count(*) from zar_FileArchive")).toInt(), 0);
}

void TestDemo::folderHierarchyIsConsistent()
{
    for (const QString &company : {QStringLiteral("Acme"), QStringLiteral("Globex")}) {
        Db db(QDir(m_demo).filePath(company + ".sqlite"));
        QVERIFY(db.isOpen());
        QMap<qint64, qint64> parentOf;
        for (const QVariantList &row : db.rows(QStringLiteral("select Rec_ID, Folder_Parent from zar_Folder")))
            parentOf.insert(row.value(0).toLongLong(), row.value(1).toLongLong());
        QVERIFY(parentOf.size() > 3);

        // One root, id 1, the only first-level row.
        QCOMPARE(db.ids(QStringLiteral("select Rec_ID from zar_Folder where Folder_Parent = 0")), QList<qint64>{1});
        QCOMPARE(db.scalar(QStringLiteral("select Folder_Type from zar_Folder where Rec_ID = 1")).toString(),
                 QStringLiteral("ROOT"));

        // Every folder has a name-path row and sits in at least one folder list; every parent exists.
        QCOMPARE(db.scalar(QStringLiteral("select count(*) from zar_Folder a where not exists "
                                          "(select 1 from zar_folder_name_path c where c.rec_id = a.Rec_ID)"))
                     .toInt(),
                 0);
        QCOMPARE(db.scalar(QStringLiteral("select count(*) from zar_Folder a where a.Rec_ID not in "
                                          "(select rec_id from zar_FolderLive union select rec_id from "
                                          "ZAR_FolderArchived)"))
                     .toInt(),
                 0);
        for (auto it = parentOf.cbegin(); it != parentOf.cend(); ++it)
            QVERIFY2(it.value() == 0 || parentOf.contains(it.value()), qPrintable(QString::number(it.key())));

        // The matrix holds exactly the ancestor/descendant pairs that the parent links give.
        QSet<QString> expected;
        for (auto it = parentOf.cbegin(); it != parentOf.cend(); ++it) {
            int level = 1;
            for (qint64 up = it.value(); up != 0; up = parentOf.value(up), ++level)
                expected.insert(QStringLiteral("%1>%2@%3").arg(up).arg(it.key()).arg(level));
        }
        QSet<QString> actual;
        const Rows matrix =
            db.rows(QStringLiteral("select parent_rec_id, child_rec_id, relative_level_no from zar_folder_matrix"));
        for (const QVariantList &row : matrix)
            actual.insert(QStringLiteral("%1>%2@%3").arg(row[0].toLongLong()).arg(row[1].toLongLong()).arg(row[2].toInt()));
        QCOMPARE(actual.size(), matrix.size()); // no duplicate pairs
        QCOMPARE(actual, expected);

        // Every document lies in an existing folder and is either live or archived, never both.
        QCOMPARE(db.scalar(QStringLiteral("select count(*) from zar_file where folder_rec_id not in "
                                          "(select Rec_ID from zar_Folder)"))
                     .toInt(),
                 0);
        QCOMPARE(db.scalar(QStringLiteral("select count(*) from zar_file a where "
                                          "(a.rec_id in (select rec_id from zar_fileLive)) + "
                                          "(a.rec_id in (select rec_id from ZAR_FileArchived)) <> 1"))
                     .toInt(),
                 0);
        QCOMPARE(db.scalar(QStringLiteral("select count(*) from zar_file a, zar_fileLive b "
                                          "where a.rec_id = b.rec_id and a.file_data is null"))
                     .toInt(),
                 0);
        QCOMPARE(db.scalar(QStringLiteral("select count(*) from zar_file a, ZAR_FileArchived b "
                                          "where a.rec_id = b.rec_id and a.file_data is not null"))
                     .toInt(),
                 0);
    }
}

void TestDemo::liveViewOrderAndIcons()
{
    Db acme(QDir(m_demo).filePath(QStringLiteral("Acme.sqlite")));
    // The child loader's own statement, which SQLite runs unchanged.
    const Rows rows = acme.rows(QStringLiteral(
        "SELECT a.rec_id, a.icon_rec_id, a.Folder_Type, a.Folder_Name  FROM ZAR_FOLDER a, zar_folderLive b"
        " WHERE a.rec_id = b.rec_id and  a.FOLDER_PARENT=1 order by a.Folder_Parent, a.Folder_Name, a.rec_id"));
    QStringList names;
    QSet<int> folderIcons;
    QSet<QString> types;
    for (const QVariantList &row : rows) {
        names << row.value(3).toString();
        types << row.value(2).toString();
        if (row.value(2).toString() == QLatin1String("FOLDER"))
            folderIcons << row.value(1).toInt();
    }
    QCOMPARE(names, (QStringList{"A/B", "A:B", "Admin", "Branch Office", "Contracts", "Docs", "Docs 2006",
                                 "Empty Folder", "Finance", "Head Office", "Legal", "Marketing", "Projects",
                                 "Q1: Plans/Drafts", "Recycle Bin", "Templates", "Training", "Unsorted"}));
    QCOMPARE(types, (QSet<QString>{"SITE", "CABINET", "ADMIN", "RECYCLE", "FOLDER"}));

    // Image carry-over: an out-of-range icon right after a valid one.
    const int docs = int(names.indexOf(QStringLiteral("Docs")));
    QCOMPARE(rows[docs].value(1).toInt(), 2);
    QCOMPARE(rows[docs + 1].value(1).toInt(), 0);

    // Icons 1 to 11 and some outside that range all occur among ordinary folders.
    QSet<int> allIcons;
    for (const QVariantList &row :
         acme.rows(QStringLiteral("select Icon_rec_id from zar_Folder where Folder_Type = 'FOLDER'")))
        allIcons << row.value(0).toInt();
    for (int icon : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 99})
        QVERIFY2(allIcons.contains(icon), qPrintable(QString::number(icon)));

    // The deep chain Projects > Plans > 2016 > Reports, with documents on every level.
    QCOMPARE(acme.scalar(QStringLiteral("select relative_level_no from zar_folder_matrix "
                                        "where parent_rec_id = 14 and child_rec_id = 27"))
                 .toInt(),
             3);
    QCOMPARE(acme.scalar(QStringLiteral("select count(distinct folder_rec_id) from zar_file "
                                        "where folder_rec_id in (14, 25, 26, 27)"))
                 .toInt(),
             4);
    QCOMPARE(acme.scalar(QStringLiteral("select count(*) from zar_file where folder_rec_id = 9")).toInt(), 0);
}

void TestDemo::archiveView()
{
    Db acme(QDir(m_demo).filePath(QStringLiteral("Acme.sqlite")));
    bool ok = false;
    acme.rows(QStringLiteral("ATTACH DATABASE '%1' AS AcmeArchive")
                  .arg(QDir(m_demo).filePath(QStringLiteral("AcmeArchive.sqlite"))),
              &ok);
    QVERIFY(ok);

    const auto visible = [&](qint64 id) { return !acme.rows(QString::fromLatin1(kProbe).arg(id)).isEmpty(); };
    // Children of a folder in the archive view: both folder lists, only those with archived bytes below.
    const auto archiveChildren = [&](qint64 parent) {
        QList<qint64> shown;
        const QString sql =
            QStringLiteral("select a.rec_id, a.Folder_Name from zar_folder a, zar_folder_matrix b, ZAR_FolderLive d "
                           "where a.Rec_id = b.child_rec_id and a.Rec_ID = d.Rec_ID and b.parent_rec_id = (%1) "
                           "and b.relative_level_no = 1 Union All "
                           "select a.rec_id, a.Folder_Name from zar_folder a, zar_folder_matrix b, "
                           "ZAR_FolderArchived d where a.Rec_id = b.child_rec_id and a.Rec_ID = d.Rec_ID and "
                           "b.parent_rec_id = (%1) and b.relative_level_no = 1 order by 2, 1")
                .arg(parent);
        for (qint64 id : acme.ids(sql)) {
            if (visible(id))
                shown << id;
        }
        return shown;
    };
    QCOMPARE(archiveChildren(1), (QList<qint64>{20, 10, 12, 38}));
    QCOMPARE(archiveChildren(12), (QList<qint64>{30, 30})); // the duplicate-key case
    QCOMPARE(archiveChildren(20), (QList<qint64>{32, 36, 33})); // Empty Archived (37) hidden
    QCOMPARE(archiveChildren(33), QList<qint64>{34});            // found only through the matrix
    QCOMPARE(archiveChildren(10), QList<qint64>{28});            // Budgets hidden

    // The archived listing of a folder joins the archive store, so missing bytes are not listed.
    const QString listing = QStringLiteral(
        "select  a.rec_id,  a.File_Name,  a.File_Description  from  zar_file a,  ZAR_FileArchived b, "
        "AcmeArchive.zar_FileArchive c  where  a.rec_id = b.rec_id and  b.rec_id = c.fileid and "
        " a.folder_rec_id = %1 order by a.File_Description");
    QCOMPARE(acme.ids(listing.arg(32)), (QList<qint64>{1120, 1121}));
    QCOMPARE(acme.ids(QStringLiteral("select rec_id from ZAR_FileArchived where rec_id = 1122")), QList<qint64>{1122});
    QCOMPARE(acme.ids(listing.arg(30)), (QList<qint64>{1110, 1111}));
    QCOMPARE(acme.ids(listing.arg(28)), (QList<qint64>{1102, 1101}));

    // Every archived document but the one with missing bytes has them in the archive store.
    QCOMPARE(acme.ids(QStringLiteral("select b.rec_id from ZAR_FileArchived b where b.rec_id not in "
                                     "(select FileID from AcmeArchive.zar_FileArchive)")),
             QList<qint64>{1122});
    QCOMPARE(acme.scalar(QStringLiteral("select count(*) from AcmeArchive.zar_FileArchive where FileData is null "
                                        "or length(FileData) = 0"))
                 .toInt(),
             0);
    QCOMPARE(acme.ids(QStringLiteral("select rec_id from zar_FolderLive intersect select rec_id from "
                                     "ZAR_FolderArchived")),
             QList<qint64>{30});
}

void TestDemo::documentCases()
{
    Db acme(QDir(m_demo).filePath(QStringLiteral("Acme.sqlite")));
    const auto count = [&](const QString &where) {
        return acme.scalar(QStringLiteral("select count(*) from zar_file where ") + where).toInt();
    };
    for (const char *mark : {"\\", "/", ":", "*", "?", "\"", "<", ">", "|"})
        QVERIFY2(count(QStringLiteral("instr(File_Description, '%1') > 0").arg(QLatin1String(mark))) >= 2, mark);
    QCOMPARE(count(QStringLiteral("File_Description = '  Padded title  '")), 1);
    QCOMPARE(count(QStringLiteral("File_Description = '' and File_Description is not null")), 2);
    QCOMPARE(count(QStringLiteral("File_Description = '   '")), 1);
    QCOMPARE(count(QStringLiteral("File_Description is null or File_Name is null")), 0);
    QCOMPARE(count(QStringLiteral("length(cast(File_Description as blob)) > 255")), 1);
    QCOMPARE(count(QStringLiteral("File_Name = 'report.final.docx '")), 1);
    QVERIFY(count(QStringLiteral("instr(File_Name, '.') = 0")) >= 3);
    QCOMPARE(count(QStringLiteral("File_Description = 'R\u00e9sum\u00e9 M\u00fcller'")), 1);

    // Two documents of one folder share title and extension but not their bytes.
    const Rows dup = acme.rows(QStringLiteral(
        "select a.rec_id, a.File_Name, a.file_data from zar_file a, zar_fileLive b where a.rec_id = b.rec_id "
        "and a.folder_rec_id = 7 and a.File_Description = 'duplicate title' order by a.rec_id"));
    QCOMPARE(dup.size(), 2);
    QVERIFY(dup[0].value(1).toString().endsWith(QLatin1String(".txt")));
    QVERIFY(dup[1].value(1).toString().endsWith(QLatin1String(".txt")));
    QVERIFY(dup[0].value(2).toByteArray().contains("Document 1017"));
    QVERIFY(dup[1].value(2).toByteArray().contains("Document 1018"));

    // The date cases, exactly as stored.
    const auto dates = [&](qint64 id) {
        const Rows r = acme.rows(
            QStringLiteral("select FileActualDate, File_DateUploaded from zar_file where rec_id = %1").arg(id));
        return r.isEmpty() ? QVariantList() : r.first();
    };
    QCOMPARE(dates(1007).value(0).toString(), QStringLiteral("2016-03-05 14:07:09.250"));
    QVERIFY(dates(1008).value(0).isNull());
    QCOMPARE(dates(1008).value(1).toString(), QStringLiteral("2015-12-31 23:59:59.000"));
    QVERIFY(dates(1009).value(0).isNull());
    QVERIFY(dates(1009).value(1).isNull());
    QCOMPARE(dates(1010).value(0).toString(), QStringLiteral("2014-07-01 08:30:00.005"));
    // Every other date has the fixed layout the date query expects, and SQLite reads it as a date.
    QCOMPARE(count(QStringLiteral("FileActualDate is not null and (length(FileActualDate) <> 23 or "
                                  "strftime('%Y-%m-%d %H:%M:%f', FileActualDate) <> FileActualDate)")),
             0);
    QCOMPARE(count(QStringLiteral("File_DateUploaded is not null and (length(File_DateUploaded) <> 23 or "
                                  "strftime('%Y-%m-%d %H:%M:%f', File_DateUploaded) <> File_DateUploaded)")),
             0);

    // Every document's content names its own rec_id, so written files can be traced.
    Db archive(QDir(m_demo).filePath(QStringLiteral("AcmeArchive.sqlite")));
    const Rows live = acme.rows(QStringLiteral("select rec_id, file_data from zar_file where file_data is not null"));
    const Rows archived = archive.rows(QStringLiteral("select FileID, FileData from zar_FileArchive"));
    QCOMPARE(live.size() + archived.size(), acme.scalar(QStringLiteral("select count(*) from zar_file")).toInt() - 1);
    for (const Rows &set : {live, archived}) {
        for (const QVariantList &row : set) {
            const QByteArray tag = "Document " + QByteArray::number(row.value(0).toLongLong()) + ":";
            QVERIFY2(row.value(1).toByteArray().contains(tag), tag.constData());
        }
    }
}

void TestDemo::generatedFilesAreWellFormed()
{
    Db acme(QDir(m_demo).filePath(QStringLiteral("Acme.sqlite")));
    Db archive(QDir(m_demo).filePath(QStringLiteral("AcmeArchive.sqlite")));
    QMap<qint64, QByteArray> bytes;
    for (const QVariantList &row : acme.rows(QStringLiteral("select rec_id, file_data from zar_file")))
        bytes.insert(row[0].toLongLong(), row[1].toByteArray());
    for (const QVariantList &row : archive.rows(QStringLiteral("select FileID, FileData from zar_FileArchive")))
        bytes.insert(row[0].toLongLong(), row[1].toByteArray());

    int png = 0, pdf = 0, docx = 0;
    for (const QVariantList &row : acme.rows(QStringLiteral("select rec_id, trim(File_Name) from zar_file"))) {
        const qint64 id = row[0].toLongLong();
        const QString name = row[1].toString().toLower();
        const QByteArray data = bytes.value(id);
        if (data.isEmpty())
            continue; // the archived document without bytes
        const QByteArray labelText = "document " + QByteArray::number(id);
        const char *label = labelText.constData();

        if (name.endsWith(QLatin1String(".png"))) {
            ++png;
            QVERIFY2(data.startsWith("\x89PNG\r\n\x1a\n"), label);
            // Walk the chunks: lengths add up, every CRC matches, IDAT inflates to the raw rows.
            qsizetype pos = 8;
            QByteArray idat;
            QStringList chunks;
            quint32 width = 0, height = 0;
            while (pos + 12 <= data.size()) {
                const quint32 length = qFromBigEndian<quint32>(data.constData() + pos);
                QVERIFY2(pos + 12 + qsizetype(length) <= data.size(), label);
                const QByteArray typed = data.mid(pos + 4, 4 + length);
                QCOMPARE(qFromBigEndian<quint32>(data.constData() + pos + 8 + length), referenceCrc32(typed));
                chunks << QString::fromLatin1(typed.left(4));
                if (chunks.last() == QLatin1String("IHDR")) {
                    width = qFromBigEndian<quint32>(typed.constData() + 4);
                    height = qFromBigEndian<quint32>(typed.constData() + 8);
                    QCOMPARE(int(typed.at(12)), 8); // bit depth
                    QCOMPARE(int(typed.at(13)), 2); // RGB
                }
                if (chunks.last() == QLatin1String("IDAT"))
                    idat += typed.mid(4);
                pos += 12 + length;
            }
            QCOMPARE(pos, data.size());
            QCOMPARE(chunks.first(), QStringLiteral("IHDR"));
            QCOMPARE(chunks.last(), QStringLiteral("IEND"));
            QByteArray sized(4, '\0');
            qToBigEndian(quint32(height * (1 + width * 3)), sized.data());
            QCOMPARE(qUncompress(sized + idat).size(), qsizetype(height * (1 + width * 3)));
        } else if (name.endsWith(QLatin1String(".pdf"))) {
            ++pdf;
            QVERIFY2(data.startsWith("%PDF-1."), label);
            QVERIFY2(data.endsWith("%%EOF\n"), label);
            // startxref names the byte offset of the table, and each entry the offset of its object.
            const qsizetype sx = data.lastIndexOf("startxref\n");
            QVERIFY2(sx > 0, label);
            const qsizetype xref = data.mid(sx + 10).split('\n').first().toLongLong();
            QVERIFY2(data.mid(xref, 5) == "xref\n", label);
            const QList<QByteArray> lines = data.mid(xref).split('\n');
            const int objects = lines.value(1).split(' ').value(1).toInt();
            QVERIFY2(objects >= 4, label);
            for (int n = 1; n < objects; ++n) {
                const qsizetype offset = lines.value(2 + n).left(10).toLongLong();
                QVERIFY2(data.mid(offset).startsWith(QByteArray::number(n) + " 0 obj"), label);
            }
            QVERIFY2(data.contains("/Type /Catalog"), label);
        } else if (name.endsWith(QLatin1String(".docx"))) {
            ++docx;
            QVERIFY2(data.startsWith("PK\x03\x04"), label);
            // End of central directory: entry count, then each local entry's CRC over its data.
            const qsizetype eocd = data.lastIndexOf("PK\x05\x06");
            QVERIFY2(eocd > 0 && eocd + 22 == data.size(), label);
            const int entries = qFromLittleEndian<quint16>(data.constData() + eocd + 10);
            QCOMPARE(entries, 3);
            qsizetype pos = 0;
            QStringList names;
            for (int i = 0; i < entries; ++i) {
                QVERIFY2(data.mid(pos, 4) == "PK\x03\x04", label);
                const quint32 crc = qFromLittleEndian<quint32>(data.constData() + pos + 14);
                const quint32 size = qFromLittleEndian<quint32>(data.constData() + pos + 18);
                const quint16 nameLength = qFromLittleEndian<quint16>(data.constData() + pos + 26);
                names << QString::fromLatin1(data.mid(pos + 30, nameLength));
                const QByteArray body = data.mid(pos + 30 + nameLength, size);
                QCOMPARE(referenceCrc32(body), crc);
                pos += 30 + nameLength + size;
            }
            QVERIFY(names.contains(QStringLiteral("word/document.xml")));
            QVERIFY(names.contains(QStringLiteral("[Content_Types].xml")));
        }
    }
    QVERIFY(png >= 3);
    QVERIFY(pdf >= 5);
    QCOMPARE(docx, 2);
}

QTEST_GUILESS_MAIN(TestDemo)
#include "test_demo.moc"
