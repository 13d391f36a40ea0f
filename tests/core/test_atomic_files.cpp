// The disk layer's files on a real directory: a document is written under a temporary name,
// dated there and renamed into place; a reader that fails part way, a name that cannot be taken
// and the leftovers of a killed run never leave anything under a document's name.

#include "errors/hunterr.h"
#include "testsupport.h"
#include "export/exportdisk.h"
#include "export/hashingreader.h"

#include <algorithm>
#include <vector>

using exporting::ExportDisk;
using exporting::HashingReader;

namespace {

// Gives its bytes in small pieces and fails after failAfter bytes (never, when negative).
class FailingReader final : public repo::ValueReader {
public:
    FailingReader(QByteArray bytes, qint64 failAfter) : m_bytes(std::move(bytes)), m_failAfter(failAfter) {}
    qint64 read(char *buffer, qint64 max) override
    {
        if (m_failAfter >= 0 && m_pos >= m_failAfter)
            HuntERR::raise(HuntERR::ERR_GENERAL, QStringLiteral("the connection was closed"));
        const qint64 n = std::min<qint64>({max, 1000, m_bytes.size() - m_pos});
        memcpy(buffer, m_bytes.constData() + m_pos, size_t(n));
        m_pos += n;
        return n;
    }

private:
    QByteArray m_bytes;
    qint64 m_failAfter;
    qint64 m_pos = 0;
};

QStringList entries(const QString &dir)
{
    return QDir(dir).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
}

} // namespace

class TestAtomicFiles : public QObject {
    Q_OBJECT

    QTemporaryDir m_tmp;

private slots:
    void stagedDatedRenamed_data()
    {
        QTest::addColumn<qint64>("failAfter");  // -1: the reader gives everything
        QTest::addColumn<bool>("directoryInWay"); // a directory stands at the document's name
        QTest::addColumn<QStringList>("after");   // the directory's entries at the end
        QTest::newRow("complete") << qint64(-1) << false << QStringList{QStringLiteral("doc.txt")};
        QTest::newRow("reader fails part way") << qint64(2500) << false << QStringList{};
        QTest::newRow("reader fails at once") << qint64(0) << false << QStringList{};
        QTest::newRow("name taken by a directory, fallback used")
            << qint64(-1) << true << QStringList{QStringLiteral("[7].txt"), QStringLiteral("doc.txt")};
    }

    void stagedDatedRenamed()
    {
        QFETCH(qint64, failAfter);
        QFETCH(bool, directoryInWay);
        QFETCH(QStringList, after);
        const QString dest = m_tmp.filePath(QString::fromLatin1(QTest::currentDataTag()));
        const QString dir = dest + QStringLiteral("/Folder");
        QVERIFY(QDir().mkpath(dir));
        // What a killed run of another process left, and a file of the person's own.
        for (const char *name : {".parcelwise-999999-3.part", "notes.parcelwise-1.part"}) {
            QFile f(dir + QLatin1Char('/') + QLatin1String(name));
            QVERIFY(f.open(QIODevice::WriteOnly));
        }
        after << QStringLiteral("notes.parcelwise-1.part");
        if (directoryInWay)
            QVERIFY(QDir().mkpath(dir + QStringLiteral("/doc.txt")));
        after.sort();

        QByteArray bytes(5000, 'x');
        for (int i = 0; i < bytes.size(); ++i)
            bytes[i] = char(i * 7);
        FailingReader inner(bytes, failAfter);
        HashingReader reader(inner);
        ExportDisk disk(dest, false);
        const QString file = dir + QStringLiteral("/doc.txt");
        const QDateTime when = QDateTime(QDate(2016, 3, 5), QTime(14, 7, 9), Qt::UTC);
        try {
            QCOMPARE(disk.stageFile(file, reader), qint64(bytes.size()));
            QVERIFY(failAfter < 0);
            // Dated under its temporary name: nothing is under the document's name yet.
            QVERIFY(disk.dateFile(file, when) == when);
            QVERIFY(!QFileInfo(file).isFile());
            try {
                disk.commitFile(file, file);
                QVERIFY(!directoryInWay);
            } catch (const HuntERR::Error &e) {
                QVERIFY(directoryInWay);
                QCOMPARE(e.number(), HuntERR::ERR_WRITE_FAILED);
                disk.commitFile(file, dir + QStringLiteral("/[7].txt"));
            }
        } catch (const HuntERR::Error &e) {
            QVERIFY2(failAfter >= 0, qPrintable(e.description()));
        }
        QCOMPARE(entries(dir), after);
        if (failAfter < 0) {
            const QString written = directoryInWay ? dir + QStringLiteral("/[7].txt") : file;
            QFile f(written);
            QVERIFY(f.open(QIODevice::ReadOnly));
            QCOMPARE(f.readAll(), bytes);
            QCOMPARE(QFileInfo(written).lastModified().toUTC(), when);
            QCOMPARE(reader.sha256(), QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex()));
            QVERIFY(disk.wroteThisRun(written));
        }
    }

    // A directory looked at, then removed and made again by the run: what the run looks at
    // afterwards is the new directory, never the one it removed.
    void removedDirectoryIsLookedAtAnew()
    {
        const QString dest = m_tmp.filePath(QStringLiteral("again"));
        const QString dir = dest + QStringLiteral("/A/B");
        QVERIFY(QDir().mkpath(dir));
        QFile old(dir + QStringLiteral("/old.txt"));
        QVERIFY(old.open(QIODevice::WriteOnly) && old.write("old") == 3);
        old.close();
        ExportDisk disk(dest, false);
        qint64 size = 0;
        QDateTime date;
        QVERIFY(disk.fileFacts(dir + QStringLiteral("/old.txt"), &size, &date) && size == 3);
        disk.removeDirectory(dest + QStringLiteral("/A"));
        disk.makeDirectory(dest + QStringLiteral("/A"));
        disk.makeDirectory(dir);
        QFile made(dir + QStringLiteral("/new.txt"));
        QVERIFY(made.open(QIODevice::WriteOnly) && made.write("new!") == 4);
        made.close();
        QVERIFY(disk.fileFacts(dir + QStringLiteral("/new.txt"), &size, &date) && size == 4);
    }
};

QTEST_GUILESS_MAIN(TestAtomicFiles)
#include "test_atomic_files.moc"
