// Documents streamed to their files, one at a time and several at once (export --jobs), on the
// embedded server and through FreeTDS to the SQL Server stand-in. The built executable is run as
// a person runs it. The repository is the demo with documents added for this: one exactly a
// chunk long and one several chunks long, titles that clean alike with a failing document among
// them, a title that cannot be a file name and one that takes its fallback name. Every run also
// writes its report, which must come out the same for every number of jobs, as the disk and the
// log do.

#include "errors/hunterr.h"
#include "clirun.h"
#include "export/exportreport.h"
#include "repository/connection.h"
#include "testsupport.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRandomGenerator>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

using exporting::ExportRecord;
using exporting::fromJsonLine;
using exporting::reportStatusText;

namespace {

constexpr qint64 kChunk = 1024 * 1024; // what the disk layer reads and writes at a time
constexpr qint64 kLarge = 3 * kChunk + 17;
constexpr qint64 kDocs = 7; // the demo's "Docs" folder

QByteArray noise(qint64 size, quint32 seed)
{
    QByteArray b(size, Qt::Uninitialized);
    QRandomGenerator g(seed);
    for (qint64 i = 0; i < size; ++i)
        b[i] = char(g.generate() & 0xff);
    return b;
}

struct Doc {
    qint64 id;
    const char *file, *title;
    qint64 size; // -1: no bytes stored (the document fails)
};

// In title order within each equal title, by id (the order SQLite lists them in).
const Doc kAdded[] = {
    {3001, "exact.bin", "Chunk exact", kChunk},
    {3002, "large.bin", "Chunk plus", kLarge},
    {3003, "a.txt", "Clash", 100},
    {3004, "b.txt", "Clash", -1}, // fails: the next "Clash" still gets the suffix of its own id
    {3005, "c.txt", "Clash", 200},
    {3006, "d.txt", "Clash", 300},
    {3007, "long.bin", nullptr, 10},   // a title far longer than a file name: "[3007].bin" ...
    {3008, "taken.bin", "[3007]", 20}, // ... which this one, sorted before it, already took
};
constexpr qint64 kBigId = 3009;
constexpr qint64 kBig = 40 * kChunk; // zeros, in "Docs"

QString longTitle()
{
    return QString(300, QLatin1Char('L'));
}

bool addDocuments(const QString &server, QString *error)
{
    const QString name = QStringLiteral("streaming-fixture");
    bool ok = true;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        db.setDatabaseName(server + QStringLiteral("/Acme.sqlite"));
        ok = db.open();
        QSqlQuery q(db);
        for (const Doc &d : kAdded) {
            if (!ok)
                break;
            q.prepare(QStringLiteral("insert into zar_file (rec_id, folder_rec_id, File_Name, File_Description, "
                                     "FileActualDate, file_data) values (?, ?, ?, ?, '2017-04-05 06:07:08.000', ?)"));
            q.addBindValue(d.id);
            q.addBindValue(kDocs);
            q.addBindValue(QString::fromLatin1(d.file));
            q.addBindValue(d.title ? QString::fromLatin1(d.title) : longTitle());
            q.addBindValue(d.size < 0 ? QVariant(QMetaType::fromType<QByteArray>()) : QVariant(noise(d.size, quint32(d.id))));
            ok = q.exec();
            q.prepare(QStringLiteral("insert into zar_fileLive (rec_id) values (?)"));
            q.addBindValue(d.id);
            ok = ok && q.exec();
            if (!ok)
                *error = q.lastError().text();
        }
        q.prepare(QStringLiteral("insert into zar_file (rec_id, folder_rec_id, File_Name, File_Description, file_data) "
                                 "values (?, ?, 'zeros.bin', 'Zeros', zeroblob(?))"));
        q.addBindValue(kBigId);
        q.addBindValue(kDocs);
        q.addBindValue(kBig);
        ok = ok && q.exec() && q.exec(QStringLiteral("insert into zar_fileLive (rec_id) values (%1)").arg(kBigId));
        q = QSqlQuery();
        db.close();
    }
    QSqlDatabase::removeDatabase(name);
    return ok;
}

