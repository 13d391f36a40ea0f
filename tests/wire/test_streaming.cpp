// Documents streamed to their files, one at a time and several at once (export --jobs), on the
// embedded server and through FreeTDS to the SQL Server stand-in. The built executable is run as
// a person runs it. The repository is the demo with documents added for this: one exactly a
// chunk long and ones several chunks long (their bytes never repeat, so a chunk put at the wrong
// offset shows), an empty one, titles that clean alike with a failing document among them, a
// title that cannot be a file name and one that takes its fallback name. Every run also writes
// its report, which must come out the same for every number of jobs, as the disk and the log
// do; on the stand-in all three, and every statement sent, are the embedded server's, encrypted
// or not, and whatever order the server gives rows that tie.

#include "errors/hunterr.h"
#include "clirun.h"
#include "export/exportreport.h"
#include "repository/connection.h"
#include "testsupport.h"

#include <QRandomGenerator>
#include <QScopeGuard>

#include <thread>

using exporting::ExportRecord;
using exporting::fromJsonLine;
using exporting::reportStatusText;

namespace {

constexpr qint64 kChunk = 1024 * 1024; // what the disk layer reads and writes at a time
constexpr qint64 kLarge = 3 * kChunk + 17;
constexpr qint64 kDocs = 7; // the demo's "Docs" folder
constexpr qint64 kBigId = 3009;
constexpr qint64 kBig = 40 * kChunk; // in "Docs"

QString sha256(const QByteArray &bytes)
{
    return QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex());
}

// In title order within each equal title, by id (the order SQLite lists them in). 3004 is
// stored without bytes: it fails, and the next "Clash" still gets the suffix of its own id.
// 3007's title is far longer than a file name: "[3007]", 3008's title, is its own fallback name.
// "Noise", 40 MiB, sorts after the chunk documents, so the cutting stand-in drops it after them.
QList<demo::Document> addedDocuments()
{
    const auto doc = [](qint64 id, qint64 folder, const char *file, const QString &title, qint64 size,
                        const char *actual = "2017-04-05 06:07:08.000") {
        demo::Document d;
        d.recId = id;
        d.folder = folder;
        d.fileName = QString::fromLatin1(file);
        d.description = title;
        d.data = noise(size, quint32(id));
        d.actualDate = QString::fromLatin1(actual);
        return d;
    };
    QList<demo::Document> docs{
        doc(3001, kDocs, "exact.bin", QStringLiteral("Chunk exact"), kChunk),
        doc(3002, kDocs, "large.bin", QStringLiteral("Chunk plus"), kLarge),
        doc(3003, kDocs, "a.txt", QStringLiteral("Clash"), 100),
        doc(3004, kDocs, "b.txt", QStringLiteral("Clash"), 0),
        doc(3005, kDocs, "c.txt", QStringLiteral("Clash"), 200),
        doc(3006, kDocs, "d.txt", QStringLiteral("Clash"), 300),
        doc(3007, kDocs, "long.bin", QString(300, QLatin1Char('L')), 10),
        doc(3008, kDocs, "taken.bin", QStringLiteral("[3007]"), 20),
        doc(kBigId, kDocs, "big.bin", QStringLiteral("Noise"), kBig),
        doc(3010, kDocs, "empty.txt", QStringLiteral("Empty document"), 0, ""),
        doc(3011, 28, "ledger-big.bin", QStringLiteral("Archived big ledger"), kLarge, ""),
        doc(3012, 28, "ledger-empty.txt", QStringLiteral("Archived empty ledger"), 0, ""),
    };
    docs[10].uploadedDate = QStringLiteral("2009-12-31 23:59:59.997");
    docs[10].lifecycle = docs[11].lifecycle = demo::Lifecycle::Archived;
    return docs;
}

// A live document's statement, as the export sends it.
QString document(qint64 id)
{
    return QStringLiteral("Select a.File_name, a.File_Description, a.file_data  FROM ZAR_File a, zar_FileLive b "
                          " WHERE (a.rec_id = b.rec_id and a.Rec_ID =%1)")
        .arg(id);
}

// The report's document records by id.
QHash<qint64, ExportRecord> documentRecords(const QString &report)
{
    QHash<qint64, ExportRecord> records;
    for (const QString &line : report.split(u'\n', Qt::SkipEmptyParts)) {
        ExportRecord r;
        if (fromJsonLine(line.toUtf8(), &r) && r.kind == ExportRecord::Kind::Document)
            records.insert(r.id, r);
    }
    return records;
}

