// The demo repository is the ground every other test stands on: it must be reproducible to the
// byte, its tables consistent, and the cases it promises really there.

#include "demo/demorepository.h"
#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QTemporaryDir>
#include <QtEndian>
#include <QtTest>

namespace {

using Rows = QList<QVariantList>;

// All rows of a statement on one database file, opened read-only with Acme's archive attached.
Rows rows(const QString &file, const QString &sql)
{
    Rows result;
    const QString name = QStringLiteral("test_demo");
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        db.setDatabaseName(file);
        db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY"));
        QSqlQuery q(db);
        const QString archive = QFileInfo(file).dir().filePath(QStringLiteral("AcmeArchive.sqlite"));
        if (!db.open() || !q.exec("ATTACH DATABASE '" + archive + "' AS AcmeArchive") || !q.exec(sql))
            qWarning("%s: %s", qPrintable(sql), qPrintable(q.lastError().text() + db.lastError().text()));
        while (q.next()) {
            QVariantList row;
            for (int i = 0; i < q.record().count(); ++i)
                row << q.value(i);
            result << row;
        }
    }
    QSqlDatabase::removeDatabase(name);
    return result;
}

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

} // namespace

class TestDemo : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void reproducible();
    void promisedCases_data();
    void promisedCases();
    void picturesAndPdfsWellFormed();

private:
    DemoFixture m_fx;
};

void TestDemo::initTestCase()
{
    QVERIFY2(m_fx.setUp(), qPrintable(m_fx.error));
}

void TestDemo::reproducible()
{
    QTemporaryDir other;
    QString error;
    const QString second = writeDemo(other.path(), &error);
    QVERIFY2(!second.isEmpty(), qPrintable(error));
    QCOMPARE(sha256OfTree(second), sha256OfTree(m_fx.demo));
    // Exactly the demo's files: no journals, no WAL side files, no database for Initech.
    QStringList expected = demo::demoFileNames();
    expected.sort();
    QCOMPARE(QDir(second).entryList(QDir::Files | QDir::Hidden, QDir::Name), expected);
    QVERIFY(!expected.contains(QStringLiteral("Initech.sqlite")));
}

