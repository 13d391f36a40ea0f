// The command line run as a user runs it: the built executable, real arguments, real stdin,
// stdout and stderr, exit statuses, on the demo repository that `parcelwise demo` writes. Exports
// are compared file by file with what the export engine writes when the same folders are clicked
// open and ticked in-process, the way the window does it.

#include "clirun.h"
#include "export/exporter.h"
#include "exportrun.h"
#include "session/headlesssession.h"

using exporting::ExportResult;

namespace {

using Result = CliResult;
// The one export log a run leaves in its log folder, line by line; empty when none was written.
QStringList logLines(const QString &logDir)
{
    const QStringList logs = QDir(logDir).entryList({QStringLiteral("zarnivo Parcelwise Log *.txt")}, QDir::Files);
    QFile f(QDir(logDir).filePath(logs.value(0)));
    if (logs.isEmpty() || !f.open(QIODevice::ReadOnly))
        return {};
    return QString::fromLocal8Bit(f.readAll()).split(QStringLiteral("\r\n"), Qt::SkipEmptyParts);
}

const QString kSecret = QStringLiteral("Wr0ng-Secret");

} // namespace

class TestCli : public QObject {
    Q_OBJECT

    CliFixture m_cli;
    QString m_untouched; // destination and log folder of every refused run

    // Clicks the way open (each node once, as a person would: a second click reloads and drops
    // the ticks below it) and ticks each chain's last folder, or every folder below the root.
    static bool tickChains(HeadlessSession &s, const QList<QStringList> &chains)
    {
        QSet<FolderTree::Node *> clicked;
        const auto open = [&](FolderTree::Node *node) {
            return clicked.contains(node) || (clicked.insert(node), s.click(node));
        };
        bool ok = open(s.root());
        const std::vector<FolderTree::Node *> children = s.root()->children;
        for (FolderTree::Node *child : children)
            ok = ok && (!chains.isEmpty() || s.tick(child));
        for (const QStringList &chain : chains) {
            FolderTree::Node *node = s.root();
            for (const QString &name : chain)
                node = node && open(node) ? s.child(node, name) : nullptr;
            ok = ok && node && s.tick(node);
        }
        return ok;
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(m_cli.setUp(), qPrintable(m_cli.fx.error));
        m_untouched = m_cli.freshDir(QStringLiteral("untouched"));
    }

