// The export against hostile repositories and a hostile disk: names that clean to nothing or to
// each other, a folder below itself, a 20,000-level chain, links where directories go (before the
// run and swapped in during it), a log that cannot be written, output that cannot be delivered,
// and a WAL database in a read-only folder. Nothing outside the destination may change and no
// failure may go unreported.

#include "clirun.h"
#include "errors/hunterr.h"
#include "export/exportdisk.h"
#include "export/exporter.h"
#include "exportrun.h"
#include "hostile.h"
#include "repository/connection.h"
#include "scopes.h"
#include "testsupport.h"

#include <QScopeGuard>

using exporting::ExportObserver;
using exporting::exportLogNameFor;

namespace {

struct Recorder : ExportObserver {
    QStringList failures, unlogged, written;
    void failureLogged(const QString &line) override { failures << line; }
    void failureUnlogged(const QString &line) override { unlogged << line; }
    void documentWritten(const QString &filePath, qint64) override { written << filePath; }
};

QByteArray contents(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<missing>");
}

// Every entry below dir (links as links), with file contents: what "unchanged" means here.
QMap<QString, QByteArray> picture(const QString &dir)
{
    QMap<QString, QByteArray> out;
    QDirIterator it(dir, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QFileInfo info = it.fileInfo();
        out[QDir(dir).relativeFilePath(path)] = info.isSymLink() ? "link " + info.symLinkTarget().toUtf8()
                                                : info.isDir()   ? QByteArray("dir")
                                                                 : contents(path);
    }
    return out;
}

} // namespace

class TestExportFaults : public QObject {
    Q_OBJECT

    CliFixture m_cli;
    ErrorTrailScope m_trail; // the in-process runs show nothing
    QString m_hostile;

    QString fresh(const QString &what) { return m_cli.freshDir(what); }

    std::unique_ptr<ExportRun> exporterTo(DemoSession &d, const QString &dest, ExportObserver *observer)
    {
        d.s.signin.DestinationPath = QDir::toNativeSeparators(dest);
        auto e = std::make_unique<ExportRun>(d.s.signin, d.s.procs);
        e->options.logFolder = fresh(QStringLiteral("log"));
        e->options.observer = observer;
        return e;
    }

    using Result = CliResult;
    Result run(const QStringList &args, const QMap<QString, QString> &env = {}, const QString &stdoutFile = {})
    {
        return m_cli.runner.run(args, {}, env, stdoutFile);
    }
    QStringList hostileExport(const QString &dest)
    {
        return {QStringLiteral("export"), QStringLiteral("--server"), m_hostile, QStringLiteral("--user"),
                QStringLiteral("demo"), QStringLiteral("--database"), QStringLiteral("Acme"), QStringLiteral("--dest"),
                dest};
    }

    // Log names for this minute and the next point at a full disk.
    static void logsOnFullDisk(const QString &folder)
    {
        const QDateTime now = QDateTime::currentDateTime();
        for (const QDateTime &when : {now, now.addSecs(60)})
            QFile::link(QStringLiteral("/dev/full"), folder + exportLogNameFor(when));
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(m_cli.setUp(), qPrintable(m_cli.fx.error));
        QString error;
        m_hostile = writeHostileServer(m_cli.fx.demo, m_cli.fx.filePath(QStringLiteral("hostile")), &error);
        QVERIFY2(!m_hostile.isEmpty(), qPrintable(error));
    }