void TestDemo::promisedCases_data()
{
    QTest::addColumn<QString>("database");
    QTest::addColumn<QString>("sql");
    QTest::addColumn<QString>("expected");
    const auto row = [](const QByteArray &name, const char *db, const char *sql, const char *expected) {
        QTest::newRow(name.constData()) << QString::fromLatin1(db) << QString::fromUtf8(sql) << QString::fromUtf8(expected);
    };
    // Consistency of both companies: one root; every parent exists; every folder has a name path
    // and sits in a folder list; the matrix holds exactly the ancestor pairs the parent links give;
    // every document lies in a folder and is live (bytes here) or archived (none here), not both.
    for (const char *company : {"Acme", "Globex", "Twofold"}) {
        const QByteArray c = QByteArray(company) + ": ";
        row(c + "root", company, "select group_concat(Rec_ID || Folder_Type) from zar_Folder where Folder_Parent = 0",
            "1ROOT");
        row(c + "folders", company, "select count(*) from zar_Folder where (Folder_Parent <> 0 and Folder_Parent not in "
            "(select Rec_ID from zar_Folder)) or Rec_ID not in (select rec_id from zar_folder_name_path) or Rec_ID not "
            "in (select rec_id from zar_FolderLive union select rec_id from ZAR_FolderArchived)", "0");
        row(c + "matrix", company, "with recursive up(p, c, n) as (select Folder_Parent, Rec_ID, 1 from zar_Folder "
            "where Folder_Parent <> 0 union all select f.Folder_Parent, up.c, up.n + 1 from up join zar_Folder f on "
            "f.Rec_ID = up.p where f.Folder_Parent <> 0), m as (select parent_rec_id, child_rec_id, relative_level_no "
            "from zar_folder_matrix) select ((select count(*) from (select * from up except select * from m)) + (select "
            "count(*) from (select * from m except select * from up)) + (select count(*) from m) - (select count(*) "
            "from (select distinct * from m))) || '/' || (select count(*) from m)", company[0] == 'A' ? "0/61" : company[0] == 'G' ? "0/4" : "0/2");
        row(c + "documents", company, "select count(*) from zar_file where folder_rec_id not in (select Rec_ID from "
            "zar_Folder) or (rec_id in (select rec_id from zar_fileLive) and file_data is not null) + (rec_id in "
            "(select rec_id from ZAR_FileArchived) and file_data is null) <> 1", "0");
    }
    row("catalogue", "zar_Master", "select group_concat(Com_db || ':' || com_type, ' ') from (select * from "
        "com_company order by Com_db)", "Acme:L AcmeArchive:A Globex:l Initech:L Scratch:L Twofold:L TwofoldArchive:A VandelayArchive:a");
    row("pairing", "zar_Master", "select group_concat(a.com_db || '>' || ifnull(l.com_db, '-'), ' ') from "
        "com_company a left join com_company l on l.com_id = a.live_com_id where a.com_type in ('A', 'a')",
        "AcmeArchive>Acme VandelayArchive>- TwofoldArchive>Twofold");
    row("Scratch has no repository tables", "Scratch", "select count(*) from sqlite_master where name like 'zar%'", "0");
    // Titles that file names cannot hold as they stand: every forbidden mark, outer blanks, empty,
    // blanks only, too long, non-ASCII; stored names without a point or with a trailing blank.
    row("awkward titles", "Acme", "select group_concat(rec_id) from (select rec_id from zar_file where File_Description "
        "in ('All marks \\ / : * ? \" < > | here', '  Padded title  ', '', '   ', 'Résumé Müller') or "
        "length(File_Description) > 255 order by rec_id)", "1015,1016,1019,1020,1021,1022,1046");
    row("awkward names", "Acme", "select group_concat(rec_id) from (select rec_id from zar_file where instr(File_Name, "
        "'.') = 0 or File_Name like '% ' order by rec_id)", "1021,1022,1023,1024,1048");
    row("duplicate titles in one folder", "Acme", "select group_concat(rec_id || ':' || folder_rec_id || substr(File_Name, "
        "-4)) from zar_file where File_Description = 'Duplicate title'", "1017:7.txt,1018:7.txt");
    row("dates with ms and nulls", "Acme", "select group_concat(rec_id || '=' || ifnull(FileActualDate, '-') || '/' || "
        "ifnull(File_DateUploaded, '-'), ' ') from zar_file where rec_id between 1007 and 1010 or (FileActualDate is "
        "null and rec_id > 1010)", "1007=2016-03-05 14:07:09.250/2016-03-06 08:00:00.000 1008=-/2015-12-31 23:59:59.000 "
        "1009=-/- 1010=2014-07-01 08:30:00.005/2014-07-02 09:00:00.000");
    // Every date has the fixed layout the date query expects, and SQLite reads it as a date.
    row("date layout", "Acme", "select count(*) from zar_file where strftime('%Y-%m-%d %H:%M:%f', FileActualDate) is "
        "not FileActualDate or strftime('%Y-%m-%d %H:%M:%f', File_DateUploaded) is not File_DateUploaded", "0");
    row("icons outside 1..11 (picture carry-over)", "Acme", "select group_concat(Rec_ID) from zar_Folder where "
        "Folder_Type = 'FOLDER' and (Icon_rec_id < 1 or Icon_rec_id > 11)", "8,12,19,35");
    row("deep chain", "Acme", "select relative_level_no from zar_folder_matrix where parent_rec_id = 14 and "
        "child_rec_id = 27", "3");
    // The duplicate-key case lives in a company of its own, so that Acme's archive opens everywhere.
    row("folder in both lists", "Twofold", "select rec_id from zar_FolderLive intersect select rec_id from "
        "ZAR_FolderArchived", "3");
    row("no folder in both lists in Acme", "Acme", "select count(*) from (select rec_id from zar_FolderLive intersect "
        "select rec_id from ZAR_FolderArchived)", "0");
    row("archived without bytes", "Acme", "select group_concat(rec_id) from ZAR_FileArchived where rec_id not in "
        "(select FileID from AcmeArchive.zar_FileArchive where length(FileData) > 0)", "1122");
    row("empty archived folder", "Acme", "select count(*) from zar_file where folder_rec_id = 37", "0");
    row("each document names itself", "Acme", "select count(*) from zar_file a left join AcmeArchive.zar_FileArchive "
        "b on b.FileID = a.rec_id where instr(ifnull(a.file_data, b.FileData), 'Document ' || a.rec_id || ':') = 0 "
        "and a.rec_id <> 1122", "0");
}