struct Run {
    int exitCode = -1;
    QString err;
    QString out;
    QStringList tree;
    QString log;    // with the run's own folder taken out
    QString report; // likewise
    QByteArray trace;
};

} // namespace

class TestStreaming : public QObject {
    Q_OBJECT

    CliFixture m_cli;
    QString m_folder;
    StandinProcess m_standin;
    StandinProcess m_cutting; // drops the connection part way through any reply over 2 MiB
    QDateTime m_started;
    QMap<QString, Run> m_embedded; // the embedded server's one-job run of each database
    QString m_bigSha;

    // An export of the demo repository on server into a folder of its own; extra options after
    // the usual ones. Every run but a dry one writes a report.
    Run exportRun(const QString &server, const QString &name, const QStringList &extra, const QString &embeddedDriver = {},
                  const QString &database = QStringLiteral("Acme"), const QString &odbcOptions = {})
    {
        Run r;
        const QString base = m_cli.fx.filePath(name);
        const QString dest = base + QStringLiteral("/out");
        const QString logs = base + QStringLiteral("/logs");
        const QString report = base + QStringLiteral("/report.jsonl");
        QDir().mkpath(logs);
        QStringList args = demoArgs(QStringLiteral("export"), server, database)
                           << QStringLiteral("--dest") << dest << QStringLiteral("--log-dir") << logs
                           << QStringLiteral("--no-progress") << extra;
        if (!extra.contains(QStringLiteral("--dry-run")))
            args << QStringLiteral("--report") << report << QStringLiteral("--trace-sql") << base + QStringLiteral("/trace.sql");
        QMap<QString, QString> env{{QStringLiteral("PARCELWISE_ODBC_DRIVER"), QStringLiteral("FreeTDS")},
                                   {QStringLiteral("PARCELWISE_ODBC_OPTIONS"), odbcOptions},
                                   {QStringLiteral("TZ"), QStringLiteral("UTC")}};
        if (!embeddedDriver.isEmpty())
            env.insert(QStringLiteral("PARCELWISE_EMBEDDED_DRIVER"), embeddedDriver);
        const CliResult run = m_cli.run(args, {}, env);
        r.exitCode = run.exitCode;
        r.out = QString(run.out).replace(base, QStringLiteral("RUN"));
        r.err = run.err;
        r.tree = treeSnapshot(dest, m_started);
        r.trace = fileBytes(base + QStringLiteral("/trace.sql"));
        for (const QFileInfo &log : QDir(logs).entryInfoList(QDir::Files))
            r.log += QString::fromUtf8(fileBytes(log.filePath())).replace(base, QStringLiteral("RUN"));
        r.report = QString::fromUtf8(fileBytes(report)).replace(base, QStringLiteral("RUN"));
        return r;
    }

    // The demo's company database, on the embedded server or through the stand-in.
    QString acme(bool wire) const
    {
        return QStringLiteral("User ID=demo;Initial Catalog=Acme;Data Source=%1;Password=").arg(wire ? m_standin.server : m_folder);
    }

    // A one-job run on the stand-in: the same files, dates, log, report and statements as on the
    // embedded server.
    static void sameAsEmbedded(const Run &wire, const Run &embedded)
    {
        QVERIFY(wire.tree.size() > 10 && wire.trace.count('\n') > 20);
        QCOMPARE(wire.tree, embedded.tree);
        QCOMPARE(wire.log, embedded.log);
        QCOMPARE(wire.report.split(u'\n'), embedded.report.split(u'\n'));
        QCOMPARE(wire.trace, embedded.trace);
    }

private slots:
    void initTestCase()
    {
        m_started = QDateTime::currentDateTime().addSecs(-1);
        QVERIFY2(m_cli.setUp(), qPrintable(m_cli.fx.error));
        m_folder = m_cli.fx.demo;
        QString error;
        QVERIFY2(addDocuments(m_folder, addedDocuments(), &error, {3004}), qPrintable(error));
        m_bigSha = sha256(noise(kBig, kBigId));
        if (odbcDriverRegistered(QStringLiteral("FreeTDS"))) {
            QVERIFY2(m_standin.start(m_folder, {QStringLiteral("--tls")}), "the stand-in did not start");
            QVERIFY2(m_cutting.start(m_folder, {QStringLiteral("--cut-replies-over"), QString::number(2 * kChunk)}),
                     "the cutting stand-in did not start");
        }
    }