    void hostileNamesStayInsideAndNothingIsLost()
    {
        const QString top = fresh(QStringLiteral("names"));
        const QString dest = top + QStringLiteral("/dest");
        QVERIFY(writeFile(top + QStringLiteral("/beside.txt"), "beside"));
        QVERIFY(writeFile(top + QStringLiteral("/Projects/beside.txt"), "a parent's sibling"));
        QVERIFY(writeFile(dest + QStringLiteral("/keep.txt"), "inside"));
        QVERIFY(writeFile(dest + QStringLiteral("/Docs/Old/stray.txt"), "an earlier run's")); // replaced
        const auto besideBefore = picture(top + QStringLiteral("/Projects"));

        DemoSession d(m_hostile, QStringLiteral("Acme"));
        QCOMPARE(d.opened, HeadlessSession::Opened::Yes);
        QVERIFY(d.tickEverything());
        Recorder rec;
        const auto e = exporterTo(d, dest, &rec);
        QVERIFY(e->run());

        const QString esc = QStringLiteral("Esc\x1b[31mRed\nLine");
        const QList<QPair<QString, QByteArray>> entries = {
            {"keep.txt", "inside"},
            {"[101]/Same Title.txt", "first"}, // "???": no name, so its id
            {"[101]/Same Title [5002].txt", "second"}, // the same title again keeps its id
            {"[102]/Up.txt", "dot dot"},                // ".." is not the parent
            {"[103]", "dir"},                           // "." is not the destination
            {"[104]", "dir"},
            {"[105]", "dir"},
            {"Projects/[106]", "dir"},                  // "|" below Projects is not Projects
            {"Projects/Plans/Master plan.txt", "<any>"}, // still there
            {"X Y", "dir"},                              // "X:Y", the lower id, though listed second
            {"X Y [108]", "dir"},                        // "X*Y" keeps its id
            {esc + "/Bell\aTitle.txt", "bell"},          // names on disk unchanged
            {"Blocked/Report.pdf", "dir"},               // the subfolder made first...
            {"Blocked/[5003].pdf", "blocked report"},    // ...so the document falls back to its id
            {"Loop/Again", "dir"},                       // walked once
            {"Docs/Old", "<missing>"},
        };
        const auto after = picture(dest);
        for (const auto &[rel, bytes] : entries) {
            const QByteArray found = after.value(rel, "<missing>");
            QVERIFY2(bytes == "<any>" ? found != "<missing>" : found == bytes, qPrintable(rel + ": " + found));
        }
        QCOMPARE(contents(top + QStringLiteral("/beside.txt")), QByteArray("beside"));
        QCOMPARE(picture(top + QStringLiteral("/Projects")), besideBefore);

        // Two failures, both logged: the folder met below itself, and the chain where its path
        // grew longer than the file system's paths (after hundreds of levels, without a crash).
        QVERIFY2(rec.failures.size() == 2, qPrintable(rec.failures.join(QLatin1Char('\n'))));
        QVERIFY(rec.failures[0].contains(QStringLiteral(" , Folder Name: level "))); // "Deep" comes first
        QVERIFY(rec.failures[1].startsWith(QStringLiteral("Folder ID: 121 , Folder Name: Again , Folder Location: ")));
        int depth = 0;
        for (QString at = dest + QStringLiteral("/Deep"); QFileInfo(at).isDir(); ++depth)
            at += QStringLiteral("/level ") + QString::number(201 + depth);
        QVERIFY2(depth > 300, qPrintable(QString::number(depth)));
        QVERIFY(rec.unlogged.isEmpty());
        QVERIFY(contents(e->result.logPath).contains("Folder ID: 121"));
    }

    void linksAreNeverFollowed_data()
    {
        QTest::addColumn<QString>("step");   // the disk step before which a link is swapped in; "" = before the run
        QTest::addColumn<bool>("failures"); // documents that could not be written are logged
        QTest::addColumn<qint64>("folder");  // the folder exported
        QTest::addColumn<QString>("swapped"); // the directory a link takes the place of
        QTest::addColumn<QString>("below");   // the step's path lies below this
        const QString docs = QStringLiteral("Docs");
        QTest::newRow("link where a directory goes") << QString() << false << qint64(7) << docs << docs;
        QTest::newRow("swapped in before a removal") << QStringLiteral("remove") << false << qint64(7) << docs << docs;
        QTest::newRow("swapped in before a write") << QStringLiteral("write") << true << qint64(7) << docs << docs;
        QTest::newRow("swapped in before a second write") << QStringLiteral("write 2") << true << qint64(7) << docs << docs;
        QTest::newRow("swapped in three levels above a write") << QStringLiteral("write") << true << qint64(14)
                                                               << QStringLiteral("Projects")
                                                               << QStringLiteral("Projects/Plans/2016/Reports");
    }