void TestDemo::promisedCases()
{
    QFETCH(QString, database);
    QFETCH(QString, sql);
    QFETCH(QString, expected);
    const QString path = QDir(m_fx.demo).filePath(database + ".sqlite");
    QVERIFY(QFile::exists(path));
    QCOMPARE(rows(path, sql).value(0).value(0).toString(), expected);
}

void TestDemo::picturesAndPdfsWellFormed()
{
    int png = 0, pdf = 0;
    const Rows docs = rows(QDir(m_fx.demo).filePath("Acme.sqlite"), "select a.rec_id, lower(trim(a.File_Name)), ifnull(a.file_data, "
                                                "b.FileData) from zar_file a left join AcmeArchive.zar_FileArchive b "
                                                "on b.FileID = a.rec_id where a.rec_id <> 1122");
    for (const QVariantList &row : docs) {
        const QByteArray data = row[2].toByteArray();
        const QByteArray label = "document " + QByteArray::number(row[0].toLongLong());
        if (row[1].toString().endsWith(QLatin1String(".png"))) {
            ++png;
            // Chunks: lengths add up to the file, every CRC matches, IHDR first, IEND last, and IDAT
            // inflates to exactly the raw rows of an 8-bit RGB picture.
            QVERIFY2(data.startsWith("\x89PNG\r\n\x1a\n"), label.constData());
            qsizetype pos = 8;
            QByteArray idat, types;
            quint32 width = 0, height = 0;
            while (pos + 12 <= data.size()) {
                const quint32 length = qFromBigEndian<quint32>(data.constData() + pos);
                const QByteArray typed = data.mid(pos + 4, 4 + length);
                QCOMPARE(qFromBigEndian<quint32>(data.constData() + pos + 8 + length), referenceCrc32(typed));
                types += typed.left(4) + ' ';
                if (typed.startsWith("IHDR")) {
                    width = qFromBigEndian<quint32>(typed.constData() + 4);
                    height = qFromBigEndian<quint32>(typed.constData() + 8);
                }
                if (typed.startsWith("IDAT"))
                    idat += typed.mid(4);
                pos += 12 + length;
            }
            QCOMPARE(pos, data.size());
            QVERIFY2(types.startsWith("IHDR ") && types.endsWith("IEND "), types.constData());
            QByteArray sized(4, '\0');
            qToBigEndian(quint32(height * (1 + width * 3)), sized.data());
            QCOMPARE(qUncompress(sized + idat).size(), qsizetype(height * (1 + width * 3)));
        } else if (row[1].toString().endsWith(QLatin1String(".pdf"))) {
            ++pdf;
            // startxref names the offset of the table, and each entry the offset of its object.
            QVERIFY2(data.startsWith("%PDF-1.") && data.endsWith("%%EOF\n") && data.contains("/Type /Catalog"), label.constData());
            const qsizetype sx = data.lastIndexOf("startxref\n");
            const qsizetype xref = data.mid(sx + 10).split('\n').first().toLongLong();
            QVERIFY2(sx > 0 && data.mid(xref, 5) == "xref\n", label.constData());
            const QList<QByteArray> lines = data.mid(xref).split('\n');
            const int objects = lines.value(1).split(' ').value(1).toInt();
            QVERIFY2(objects >= 4, label.constData());
            for (int n = 1; n < objects; ++n)
                QVERIFY2(data.mid(lines.value(2 + n).left(10).toLongLong()).startsWith(QByteArray::number(n) + " 0 obj"),
                         label.constData());
        }
    }
    QVERIFY(png >= 3 && pdf >= 5);
}

QTEST_GUILESS_MAIN(TestDemo)
#include "test_demo.moc"