    void sameForEveryNumberOfJobs_data()
    {
        QTest::addColumn<bool>("wire");
        QTest::addColumn<QString>("embeddedDriver");
        QTest::addColumn<QString>("database");
        QTest::addColumn<QString>("odbcOptions");
        const QString live = QStringLiteral("Acme");
        const QString archive = QStringLiteral("AcmeArchive");
        QTest::newRow("embedded server") << false << QString() << live << QString();
        QTest::newRow("embedded server, SQLite through ODBC") << false << QStringLiteral("odbc") << live << QString();
        QTest::newRow("SQL Server stand-in") << true << QString() << live << QString();
        QTest::newRow("SQL Server stand-in, encrypted throughout") << true << QString() << live << QStringLiteral("Encryption=require");
        QTest::newRow("embedded server, archive") << false << QString() << archive << QString();
        QTest::newRow("SQL Server stand-in, archive") << true << QString() << archive << QString();
    }

    void sameForEveryNumberOfJobs()
    {
        QFETCH(bool, wire);
        QFETCH(QString, embeddedDriver);
        QFETCH(QString, database);
        QFETCH(QString, odbcOptions);
        if (wire && m_standin.server.isEmpty())
            QSKIP("FreeTDS's ODBC driver is not registered (scripts/setup.sh installs tdsodbc)");
        if (!embeddedDriver.isEmpty() && !odbcDriverRegistered(QStringLiteral("SQLite3")))
            QSKIP("the SQLite3 ODBC driver is not registered");
        const QString server = wire ? m_standin.server : m_folder;
        const QString tag = QString::fromLatin1(QTest::currentDataTag()).replace(u' ', u'-').remove(u',');
        const QStringList all{QStringLiteral("--all")};
        const Run one = exportRun(server, tag + QStringLiteral("-1"), all + QStringList{"--jobs", "1"}, embeddedDriver, database, odbcOptions);
        const Run many = exportRun(server, tag + QStringLiteral("-default"), all, embeddedDriver, database, odbcOptions);
        const Run dry = exportRun(server, tag + QStringLiteral("-dry"), all + QStringList{"--dry-run"}, embeddedDriver, database, odbcOptions);

        QCOMPARE(many.tree, one.tree);
        QCOMPARE(many.log, one.log);
        QVERIFY(!one.report.isEmpty());
        QCOMPARE(many.report.split(u'\n'), one.report.split(u'\n')); // every record, in the same order
        QCOMPARE(many.err.section(u'\n', -2).section(u',', 0, 3), one.err.section(u'\n', -2).section(u',', 0, 3)); // the summary's counts
        QVERIFY2(one.err.trimmed().endsWith(QStringLiteral("; connections: 1")) && many.err.trimmed().endsWith(QStringLiteral("; connections: 4")),
                 qPrintable(one.err + many.err));
        QCOMPARE(many.exitCode, one.exitCode);
        if (!wire && embeddedDriver.isEmpty())
            m_embedded.insert(database, one);
        if (wire)
            sameAsEmbedded(one, m_embedded.value(database));
        if (database != QLatin1String("Acme")) {
            QVERIFY(one.tree.size() > 10);
            return;
        }
        QCOMPARE(one.exitCode, 1); // the documents without bytes or a name are logged

        // What the names came to, and the bytes, whole, at and across the chunk size.
        const QStringList expected = {
            QStringLiteral("Docs/Chunk exact.bin %1 ").arg(kChunk) + sha256(noise(kChunk, 3001)),
            QStringLiteral("Docs/Chunk plus.bin %1 ").arg(kLarge) + sha256(noise(kLarge, 3002)),
            QStringLiteral("Docs/Noise.bin %1 ").arg(kBig) + sha256(noise(kBig, kBigId)),
            QStringLiteral("Docs/Empty document.txt 0 ") + sha256({}) + QStringLiteral(" undated"),
            QStringLiteral("Docs/Clash.txt 100 "),
            QStringLiteral("Docs/Clash [3005].txt 200 "),
            QStringLiteral("Docs/Clash [3006].txt 300 "),
            QStringLiteral("Docs/[3007].bin 10 "), // its own, though "[3007]" sorts first
            QStringLiteral("Docs/[3007] [3008].bin 20 "),
        };
        for (const QString &file : expected)
            QVERIFY2(!one.tree.filter(file).isEmpty(), qPrintable(file + QStringLiteral(" missing from\n") + one.tree.join(u'\n')));
        QVERIFY(one.tree.filter(QStringLiteral("Docs/Clash [3004]")).isEmpty());
        QVERIFY2(one.log.contains(QStringLiteral("File ID: 3004 , File Name: Clash ,")), qPrintable(one.log));
        QVERIFY2(!one.log.contains(QStringLiteral("File ID: 3007 ,")), qPrintable(one.log));
        // The report says how each name came about, with the digest of the bytes as they streamed.
        const QHash<qint64, ExportRecord> records = documentRecords(one.report);
        const QList<std::pair<qint64, QString>> statuses = {{3002, QStringLiteral("written")}, {3004, QStringLiteral("failed")},
                                                            {3005, QStringLiteral("renamed")}, {3007, QStringLiteral("fallback")},
                                                            {3008, QStringLiteral("renamed")}};
        for (const auto &[id, status] : statuses)
            QCOMPARE(reportStatusText(records.value(id).status), status);
        QCOMPARE(records.value(3005).path, QStringLiteral("Docs/Clash [3005].txt"));
        QCOMPARE(records.value(3004).message, QStringLiteral("Document 3004 has no stored bytes"));
        QCOMPARE(records.value(3002).bytes, kLarge);
        QCOMPARE(records.value(3002).sha256, sha256(noise(kLarge, 3002)));
        // Dated from the repository (TZ=UTC): 2017-04-05 06:07:08.
        const QString dated = QString::number(QDateTime(QDate(2017, 4, 5), QTime(6, 7, 8), Qt::UTC).toMSecsSinceEpoch());
        QVERIFY(one.tree.filter(QStringLiteral("Chunk plus.bin %1 ").arg(kLarge)).value(0).endsWith(u' ' + dated));

        // A dry run still knows every size without reading the bytes.
        QCOMPARE(dry.exitCode, 1);
        QVERIFY2(dry.out.contains(QStringLiteral("Chunk plus.bin  (%1 bytes)").arg(kLarge)), qPrintable(dry.out));
        QVERIFY(dry.tree.isEmpty());
    }