// Every directory and file below dir: relative path, size, SHA-256 and the modification time
// taken from the repository ("undated" for a file written after since, which kept its own).
QStringList treeOf(const QString &dir, const QDateTime &since)
{
    QStringList out;
    QDirIterator it(dir, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QFileInfo info(path);
        const QString rel = QDir(dir).relativeFilePath(path);
        if (info.isDir()) {
            out << rel + u'/';
            continue;
        }
        QFile f(path);
        if (!f.open(QIODevice::ReadOnly))
            return {QStringLiteral("unreadable ") + rel};
        QCryptographicHash h(QCryptographicHash::Sha256);
        h.addData(&f);
        out << QStringLiteral("%1 %2 %3 %4")
                   .arg(rel)
                   .arg(info.size())
                   .arg(QString::fromLatin1(h.result().toHex().left(16)))
                   .arg(info.lastModified() < since ? QString::number(info.lastModified().toMSecsSinceEpoch())
                                                     : QStringLiteral("undated"));
    }
    out.sort();
    return out;
}

// Resident memory of this process; -1 where the system does not tell.
qint64 residentBytes()
{
    QFile statm(QStringLiteral("/proc/self/statm"));
    if (!statm.open(QIODevice::ReadOnly))
        return -1;
    const QList<QByteArray> fields = statm.readAll().split(' ');
    return fields.size() > 1 ? fields.at(1).toLongLong() * 4096 : -1;
}

struct Run {
    int exitCode = -1;
    QString err;
    QString out;
    QStringList tree;
    QString log; // with the run's own folder taken out
    QString report; // likewise
};

} // namespace

class TestStreaming : public QObject {
    Q_OBJECT

    DemoFixture m_fx;
    CliRunner m_cli;
    QString m_folder;
    QProcess m_standin;
    QProcess m_cutting; // drops the connection part way through any reply over 2 MiB
    QString m_wire, m_cutWire;
    QDateTime m_started;

    bool startStandin(QProcess &p, const QStringList &extra, QString *server)
    {
        const int port = ::startStandin(p, m_folder, extra);
        *server = QStringLiteral("127.0.0.1,%1").arg(port);
        return port > 0;
    }

    // An export of the demo repository on server into a folder of its own; extra options after
    // the usual ones. Every run but a dry one writes a report.
    Run exportRun(const QString &server, const QString &name, const QStringList &extra, const QString &embeddedDriver = {},
                  const QString &database = QStringLiteral("Acme"))
    {
        Run r;
        const QString base = m_fx.filePath(name);
        const QString dest = base + QStringLiteral("/out");
        const QString logs = base + QStringLiteral("/logs");
        const QString report = base + QStringLiteral("/report.jsonl");
        QDir().mkpath(logs);
        QStringList args = demoArgs(QStringLiteral("export"), server, database)
                           << QStringLiteral("--dest") << dest << QStringLiteral("--log-dir") << logs
                           << QStringLiteral("--no-progress") << extra;
        if (!extra.contains(QStringLiteral("--dry-run")))
            args << QStringLiteral("--report") << report;
        QMap<QString, QString> env{{QStringLiteral("PARCELWISE_ODBC_DRIVER"), QStringLiteral("FreeTDS")},
                                   {QStringLiteral("TZ"), QStringLiteral("UTC")}};
        if (!embeddedDriver.isEmpty())
            env.insert(QStringLiteral("PARCELWISE_EMBEDDED_DRIVER"), embeddedDriver);
        const CliResult run = m_cli.run(args, {}, env);
        r.exitCode = run.exitCode;
        r.out = QString(run.out).replace(base, QStringLiteral("RUN"));
        r.err = run.err;
        r.tree = treeOf(dest, m_started);
        for (const QFileInfo &log : QDir(logs).entryInfoList(QDir::Files))
            r.log += QString::fromUtf8(fileBytes(log.filePath())).replace(base, QStringLiteral("RUN"));
        r.report = QString::fromUtf8(fileBytes(report)).replace(base, QStringLiteral("RUN"));
        return r;
    }

private slots:
    void initTestCase();
    void cleanupTestCase();
    void sameForEveryNumberOfJobs_data();
    void sameForEveryNumberOfJobs();
    void interruptedRead();
    void streamedRows();
};

