// The demo repository is the ground every other test stands on: it must be reproducible to the
// byte, its tables consistent and its files well formed. (The awkward cases it holds are checked
// where they matter: by the exports, trees and sign-ins that meet them.)

#include "demo/demorepository.h"
#include "testsupport.h"

#include <QSqlRecord>
#include <QtEndian>

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
    void initTestCase()
    {
        QVERIFY2(m_fx.setUp(), qPrintable(m_fx.error));
    }

    void reproducible()
    {
        QTemporaryDir other;
        QString error;
        const QString second = writeDemo(other.path(), &error);
        QVERIFY2(!second.isEmpty(), qPrintable(error));
        QCOMPARE(treeSnapshot(second, {}), treeSnapshot(m_fx.demo, {}));
        // Exactly the demo's files: no journals, no WAL side files, no database for Initech.
        QStringList expected = demo::demoFileNames();
        expected.sort();
        QCOMPARE(QDir(second).entryList(QDir::Files | QDir::Hidden, QDir::Name), expected);
        QVERIFY(!expected.contains(QStringLiteral("Initech.sqlite")));
    }

    void consistentTables_data()
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
        // Every date has the fixed layout the date query expects, and SQLite reads it as a date.
        row("date layout", "Acme", "select count(*) from zar_file where strftime('%Y-%m-%d %H:%M:%f', FileActualDate) is "
            "not FileActualDate or strftime('%Y-%m-%d %H:%M:%f', File_DateUploaded) is not File_DateUploaded", "0");
        row("each document names itself", "Acme", "select count(*) from zar_file a left join AcmeArchive.zar_FileArchive "
            "b on b.FileID = a.rec_id where instr(ifnull(a.file_data, b.FileData), 'Document ' || a.rec_id || ':') = 0 "
            "and a.rec_id <> 1122", "0");
    }

    void consistentTables()
    {
        QFETCH(QString, database);
        QFETCH(QString, sql);
        QFETCH(QString, expected);
        const QString path = QDir(m_fx.demo).filePath(database + ".sqlite");
        QVERIFY(QFile::exists(path));
        QCOMPARE(rows(path, sql).value(0).value(0).toString(), expected);
    }

    void picturesAndPdfsWellFormed()
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

private:
    DemoFixture m_fx;
};

QTEST_GUILESS_MAIN(TestDemo)
#include "test_demo.moc"