    void linksAreNeverFollowed()
    {
        QFETCH(QString, step);
        QFETCH(bool, failures);
        QFETCH(qint64, folder);
        QFETCH(QString, swapped);
        QFETCH(QString, below);
        const QString top = fresh(QStringLiteral("links"));
        const QString dest = top + QStringLiteral("/dest"), outside = top + QStringLiteral("/outside");
        const QString moved = top + QStringLiteral("/moved");
        QVERIFY(writeFile(outside + QStringLiteral("/Minutes 12 03 2015.txt"), "not the document"));
        QVERIFY(writeFile(outside + QStringLiteral("/sentinel/keep.txt"), "keep"));
        // Where a link followed would lead the deeper write.
        QVERIFY(writeFile(outside + QStringLiteral("/Plans/2016/Reports/keep.txt"), "keep"));
        const QString docs = dest + QLatin1Char('/') + swapped;
        QVERIFY(writeFile(docs + QStringLiteral("/earlier.txt"), "earlier"));
        const auto outsideBefore = picture(outside);
        auto swap = [&] {
            QVERIFY(QDir().rename(docs, moved));
            QVERIFY(QFile::link(outside, docs));
        };
        if (step.isEmpty()) {
            QVERIFY(QDir(docs).removeRecursively());
            QVERIFY(QFile::link(outside, docs));
        }
        QMap<QString, QByteArray> movedAtSwap;
        int nth = qMax(1, step.section(QLatin1Char(' '), 1).toInt()); // "write 2": before the second write
        const DiskStepHookScope hook([&](const QString &what, const QString &path) {
            if (what == step.section(QLatin1Char(' '), 0, 0) && path.startsWith(dest + QLatin1Char('/') + below) && --nth == 0) {
                swap();
                movedAtSwap = picture(moved);
            }
        });

        DemoSession d(m_cli.fx.demo, QStringLiteral("Acme"));
        QVERIFY(d.click(1));
        QVERIFY(d.tick(folder));
        Recorder rec;
        const auto e = exporterTo(d, dest, &rec);
        QCOMPARE(e->run(), failures);
        QCOMPARE(picture(outside), outsideBefore);
        if (!movedAtSwap.isEmpty())
            QCOMPARE(picture(moved), movedAtSwap); // nothing written after it left the destination
        if (failures) {
            QVERIFY(QFileInfo(docs).isSymLink()); // swapped in after the removal: left alone
            QVERIFY(!rec.failures.isEmpty());
            for (const QString &line : std::as_const(rec.failures))
                QVERIFY2(line.startsWith(QStringLiteral("File ID: ")), qPrintable(line));
        } else {
            QVERIFY(!QFileInfo(docs).isSymLink() && QFileInfo(docs).isDir()); // the link went as a link
            QVERIFY(QFileInfo::exists(docs + QStringLiteral("/Minutes 12 03 2015.txt")));
        }
    }

    void logThatCannotTakeFailures()
    {
        // (The engine and the window with a log on a full disk: the window test.)
        const QString line = QStringLiteral("Folder ID: 17 , Folder Name: Templates , Folder Location: Templates");
        // On the command line: refused before the run when the log folder cannot take a file;
        // during the run the lines go to standard error and no log is named.
        const QString aFile = m_cli.fx.filePath(QStringLiteral("a-file"));
        QVERIFY(writeFile(aFile, "x"));
        const QString fullLogs = fresh(QStringLiteral("full-logs"));
        logsOnFullDisk(fullLogs);
        struct Case {
            QStringList extra;
            QMap<QString, QString> env;
            int exitCode;
            QString err;
        };
        const QList<Case> cases = {
            {{}, {{"HOME", aFile}}, 2, "the export log cannot be written"},
            {{"--log-dir", "/proc"}, {}, 2, "the export log cannot be written"},
            {{"--log-dir", fullLogs}, {}, 1, "not logged: " + line},
        };
        for (const Case &c : cases) {
            const QString cliDest = fresh(QStringLiteral("cli-full"));
            QVERIFY(writeFile(cliDest + QStringLiteral("/Templates"), "blocks the directory"));
            QStringList args = hostileExport(cliDest) << QStringLiteral("--folder") << QStringLiteral("Templates")
                                                      << c.extra << QStringLiteral("--replace");
            const Result r = run(args, c.env);
            QVERIFY2(r.exitCode == c.exitCode && r.err.contains(c.err), qPrintable(r.err));
            if (c.exitCode == 1)
                QVERIFY2(r.err.contains(QStringLiteral("log: none (1 failure could not be logged")), qPrintable(r.err));
        }
    }