    // SQL Server promises no order among rows that tie on the ORDER BY, nor in a result without one:
    // two servers that order them differently give the same export. One of them answers a little
    // late, as across a network: its workers then take documents several to a round trip.
    void shuffledTies()
    {
        if (m_standin.server.isEmpty())
            QSKIP("FreeTDS's ODBC driver is not registered (scripts/setup.sh installs tdsodbc)");
        StandinProcess shuffled[2];
        shuffled[1].logFile = m_cli.fx.filePath(QStringLiteral("shuffled.log"));
        QVERIFY(shuffled[0].start(m_folder, {"--shuffle-ties", "1"})
                && shuffled[1].start(m_folder, {"--shuffle-ties", "3", "--latency-ms", "2"}));
        for (const QString database : {"AcmeArchive", "Acme"}) {
            Run runs[2];
            for (const int i : {0, 1})
                runs[i] = exportRun(shuffled[i].server, QStringLiteral("shuffled-%1-%2").arg(database).arg(i), {"--all"}, {}, database);
            QVERIFY(runs[0].tree.size() > 10);
            QCOMPARE(runs[1].tree + QStringList{runs[1].log}, runs[0].tree + QStringList{runs[0].log});
        }
        const QList<QByteArray> batches = fileBytes(shuffled[1].logFile).split('\n');
        QVERIFY(std::any_of(batches.begin(), batches.end(), [](const QByteArray &b) { return b.count("file_data") > 1; }));
    }