    void helpAndVersion_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QString>("start");
        const QString usage = QStringLiteral("Usage: parcelwise ");
        QTest::newRow("tool") << QStringList{QStringLiteral("--help")} << usage + QStringLiteral("<command> [options]");
        QTest::newRow("databases") << QStringList{QStringLiteral("databases"), QStringLiteral("--help")}
                                   << usage + QStringLiteral("databases");
        QTest::newRow("tree") << QStringList{QStringLiteral("help"), QStringLiteral("tree")} << usage + QStringLiteral("tree");
        QTest::newRow("export") << QStringList{QStringLiteral("export"), QStringLiteral("-h")} << usage + QStringLiteral("export");
        QTest::newRow("demo") << QStringList{QStringLiteral("demo"), QStringLiteral("--help")} << usage + QStringLiteral("demo");
        QTest::newRow("version") << QStringList{QStringLiteral("--version")} << QStringLiteral("parcelwise 6.");
    }

    void helpAndVersion()
    {
        QFETCH(QStringList, args);
        QFETCH(QString, start);
        const Result r = m_cli.run(args);
        QCOMPARE(r.exitCode, 0);
        QVERIFY2(r.out.startsWith(start), qPrintable(r.out));
    }

    // Every refusal, with its exit status (2 usage, 3 sign-in refused, 4 unreachable, 5 no
    // repository): a "parcelwise: " line on stderr, nothing on stdout, nothing written, and a
    // password never echoed.
    void refusedRuns_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<QString>("envPassword");
        QTest::addColumn<QString>("message");
        QTest::addColumn<int>("status");

        const QString acme = QStringLiteral("Acme");
        const QStringList toDest{QStringLiteral("--dest"), m_untouched, QStringLiteral("--log-dir"), m_untouched};
        const QStringList all = m_cli.signIn(QStringLiteral("export"), acme) << QStringLiteral("--all");
        const QStringList databases = m_cli.signIn(QStringLiteral("databases"));
        auto folders = [&](const QString &database, const QStringList &paths) {
            QStringList args = m_cli.signIn(QStringLiteral("export"), database);
            for (const QString &path : paths)
                args << QStringLiteral("--folder") << path;
            return args << toDest;
        };
        auto row = [](const char *name, const QStringList &args, const QString &message, const QByteArray &input = {},
                      const QString &envPassword = {}, int status = 2) {
            QTest::newRow(name) << args << input << envPassword << message << status;
        };

        row("no command, no display", {}, QStringLiteral("no display: give a command\nUsage: parcelwise <command>"));
        row("unknown command", {QStringLiteral("frobnicate")}, QStringLiteral("unknown command 'frobnicate'"));
        row("unknown option", QStringList(all) << QStringLiteral("--bogus") << toDest, QStringLiteral("unknown option '--bogus'"));
        row("no destination", all, QStringLiteral("missing --dest"));
        row("too many jobs", QStringList(all) << QStringLiteral("--jobs") << QStringLiteral("65") << toDest,
            QStringLiteral("--jobs needs a whole number from 1 to 64, not \"65\""));
        row("neither folder nor all", folders(acme, {}), QStringLiteral("--folder PATH (repeatable) or --all"));
        row("destination below a file", QStringList(all) << QStringLiteral("--dest") << qEnvironmentVariable("PARCELWISE_EXE") + QStringLiteral("/out"),
            QStringLiteral("is not a directory"));

        // The password comes from stdin or the environment, never from an argument.
        row("password as argument", QStringList(databases) << QStringLiteral("--password") << kSecret,
            QStringLiteral("--password-stdin"));
        row("password-stdin, no line", QStringList(databases) << QStringLiteral("--password-stdin"),
            QStringLiteral("standard input holds no line"));
        row("wrong password on stdin", QStringList(databases) << QStringLiteral("--password-stdin"),
            QStringLiteral("Login failed for user 'demo'."), kSecret.toUtf8() + "\n", {}, 3);
        row("wrong password in environment", databases, QStringLiteral("Login failed for user 'demo'."), {}, kSecret, 3);

        // The sign-in's own messages (each of them is the sign-in test's; here, that they arrive).
        row("server folder missing",
            {QStringLiteral("databases"), QStringLiteral("--server"), m_cli.fx.filePath(QStringLiteral("no-server")),
             QStringLiteral("--user"), QStringLiteral("demo")},
            QStringLiteral("SQL Server does not exist or access denied"), {}, {}, 4);
        row("port refused", {QStringLiteral("databases"), QStringLiteral("--server=127.0.0.1,1"), QStringLiteral("--user=sa")},
            QStringLiteral("SQL Server does not exist or access denied"), {}, {}, 4);
        row("database not listed", m_cli.signIn(QStringLiteral("export"), QStringLiteral("Nope")) << QStringLiteral("--all") << toDest,
            QStringLiteral("Selected database does not exists"), {}, {}, 3);
        row("listed database without file", m_cli.signIn(QStringLiteral("tree"), QStringLiteral("Initech")),
            QStringLiteral("Selected database does not exists"), {}, {}, 3);
        row("database without tables", m_cli.signIn(QStringLiteral("tree"), QStringLiteral("Scratch")),
            QStringLiteral("Invalid database selected"), {}, {}, 5);
        // Shared Cases is in both folder lists of Twofold: its archive view shows an error report.
        row("error report", m_cli.signIn(QStringLiteral("tree"), QStringLiteral("TwofoldArchive")),
            QStringLiteral("error report"), {}, {}, 5);

        // Every --folder path is resolved before anything is written.
        row("misspelt step", folders(acme, {QStringLiteral("Projects/Plns/2016")}),
            QStringLiteral("no folder \"Plns\" in \"Projects\""));
        row("second path missing", folders(acme, {QStringLiteral("Docs"), QStringLiteral("Nowhere")}),
            QStringLiteral("no folder \"Nowhere\" below the root folder"));
        // Budgets holds no archived documents: the archive view does not show it.
        row("not in the archive view", folders(QStringLiteral("AcmeArchive"), {QStringLiteral("Finance/Budgets")}),
            QStringLiteral("no folder \"Budgets\" in \"Finance\""));
        row("root as path", folders(acme, {QStringLiteral("/")}), QStringLiteral("--folder needs a folder path"));
    }

    void refusedRuns()
    {
        QFETCH(QStringList, args);
        QFETCH(QByteArray, input);
        QFETCH(QString, envPassword);
        QFETCH(QString, message);
        QFETCH(int, status);
        QMap<QString, QString> env;
        if (!envPassword.isEmpty())
            env.insert(QStringLiteral("PARCELWISE_PASSWORD"), envPassword);
        const Result r = m_cli.run(args, input, env);
        QVERIFY2(r.exitCode == status, qPrintable(r.err));
        QVERIFY2(r.err.startsWith(QStringLiteral("parcelwise: ")) && r.err.contains(message), qPrintable(r.err));
        QVERIFY2(r.out.isEmpty(), qPrintable(r.out));
        QVERIFY(!r.err.contains(kSecret));
        QVERIFY(QDir(m_untouched).isEmpty());
    }

    void exportMatchesWindow_data()
    {
        QTest::addColumn<QString>("database");
        QTest::addColumn<QList<QStringList>>("chains"); // folder names from the root down; none: --all
        QTest::addColumn<QString>("blocker");           // a file put where the export needs a directory

        const auto chains = [](std::initializer_list<const char *> folders) {
            QList<QStringList> result;
            for (const char *folder : folders)
                result << QString::fromUtf8(folder).split(QLatin1Char('|'));
            return result;
        };
        const QString acme = QStringLiteral("Acme"), archive = QStringLiteral("AcmeArchive");
        QTest::newRow("two folders, one deep, names with marks")
            << acme << chains({"Docs", "Projects|Plans|2016", "Q1: Plans/Drafts"}) << QString();
        QTest::newRow("parent after child") << acme << chains({"Head Office|Filing Room", "Head Office"}) << QString();
        QTest::newRow("all, live") << acme << chains({}) << QString();
        QTest::newRow("archive, two folders") << archive << chains({"Finance", "Archive 2010|Old Projects"}) << QString();
        QTest::newRow("all, archive") << archive << chains({}) << QString();
        QTest::newRow("item failure") << acme << chains({"Projects", "Docs 2006"}) << QStringLiteral("Projects");
    }

    void exportMatchesWindow()
    {
        QFETCH(QString, database);
        QFETCH(QList<QStringList>, chains);
        QFETCH(QString, blocker);
        const QString windowDest = m_cli.freshDir(QStringLiteral("window")), windowLog = m_cli.freshDir(QStringLiteral("window-log"));
        const QString cliDest = m_cli.freshDir(QStringLiteral("cli")), cliLog = m_cli.freshDir(QStringLiteral("cli-log"));
        for (const QString &dest : {windowDest, cliDest}) {
            QFile file(QDir(dest).filePath(blocker));
            QVERIFY(blocker.isEmpty() || file.open(QIODevice::WriteOnly));
        }

        // In-process: click the way open, tick, copy.
        const QDateTime windowStart = QDateTime::currentDateTime().addSecs(-2);
        PlainFormPort port;
        HeadlessSession s(port);
        QCOMPARE(s.signIn(m_cli.fx.demo, QStringLiteral("demo"), QString(), database), HeadlessSession::Opened::Yes);
        QVERIFY(tickChains(s, chains));
        s.signin.DestinationPath = QDir::toNativeSeparators(windowDest);
        ExportRun exporter(s.signin, s.procs);
        exporter.options.logFolder = QDir::toNativeSeparators(windowLog);
        const bool logged = exporter.run();
        QCOMPARE(logged, !blocker.isEmpty());

        QStringList args = m_cli.signIn(QStringLiteral("export"), database);
        if (chains.isEmpty())
            args << QStringLiteral("--all");
        for (const QStringList &chain : std::as_const(chains))
            args << QStringLiteral("--folder") << chain.join(QLatin1Char('/'));
        args << QStringLiteral("--dest") << cliDest << QStringLiteral("--log-dir") << cliLog << QStringLiteral("--replace")
             << QStringLiteral("--progress") << QStringLiteral("--json");
        const QDateTime cliStart = QDateTime::currentDateTime().addSecs(-2);
        const Result r = m_cli.run(args);
        QVERIFY2(r.exitCode == (logged ? 1 : 0), qPrintable(r.err));

        // A date from the repository is the very same instant; without one, the moment of writing.
        const QStringList expected = treeSnapshot(windowDest, windowStart);
        QVERIFY(expected.size() > 1);
        QVERIFY(!expected.filter(QRegularExpression(QStringLiteral(" \\d+$"))).isEmpty());
        QCOMPARE(treeSnapshot(cliDest, windowStart), expected);
        QCOMPARE(logLines(cliLog), logLines(windowLog));
        if (logged) {
            QCOMPARE(logLines(cliLog).value(0), QStringLiteral("Folder ID: 14 , Folder Name: Projects , Folder Location: Projects"));
            QVERIFY(r.err.contains(QStringLiteral("log: ") + QDir::toNativeSeparators(QDir(cliLog).absolutePath())));
            // Named on stderr as it happens, with the error's own words; -q keeps it off.
            QVERIFY2(r.err.startsWith(QStringLiteral("Projects: Path/File access error: cannot create the directory ")),
                     qPrintable(r.err));
            QVERIFY(!m_cli.run(QStringList(args) << QStringLiteral("-q")).err.contains(QStringLiteral("Projects: ")));
        }

        // The summary counts what the engine counted; stderr is a pipe, so no progress line.
        // With --json, stdout holds one object with the same counts; --progress into a pipe draws
        // no line over another.
        const ExportResult &stats = exporter.result;
        auto n = [](qint64 count, const char *noun) {
            return QStringLiteral("%1 %2%3").arg(count).arg(QLatin1String(noun), count == 1 ? "" : "s");
        };
        QVERIFY2(r.err.contains(QStringLiteral("Exported %1, %2, %3 bytes")
                                      .arg(n(stats.folders, "folder"), n(stats.documents, "document")).arg(stats.bytes))
                     && r.err.contains(n(stats.failures, "failure")),
                 qPrintable(r.err));
        QVERIFY(!r.err.contains(QLatin1Char('\r')));
        const QJsonObject json = QJsonDocument::fromJson(r.out.toUtf8()).object();
        QVERIFY2(r.out.count(QLatin1Char('\n')) == 1 && json.value(QStringLiteral("documents")).toInteger() == stats.documents
                     && json.value(QStringLiteral("bytes")).toInteger() == stats.bytes
                     && json.value(QStringLiteral("failures")).toInteger() == stats.failures
                     && json.value(QStringLiteral("exitStatus")).toInt() == r.exitCode,
                 qPrintable(r.out));
    }

    // --exclude leaves a folder out with its subtree (its path below the root matched whole, letter
    // case aside, "*" across "/"); --since leaves out documents dated before its day, undated ones
    // go. What is left out is in the report as skipped, and verify holds the report to the disk.
    void filtersSelect_data()
    {
        QTest::addColumn<QStringList>("filters");
        QTest::addColumn<QString>("skipped"); // ids, in report order
        QTest::addColumn<QString>("absent");
        QTest::addColumn<QString>("present");
        QTest::newRow("exclude") << QStringList{"--all", "--exclude", "projects/plans", "--exclude", "*/filing*"}
                                 << "21 25" << "Projects/Plans" << "Branch Office/Reception";
        QTest::newRow("since") << QStringList{"--folder", "Docs", "--since", "2015-12-31"} << "1022 1012 1024 1023 1010 1013"
                               << "Docs/Final report.txt" << "Docs/What is new .txt";
    }

    void filtersSelect()
    {
        QFETCH(QStringList, filters);
        QFETCH(QString, skipped);
        QFETCH(QString, absent);
        QFETCH(QString, present);
        const QString dest = m_cli.freshDir(QStringLiteral("filtered")), report = dest + QStringLiteral(".jsonl");
        const Result r = m_cli.run(m_cli.signIn(QStringLiteral("export"), QStringLiteral("Acme")) + filters
                                   << QStringLiteral("--dest") << dest << QStringLiteral("--report") << report);
        QVERIFY2(r.exitCode == 0, qPrintable(r.err));
        QStringList ids;
        for (const QByteArray &line : fileBytes(report).split('\n')) {
            const QJsonObject o = QJsonDocument::fromJson(line).object();
            if (o.value(QStringLiteral("status")).toString() == QLatin1String("skipped"))
                ids << QString::number(o.value(QStringLiteral("id")).toInteger());
        }
        QCOMPARE(ids.join(QLatin1Char(' ')), skipped);
        QVERIFY(!QFileInfo::exists(dest + QLatin1Char('/') + absent) && QFileInfo::exists(dest + QLatin1Char('/') + present));
        QCOMPARE(m_cli.run({QStringLiteral("verify"), QStringLiteral("--report"), report, QStringLiteral("--dest"), dest,
                            QStringLiteral("--extra")}).exitCode, 0);
    }

    void dryRunListsWhatTheRunWrites()
    {
        const QString dest = m_cli.freshDir(QStringLiteral("dry")), logDir = m_cli.freshDir(QStringLiteral("dry-log"));
        QDir(dest).mkpath(QStringLiteral("Projects/Old")); // left from an earlier run
        const QStringList before = treeSnapshot(dest, {});
        QStringList args = m_cli.signIn(QStringLiteral("export"), QStringLiteral("Acme"));
        args << QStringLiteral("--all") << QStringLiteral("--dest") << dest << QStringLiteral("--log-dir") << logDir;
        // What is there is never deleted unasked: the run and its dry run refuse alike, naming it.
        for (const QStringList &extra : {QStringList{QStringLiteral("-n")}, QStringList{}}) {
            const Result refused = m_cli.run(args + extra);
            QVERIFY2(refused.exitCode == 2 && refused.err.contains(QDir::toNativeSeparators(dest + QStringLiteral("/Projects\n"))),
                     qPrintable(refused.err));
            QCOMPARE(treeSnapshot(dest, {}), before);
        }
        args << QStringLiteral("--replace");
        const Result dry = m_cli.run(QStringList(args) << QStringLiteral("--dry-run"));
        QCOMPARE(dry.exitCode, 0);
        QVERIFY2(dry.err.contains(QStringLiteral("Dry run")), qPrintable(dry.err));
        QCOMPARE(treeSnapshot(dest, {}), before);
        QVERIFY(QDir(logDir).isEmpty());

        // Replaying the listing in order gives the tree the real run leaves: a deletion takes
        // everything below it, including what the run itself wrote a moment before.
        const QString prefix = QDir::toNativeSeparators(QDir(dest).absolutePath()) + QDir::separator();
        QSet<QString> deleted, created, written;
        QMap<QString, qint64> sizes;
        auto dropBelow = [](QSet<QString> &set, const QString &dir) {
            set.removeIf([&](const QString &p) { return p == dir || p.startsWith(dir + QLatin1Char('/')); });
        };
        const QRegularExpression writeLine(QStringLiteral("^write   (.*)  \\((\\d+) bytes\\)$"));
        for (const QString &line : dry.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
            QVERIFY2(line.mid(8).startsWith(prefix), qPrintable(line));
            const QString rel = QDir::fromNativeSeparators(line.mid(8 + prefix.size()));
            if (line.startsWith(QStringLiteral("delete  "))) {
                deleted << rel;
                dropBelow(created, rel);
                dropBelow(written, rel);
            } else if (line.startsWith(QStringLiteral("mkdir   "))) {
                created << rel;
            } else {
                const QRegularExpressionMatch m = writeLine.match(line);
                QVERIFY2(m.hasMatch(), qPrintable(line));
                const QString file = QDir::fromNativeSeparators(m.captured(1).mid(prefix.size()));
                written << file;
                sizes[file] = m.captured(2).toLongLong(); // the last write of a name is the one that stays
            }
        }
        QVERIFY(deleted.contains(QStringLiteral("Projects")));
        // "A/B" and "A:B" clean to one name: the second keeps its id, nothing is deleted twice.
        QVERIFY(created.contains(QStringLiteral("A B")) && created.contains(QStringLiteral("A B [3]")));

        QCOMPARE(m_cli.run(args).exitCode, 0);
        QSet<QString> dirs, files;
        for (const QString &line : treeSnapshot(dest, {})) {
            if (line.endsWith(u'/')) {
                dirs << line.chopped(1);
                continue;
            }
            const QString file = line.section(u' ', 0, -4);
            files << file;
            QVERIFY2(sizes.value(file) == line.section(u' ', -3, -3).toLongLong(), qPrintable(line));
        }
        QCOMPARE(created, dirs);
        QCOMPARE(written, files);
    }

    void traceSql()
    {
        // Once by option, once by the environment, into the same file: appended, one statement a
        // line. (The statements' own texts are held where they are sent, in test_signin and test_tree.)
        const QString trace = m_cli.fx.filePath(QStringLiteral("trace.sql"));
        QCOMPARE(m_cli.run(m_cli.signIn(QStringLiteral("databases")) << QStringLiteral("--trace-sql") << trace).exitCode, 0);
        const QMap<QString, QString> env{{QStringLiteral("PARCELWISE_TRACE_SQL"), trace}};
        QCOMPARE(m_cli.run(m_cli.signIn(QStringLiteral("tree"), QStringLiteral("Acme")), {}, env).exitCode, 0);
        const QStringList lines = QString::fromUtf8(fileBytes(trace)).remove(u'\r').split(u'\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.count(QStringLiteral("select Com_db, com_type from com_company order by Com_db")), 2);
        QVERIFY(lines.contains(QStringLiteral("select name from sysdatabases  where name = 'Acme'")));
    }
};

QTEST_GUILESS_MAIN(TestCli)
#include "test_cli.moc"