void TestStreaming::initTestCase()
{
    m_started = QDateTime::currentDateTime().addSecs(-1);
    QVERIFY2(!qEnvironmentVariable("PARCELWISE_EXE").isEmpty(), "PARCELWISE_EXE names the built executable");
    QVERIFY2(m_fx.setUp(), qPrintable(m_fx.error));
    m_folder = m_fx.demo;
    m_cli.home = m_fx.filePath(QStringLiteral("home"));
    QString error;
    QVERIFY2(addDocuments(m_folder, &error), qPrintable(error));
    if (odbcDriverRegistered(QStringLiteral("FreeTDS"))) {
        QVERIFY2(startStandin(m_standin, {}, &m_wire), "the stand-in did not start");
        QVERIFY2(startStandin(m_cutting, {QStringLiteral("--cut-replies-over"), QString::number(2 * kChunk)}, &m_cutWire),
                 "the cutting stand-in did not start");
    }
}

void TestStreaming::cleanupTestCase()
{
    for (QProcess *p : {&m_standin, &m_cutting}) {
        if (p->state() != QProcess::NotRunning) {
            p->closeWriteChannel(); // its cue to end
            if (!p->waitForFinished(10000))
                p->kill();
        }
    }
}

void TestStreaming::sameForEveryNumberOfJobs_data()
{
    QTest::addColumn<bool>("wire");
    QTest::addColumn<QString>("embeddedDriver");
    QTest::addColumn<QString>("database");
    const QString live = QStringLiteral("Acme");
    const QString archive = QStringLiteral("AcmeArchive");
    QTest::newRow("embedded server") << false << QString() << live;
    QTest::newRow("embedded server, SQLite through ODBC") << false << QStringLiteral("odbc") << live;
    QTest::newRow("SQL Server stand-in") << true << QString() << live;
    QTest::newRow("embedded server, archive") << false << QString() << archive;
    QTest::newRow("SQL Server stand-in, archive") << true << QString() << archive;
}