    // The server goes away in the middle of a document, or stops answering its statement: the
    // document is fetched again from its first byte once, as the installation's settings (the
    // window's, read by the command line too) allow, then logged, and no file (whole or torn)
    // stands under its name.
    void interruptedRead()
    {
        if (m_cutting.server.isEmpty())
            QSKIP("FreeTDS's ODBC driver is not registered (scripts/setup.sh installs tdsodbc)");
        const QString settings = qEnvironmentVariable("XDG_CONFIG_HOME") + QStringLiteral("/zarnivo/Parcelwise.conf");
        QVERIFY(writeFile(settings, "[odbc]\nretries=1\nretry-wait=0\n"));
        const auto removed = qScopeGuard([&] { QFile::remove(settings); });
        StandinProcess stalling;
        QVERIFY(stalling.start(m_folder, {"--stall-on", "Rec_ID =3002)"}));
        for (const QString &jobs : {QStringLiteral("1"), QStringLiteral("4")}) {
            for (const StandinProcess *server : {&m_cutting, &stalling}) {
                const Run r = exportRun(server->server, QStringLiteral("cut-%1-%2").arg(jobs).arg(server->port),
                                        {"--folder", "Docs", "--jobs", jobs, "--timeout", "1"});
                QCOMPARE(r.exitCode, 1);
                QVERIFY2(r.log.contains(QStringLiteral("File ID: 3002 , ")), qPrintable(r.log));
                QVERIFY2(r.tree.filter(QStringLiteral("Chunk plus")).isEmpty(), qPrintable(r.tree.join(u'\n')));
                QCOMPARE(documentRecords(r.report).value(3002).retries, 1);
                // What came before it is there, whole.
                QVERIFY2(!r.tree.filter(QStringLiteral("Docs/Chunk exact.bin %1 ").arg(kChunk)).isEmpty(), qPrintable(r.tree.join(u'\n')));
            }
        }
    }

    // The server goes away for two seconds in the middle of an export and comes back on its port:
    // what met the broken connection is sent again on a reopened one, and the export is exact.
    void serverBackMidRun()
    {
        if (m_standin.server.isEmpty())
            QSKIP("FreeTDS's ODBC driver is not registered (scripts/setup.sh installs tdsodbc)");
        const QStringList args{"--all", "--exclude", "Docs", "--jobs", "2"};
        const Run embedded = exportRun(m_folder, QStringLiteral("back-embedded"), args);
        StandinProcess first, second;
        QVERIFY(first.start(m_folder, {"--latency-ms", "20"}));
        Run wire;
        std::thread exporting([&] { wire = exportRun(first.server, QStringLiteral("back"), args); });
        QDeadlineTimer patience(60000);
        while (QDir(m_cli.fx.filePath(QStringLiteral("back/out"))).isEmpty() && !patience.hasExpired())
            QThread::msleep(10);
        first.process.kill();
        first.process.waitForFinished();
        QThread::sleep(2);
        const bool restarted = second.start(m_folder, {"--port", QString::number(first.port)});
        exporting.join();
        QVERIFY(restarted);
        QVERIFY2(wire.exitCode == 0 && wire.err.contains(QStringLiteral("retried after the connection broke")),
                 qPrintable(wire.err + wire.log));
        QVERIFY(embedded.tree.size() > 20);
        QCOMPARE(wire.tree, embedded.tree);
    }

    // --update over a complete export: a document whose file is there with its size and date
    // costs no statement of its own (its folder's size listing tells), one changed since is
    // written again; the same statements through the stand-in as on the embedded server.
    void updateSendsNothingForUnchangedDocuments()
    {
        QByteArray traces[2];
        for (const bool wire : {false, true}) {
            if (wire && m_standin.server.isEmpty())
                QSKIP("FreeTDS's ODBC driver is not registered (scripts/setup.sh installs tdsodbc)");
            const QString name = wire ? QStringLiteral("update-wire") : QStringLiteral("update-embedded");
            const QString server = wire ? m_standin.server : m_folder;
            const Run first = exportRun(server, name, {"--folder", "Docs"});
            QVERIFY(QFile::resize(m_cli.fx.filePath(name + QStringLiteral("/out/Docs/Clash.txt")), 99));
            QVERIFY(QFile::remove(m_cli.fx.filePath(name + QStringLiteral("/trace.sql"))));
            const Run again = exportRun(server, name, {"--folder", "Docs", "--update", "--jobs", "1"});
            QCOMPARE(again.tree, first.tree);
            QStringList fetched; // each document sent for
            static const QRegularExpression document(QStringLiteral("a\\.Rec_ID =(\\d+)\\)"));
            for (auto it = document.globalMatch(QString::fromUtf8(again.trace)); it.hasNext();)
                fetched << it.next().captured(1);
            // Changed, no bytes (failing as before), undated (always written again).
            QCOMPARE(fetched.join(u' '), QStringLiteral("3003 3004 3010 1009"));
            traces[wire] = again.trace;
        }
        QCOMPARE(traces[1], traces[0]);
    }