    void outputFailuresAndListingsAreReported()
    {
        const QStringList databases = {QStringLiteral("databases"), QStringLiteral("--server"), m_hostile,
                                       QStringLiteral("--user"), QStringLiteral("demo")};
        QCOMPARE(run(databases).exitCode, 0);
        QVERIFY(run(databases, {}, QStringLiteral("/dev/full")).exitCode != 0);

        // Control characters in names are shown escaped; each listing line is one entry.
        const QString esc = QStringLiteral("Esc\x1b[31mRed\nLine");
        const Result dry = run(hostileExport(fresh(QStringLiteral("dry"))) << QStringLiteral("--folder") << esc
                                                                          << QStringLiteral("--dry-run"));
        QCOMPARE(dry.exitCode, 0);
        QVERIFY2(dry.out.contains(QStringLiteral("Esc\\x1b[31mRed\\nLine")) && dry.out.contains(QStringLiteral("Bell\\x07Title")),
                 qPrintable(dry.out));
        QVERIFY(!dry.out.contains(QChar(0x1b)) && !dry.out.contains(QChar(7)));
        QCOMPARE(dry.out.count(QLatin1Char('\n')), 2); // mkdir and write
        const Result tree = run({QStringLiteral("tree"), QStringLiteral("--server"), m_hostile, QStringLiteral("--user"),
                                 QStringLiteral("demo"), QStringLiteral("--database"), QStringLiteral("Acme")});
        QVERIFY2(tree.exitCode == 0 && tree.out.contains(QStringLiteral("Esc\\x1b[31mRed\\nLine")), qPrintable(tree.out));

        // A path of 50,000 names is refused at its first missing name.
        QStringList names;
        for (int i = 0; i < 50000; ++i)
            names << QStringLiteral("n");
        const Result longPath = run(hostileExport(fresh(QStringLiteral("long"))) << QStringLiteral("--folder")
                                                                                << names.join(QLatin1Char('/')));
        QVERIFY2(longPath.exitCode == 2 && longPath.err.contains(QStringLiteral("not found: no folder \"n\"")),
                 qPrintable(longPath.err.left(300)));
    }

    // What the run relies on is never in its way: an embedded server folder inside a directory the
    // run would replace (with or without --update), a report inside one, a report named like the
    // log. Each is refused before anything is written, and nothing changes.
    void whatTheRunReliesOnIsRefused()
    {
        const QString top = fresh(QStringLiteral("relied"));
        const QString dest = top + QStringLiteral("/dest");
        const QString server = dest + QStringLiteral("/Docs");
        QVERIFY(copyFolder(m_cli.fx.demo, server));
        QVERIFY(writeFile(dest + QStringLiteral("/Contracts/mine.txt"), "mine"));
        const QString logs = top + QStringLiteral("/logs");
        QVERIFY(QDir().mkpath(logs));
        const QMap<QString, QByteArray> before = picture(top);
        const auto args = [&](const QString &folder) {
            return QStringList{QStringLiteral("export"), QStringLiteral("--server"), server, QStringLiteral("--user"),
                               QStringLiteral("demo"), QStringLiteral("--database"), QStringLiteral("Acme"),
                               QStringLiteral("--folder"), folder, QStringLiteral("--dest"), dest,
                               QStringLiteral("--log-dir"), logs};
        };
        const QString logName = logs + exportLogNameFor(QDateTime::currentDateTime());
        const struct {
            QStringList args;
            QString named;
        } cases[] = {
            {args(QStringLiteral("Docs")), server},
            {args(QStringLiteral("Docs")) << QStringLiteral("--update"), server},
            {args(QStringLiteral("Docs")) << QStringLiteral("--dry-run"), server},
            {args(QStringLiteral("Contracts")) << QStringLiteral("--report") << dest + QStringLiteral("/Contracts/r.jsonl"),
             dest + QStringLiteral("/Contracts/r.jsonl")},
            {args(QStringLiteral("Contracts")) << QStringLiteral("--report") << logName, logName},
        };
        for (const auto &c : cases) {
            const Result r = run(c.args);
            QVERIFY2(r.exitCode == 2 && r.err.contains(QDir::toNativeSeparators(c.named)), qPrintable(r.err));
            QCOMPARE(picture(top), before);
        }
    }

#ifdef Q_OS_UNIX
    // One run per destination: a second run while the first holds the destination (its report is
    // a pipe nobody reads yet) is refused, even with --replace, and the first still ends whole.
    void secondRunIntoOneDestinationIsRefused()
    {
        const QString top = fresh(QStringLiteral("twice"));
        const QString dest = top + QStringLiteral("/dest"), fifo = top + QStringLiteral("/report");
        QCOMPARE(QProcess::execute(QStringLiteral("mkfifo"), {fifo}), 0);
        const QStringList first = demoArgs(QStringLiteral("export"), m_cli.fx.demo, QStringLiteral("Acme"))
            << QStringLiteral("--all") << QStringLiteral("--dest") << dest << QStringLiteral("--log-dir") << top;
        QProcess a;
        a.setProgram(qEnvironmentVariable("PARCELWISE_EXE"));
        a.setArguments(QStringList(first) << QStringLiteral("--report") << fifo);
        a.start();
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(dest + QStringLiteral("/.parcelwise.lock")), 20000);
        const Result b = run(QStringList(first) << QStringLiteral("--replace"));
        QVERIFY2(b.exitCode == 2 && b.err.contains(QString::number(a.processId())), qPrintable(b.err));
        QFile reader(fifo);
        QVERIFY(reader.open(QIODevice::ReadOnly));
        const QByteArray report = reader.readAll();
        QVERIFY(a.waitForFinished(60000));
        QCOMPARE(a.exitCode(), 0);
        QVERIFY(writeFile(top + QStringLiteral("/r.jsonl"), report));
        const Result proof = run({QStringLiteral("verify"), QStringLiteral("--report"), top + QStringLiteral("/r.jsonl"),
                                  QStringLiteral("--dest"), dest, QStringLiteral("--extra")});
        QVERIFY2(proof.exitCode == 0, qPrintable(proof.out + proof.err));
    }