void TestStreaming::sameForEveryNumberOfJobs()
{
    QFETCH(bool, wire);
    QFETCH(QString, embeddedDriver);
    QFETCH(QString, database);
    if (wire && m_wire.isEmpty())
        QSKIP("FreeTDS's ODBC driver is not registered (scripts/setup.sh installs tdsodbc)");
    if (!embeddedDriver.isEmpty() && !odbcDriverRegistered(QStringLiteral("SQLite3")))
        QSKIP("the SQLite3 ODBC driver is not registered");
    const QString server = wire ? m_wire : m_folder;
    const QString tag = QString::fromLatin1(QTest::currentDataTag()).replace(u' ', u'-').remove(u',');
    const auto jobs = [](const char *n) { return QStringList{QStringLiteral("--all"), QStringLiteral("--jobs"), QLatin1String(n)}; };
    const Run one = exportRun(server, tag + QStringLiteral("-1"), jobs("1"), embeddedDriver, database);
    const Run four = exportRun(server, tag + QStringLiteral("-4"), jobs("4"), embeddedDriver, database);
    const Run dry = exportRun(server, tag + QStringLiteral("-dry"), jobs("4") << QStringLiteral("--dry-run"), embeddedDriver, database);

    QCOMPARE(four.tree, one.tree);
    QCOMPARE(four.log, one.log);
    QVERIFY(!one.report.isEmpty());
    QCOMPARE(four.report.split(u'\n'), one.report.split(u'\n')); // every record, in the same order
    QCOMPARE(four.err.section(u',', 0, 3), one.err.section(u',', 0, 3)); // the summary's counts
    QCOMPARE(four.exitCode, one.exitCode);
    if (database != QLatin1String("Acme")) {
        QVERIFY(one.tree.size() > 10);
        return;
    }
    QCOMPARE(one.exitCode, 1); // the documents without bytes or a name are logged

    // What the names came to, and the bytes, whole, at and across the chunk size.
    const QStringList expected = {
        QStringLiteral("Docs/Chunk exact.bin %1 ").arg(kChunk) + QString::fromLatin1(QCryptographicHash::hash(noise(kChunk, 3001), QCryptographicHash::Sha256).toHex().left(16)),
        QStringLiteral("Docs/Chunk plus.bin %1 ").arg(kLarge) + QString::fromLatin1(QCryptographicHash::hash(noise(kLarge, 3002), QCryptographicHash::Sha256).toHex().left(16)),
        QStringLiteral("Docs/Clash.txt 100 "),
        QStringLiteral("Docs/Clash [3005].txt 200 "),
        QStringLiteral("Docs/Clash [3006].txt 300 "),
        QStringLiteral("Docs/[3007].bin 20 "), // "[3007]" sorts first and takes the name
    };
    for (const QString &file : expected)
        QVERIFY2(!one.tree.filter(file).isEmpty(), qPrintable(file + QStringLiteral(" missing from\n") + one.tree.join(u'\n')));
    QVERIFY(one.tree.filter(QStringLiteral("Docs/Clash [3004]")).isEmpty());
    QVERIFY2(one.log.contains(QStringLiteral("File ID: 3004 , File Name: Clash ,")), qPrintable(one.log));
    // The long title's fallback name was taken by then: logged, nothing written for it.
    QVERIFY2(one.log.contains(QStringLiteral("File ID: 3007 , File Name: LLLL")), qPrintable(one.log));
    QCOMPARE(one.tree.filter(QStringLiteral("Docs/[3007]")).size(), 1);
    // The report says how each name came about, with the digest of the bytes as they streamed.
    QHash<qint64, ExportRecord> records;
    for (const QString &line : one.report.split(u'\n', Qt::SkipEmptyParts)) {
        ExportRecord r;
        QVERIFY2(fromJsonLine(line.toUtf8(), &r), qPrintable(line));
        if (r.kind == ExportRecord::Kind::Document)
            records.insert(r.id, r);
    }
    const QList<std::pair<qint64, QString>> statuses = {{3002, QStringLiteral("written")}, {3004, QStringLiteral("failed")},
                                                        {3005, QStringLiteral("renamed")}, {3007, QStringLiteral("failed")},
                                                        {3008, QStringLiteral("written")}};
    for (const auto &[id, status] : statuses)
        QCOMPARE(reportStatusText(records.value(id).status), status);
    QCOMPARE(records.value(3005).path, QStringLiteral("Docs/Clash [3005].txt"));
    QCOMPARE(records.value(3004).message, QStringLiteral("Document 3004 has no stored bytes"));
    QCOMPARE(records.value(3002).bytes, kLarge);
    QCOMPARE(records.value(3002).sha256,
             QString::fromLatin1(QCryptographicHash::hash(noise(kLarge, 3002), QCryptographicHash::Sha256).toHex()));
    // Dated from the repository (TZ=UTC): 2017-04-05 06:07:08.
    const QString dated = QString::number(QDateTime(QDate(2017, 4, 5), QTime(6, 7, 8), Qt::UTC).toMSecsSinceEpoch());
    QVERIFY(one.tree.filter(QStringLiteral("Chunk plus.bin %1 ").arg(kLarge)).value(0).endsWith(u' ' + dated));

    // A dry run still knows every size without reading the bytes.
    QCOMPARE(dry.exitCode, 1);
    QVERIFY2(dry.out.contains(QStringLiteral("Chunk plus.bin  (%1 bytes)").arg(kLarge)), qPrintable(dry.out));
    QVERIFY(dry.tree.isEmpty());
}