    // The connection's streamed rows: the other columns, the value a chunk at a time (on the
    // embedded server straight from the file, never whole in memory), NULL, no row, and a stream
    // ended by the next statement.
    void streamedRows()
    {
        for (const bool wire : {false, true}) {
            if (wire && m_standin.server.isEmpty())
                continue;
            repo::Connection cn;
            cn.open(acme(wire));
            repo::StreamedRow row = cn.executeStreamed(document(kBigId));
            QVERIFY(!row.fields.eof());
            QCOMPARE(row.fields.text(QStringLiteral("File_Description")), QStringLiteral("Noise"));
            QCOMPARE(row.fields.text(QStringLiteral("File_name")), QStringLiteral("big.bin"));
            QCOMPARE(row.fields.fieldNames().size(), 2);
            QVERIFY(row.value);
            QCOMPARE(row.value->size(), kBig);
            QByteArray chunk(int(kChunk), 'x');
            QCryptographicHash hash(QCryptographicHash::Sha256);
            qint64 total = 0, n = 0;
            while ((n = row.value->read(chunk.data(), kChunk)) > 0) {
                total += n;
                hash.addData(QByteArrayView(chunk.constData(), n));
            }
            QCOMPARE(total, kBig);
            QCOMPARE(QString::fromLatin1(hash.result().toHex()), m_bigSha);
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

            // A statement batched behind a document's: its rows once the bytes are read, the
            // server's own words when it fails there, sent alone when another statement came first.
            const QString count = QStringLiteral("select count(*) as n from zar_fileLive");
            row = cn.executeStreamed(document(3002), {count});
            while (row.value->read(chunk.data(), kChunk) > 0) {
            }
            QVERIFY(cn.followingResult().value(QStringLiteral("n")).toInt() > 10);
            row = cn.executeStreamed(document(999999), {QStringLiteral("select * from zar_nothing")});
            try {
                cn.followingResult();
                QFAIL("zar_nothing");
            } catch (const HuntERR::Error &e) {
                QCOMPARE(e.description(), QStringLiteral("Invalid object name 'zar_nothing'."));
            }
            row = cn.executeStreamed(document(3004), {count});
            cn.execute(count);
            QVERIFY(cn.followingResult().value(QStringLiteral("n")).toInt() > 10);
        }
    }

    // Several documents in one batch, each read from it as it is asked for with the statements
    // sent behind it: one left half read, a result passed over, one without a row; then another
    // statement ends the batch and what it held is sent alone.
    void batchedDocuments()
    {
        for (const bool wire : {false, true}) {
            if (wire && m_standin.server.isEmpty())
                continue;
            repo::Connection cn;
            cn.open(acme(wire));
            const QString count = QStringLiteral("select count(*) as n from zar_fileLive");
            const QString dated = QStringLiteral("select 7 as n");
            QByteArray chunk(int(kChunk), 'x');
            repo::StreamedRow row;
            row = cn.executeStreamed(document(3002), {count, document(kBigId), count, document(999999), dated,
                                                      document(3003), dated});
            QVERIFY(row.value->read(chunk.data(), 10) == 10);
            QVERIFY(cn.followingResult().value(QStringLiteral("n")).toInt() > 10);
            row = cn.executeStreamed(document(kBigId), {count});
            QCOMPARE(row.fields.text(QStringLiteral("File_name")), QStringLiteral("big.bin"));
            QCOMPARE(row.value->size(), kBig);
            QCOMPARE(row.value->read(chunk.data(), kChunk), kChunk);
            QCOMPARE(QByteArray(chunk.constData(), 64), noise(kBig, kBigId).left(64));
            row = cn.executeStreamed(document(999999), {dated});
            QVERIFY(row.fields.eof() && !row.value);
            QCOMPARE(cn.followingResult().value(QStringLiteral("n")).toInt(), 7);
            row = cn.executeStreamed(document(3003), {dated});
            QCOMPARE(row.fields.text(QStringLiteral("File_Description")), QStringLiteral("Clash"));
            QCOMPARE(row.value->size(), 100);
            QCOMPARE(cn.followingResult().value(QStringLiteral("n")).toInt(), 7);
            row = cn.executeStreamed(document(3002), {count, document(3003), dated});
            QVERIFY(cn.execute(dated).value(QStringLiteral("n")).toInt() == 7);
            QVERIFY(cn.followingResult().value(QStringLiteral("n")).toInt() > 10);
            row = cn.executeStreamed(document(3003), {dated});
            QCOMPARE(row.value->size(), 100);
            QCOMPARE(cn.followingResult().value(QStringLiteral("n")).toInt(), 7);
        }
    }
};

QTEST_GUILESS_MAIN(TestStreaming)
#include "test_streaming.moc"