#endif

    void walDatabaseInReadOnlyFolder_data()
    {
        QTest::addColumn<QString>("driver");
        QTest::newRow("QSQLITE") << QStringLiteral("QSQLITE");
        QTest::newRow("SQLite3 ODBC") << QStringLiteral("SQLite3");
    }

    void walDatabaseInReadOnlyFolder()
    {
        QFETCH(QString, driver);
        const QString server = fresh(QStringLiteral("wal"));
        QVERIFY(copyFolder(m_cli.fx.demo, server));
        {
            QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("wal-maker"));
            db.setDatabaseName(server + QStringLiteral("/Acme.sqlite"));
            QVERIFY(db.open());
            QSqlQuery q(db);
            QVERIFY(q.exec(QStringLiteral("PRAGMA journal_mode=WAL")) && q.next());
            QCOMPARE(q.value(0).toString(), QStringLiteral("wal"));
            q = QSqlQuery();
            db.close();
        }
        QSqlDatabase::removeDatabase(QStringLiteral("wal-maker"));
        QVERIFY(QFile::setPermissions(server, QFile::ReadOwner | QFile::ExeOwner | QFile::ReadOther | QFile::ExeOther));
        const auto restore = qScopeGuard([&] { QFile::setPermissions(server, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner); });
        const QStringList beside = {QStringLiteral("Acme.sqlite-wal"), QStringLiteral("Acme.sqlite-shm")};
        auto leftovers = [&] {
            QStringList found;
            for (const QString &name : beside)
                if (QFileInfo::exists(server + QLatin1Char('/') + name))
                    found << name;
            return found;
        };
        QVERIFY(leftovers().isEmpty());

        const EmbeddedDriverScope embedded(driver);
        if (driver != QLatin1String("QSQLITE") && !QSqlDatabase::isDriverAvailable(QStringLiteral("QODBC")))
            QSKIP("no ODBC");
        {
            DemoSession d(server, QStringLiteral("Acme"));
            if (d.opened != HeadlessSession::Opened::Yes && driver != QLatin1String("QSQLITE"))
                QSKIP("the SQLite3 ODBC driver is not registered");
            QCOMPARE(d.opened, HeadlessSession::Opened::Yes);
            QVERIFY(d.click(1));
            QVERIFY(d.tick(7));
            Recorder rec;
            const auto e = exporterTo(d, fresh(QStringLiteral("wal-dest")), &rec);
            QVERIFY(!e->run());
            QVERIFY(rec.written.size() > 10);
        }
        QCOMPARE(leftovers(), QStringList());
    }
};

QTEST_GUILESS_MAIN(TestExportFaults)
#include "test_export_faults.moc"