// The server goes away in the middle of a document: the document is logged, and no file (whole
// or torn) stands under its name.
void TestStreaming::interruptedRead()
{
    if (m_cutWire.isEmpty())
        QSKIP("FreeTDS's ODBC driver is not registered (scripts/setup.sh installs tdsodbc)");
    for (const QString &jobs : {QStringLiteral("1"), QStringLiteral("4")}) {
        const Run r = exportRun(m_cutWire, QStringLiteral("cut-") + jobs,
                                {QStringLiteral("--folder"), QStringLiteral("Docs"), QStringLiteral("--jobs"), jobs});
        QCOMPARE(r.exitCode, 1);
        QVERIFY2(r.log.contains(QStringLiteral("File ID: 3002 , ")), qPrintable(r.log));
        QVERIFY2(r.tree.filter(QStringLiteral("Chunk plus")).isEmpty(), qPrintable(r.tree.join(u'\n')));
        // What came before it is there, whole.
        QVERIFY2(!r.tree.filter(QStringLiteral("Docs/Chunk exact.bin %1 ").arg(kChunk)).isEmpty(), qPrintable(r.tree.join(u'\n')));
    }
}

// The connection's streamed rows: the other columns, the value a chunk at a time (on the
// embedded server straight from the file, never whole in memory), NULL, no row, and a stream
// ended by the next statement.
void TestStreaming::streamedRows()
{
    for (const bool wire : {false, true}) {
        if (wire && m_wire.isEmpty())
            continue;
        repo::Connection cn;
        cn.open(QStringLiteral("User ID=demo;Initial Catalog=Acme;Data Source=%1;Password=").arg(wire ? m_wire : m_folder));
        const auto document = [](qint64 id) {
            return QStringLiteral("Select a.File_name, a.File_Description, a.file_data  FROM ZAR_File a, zar_FileLive b "
                                  " WHERE (a.rec_id = b.rec_id and a.Rec_ID =%1)")
                .arg(id);
        };
        const qint64 before = residentBytes();
        repo::StreamedRow row = cn.executeStreamed(document(kBigId));
        QVERIFY(!row.fields.eof());
        QCOMPARE(row.fields.text(QStringLiteral("File_Description")), QStringLiteral("Zeros"));
        QCOMPARE(row.fields.text(QStringLiteral("File_name")), QStringLiteral("zeros.bin"));
        QCOMPARE(row.fields.fieldNames().size(), 2);
        QVERIFY(row.value);
        QCOMPARE(row.value->size(), kBig);
        QByteArray chunk(int(kChunk), 'x');
        qint64 total = 0, n = 0;
        bool zeros = true;
        while ((n = row.value->read(chunk.data(), kChunk)) > 0) {
            total += n;
            zeros = zeros && chunk.left(int(n)).count('\0') == n;
        }
        QCOMPARE(total, kBig);
        QVERIFY(zeros);
        // FreeTDS takes in the whole row before it hands out a piece; the embedded server never does.
        if (!wire && before > 0)
            QVERIFY2(residentBytes() - before < kBig / 2, qPrintable(QString::number(residentBytes() - before)));
        row = repo::StreamedRow();

        row = cn.executeStreamed(document(3004)); // stored without bytes
        QVERIFY(!row.fields.eof());
        QCOMPARE(row.fields.text(QStringLiteral("File_Description")), QStringLiteral("Clash"));
        QVERIFY(!row.value);
        row = cn.executeStreamed(document(999999)); // no such document
        QVERIFY(row.fields.eof());
        QVERIFY(!row.value);

        // The next statement ends a stream still open; reading it then fails, it does not crash.
        row = cn.executeStreamed(document(3002));
        QVERIFY(row.value);
        QVERIFY(row.value->read(chunk.data(), 100) == 100);
        QCOMPARE(cn.execute(QStringLiteral("select count(*) as n from zar_fileLive")).value(QStringLiteral("n")).toInt() > 0, true);
        bool raised = false;
        try {
            row.value->read(chunk.data(), kChunk);
        } catch (const HuntERR::Error &) {
            raised = true;
        }
        QVERIFY2(raised, wire ? "wire" : "embedded");
    }
}

QTEST_GUILESS_MAIN(TestStreaming)
#include "test_streaming.moc"
