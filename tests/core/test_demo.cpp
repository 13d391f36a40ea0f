// The demo repository is the ground every other test stands on: it must be reproducible to the
// byte and its files well formed. (Its tables and the awkward cases it holds are checked where
// they matter: by the trees, exports and sign-ins that read them.)

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
