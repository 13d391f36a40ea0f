// The command line run as a user runs it: the built executable, real arguments, real stdin,
// stdout and stderr, exit statuses, on the demo repository that `parcelwise demo` writes. Exports
// are compared file by file with what the export engine writes when it is driven in-process the
// way the window drives it.

#include "export/exporter.h"
#include "repository/formport.h"
#include "repository/signin.h"
#include "tree/foldertree.h"
#include "tree/treeprocs.h"

#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <QtTest>

namespace {

struct Result {
    int exitCode = -1;
    QString out;
    QString err;
};

struct Entry {
    bool dir = false;
    QByteArray bytes;
    QDateTime modified;
};

using Snapshot = QMap<QString, Entry>;

Snapshot snapshot(const QString &root)
{
    Snapshot result;
    QDirIterator it(root, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QFileInfo info(path);
        Entry e;
        e.dir = info.isDir();
        if (!e.dir) {
            QFile f(path);
            if (f.open(QIODevice::ReadOnly))
                e.bytes = f.readAll();
            e.modified = info.lastModified();
        }
        result.insert(QDir(root).relativeFilePath(path), e);
    }
    return result;
}

// The one export log a run leaves in its log folder, line by line; empty when none was written.
QStringList logLines(const QString &logDir)
{
    const QStringList logs = QDir(logDir).entryList({QStringLiteral("zarnivo Parcelwise Log *.txt")}, QDir::Files);
    if (logs.isEmpty())
        return {};
    QFile f(QDir(logDir).filePath(logs.first()));
    if (!f.open(QIODevice::ReadOnly))
        return {QStringLiteral("<unreadable log>")};
    return QString::fromLocal8Bit(f.readAll()).split(QStringLiteral("\r\n"), Qt::SkipEmptyParts);
}

struct WindowRun {
    bool ok = false;
    QString why;
    Exporter::Stats stats;
    bool logged = false;
};

} // namespace

class TestCli : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void helpForEveryCommand();
    void usageErrors();
    void passwordSources();
    void signInAndDatabaseErrors();
    void databasesAndTree();
    void exportMatchesWindow_data();
    void exportMatchesWindow();
    void dryRunWritesNothing();
    void folderPathErrors();
    void itemFailureGivesExitOne();
    void traceSql();
    void progressLine();

private:
    Result run(const QStringList &args, const QByteArray &input = {}, const QMap<QString, QString> &env = {});
    QString freshDir(const QString &name);
    WindowRun windowExport(const QString &database, const QList<QStringList> &chains, bool all,
                           const QString &dest, const QString &logDir);
    QStringList signIn(const QString &command, const QString &database = {}) const;

    QTemporaryDir m_tmp;
    QString m_exe;
    QString m_server;
    int m_dirs = 0;
};

void TestCli::initTestCase()
{
    m_exe = qEnvironmentVariable("PARCELWISE_EXE");
    QVERIFY2(!m_exe.isEmpty() && QFileInfo(m_exe).isExecutable(), "PARCELWISE_EXE must name the built executable");
    QVERIFY(m_tmp.isValid());
    QDir(m_tmp.path()).mkpath(QStringLiteral("home/Documents"));

    m_server = m_tmp.filePath(QStringLiteral("server"));
    const Result demo = run({QStringLiteral("demo"), m_server});
    QCOMPARE(demo.exitCode, 0);
    QVERIFY2(demo.out.contains(QStringLiteral("--user demo")), qPrintable(demo.out));
    for (const char *file : {"zar_Master.sqlite", "Acme.sqlite", "AcmeArchive.sqlite"})
        QVERIFY2(QFileInfo::exists(QDir(m_server).filePath(QLatin1String(file))), file);
}

Result TestCli::run(const QStringList &args, const QByteArray &input, const QMap<QString, QString> &env)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove(QStringLiteral("PARCELWISE_PASSWORD"));
    environment.remove(QStringLiteral("PARCELWISE_TRACE_SQL"));
    environment.remove(QStringLiteral("DISPLAY"));
    environment.remove(QStringLiteral("WAYLAND_DISPLAY"));
    environment.remove(QStringLiteral("QT_QPA_PLATFORM")); // no display at all: the command line needs none
    environment.insert(QStringLiteral("HOME"), m_tmp.filePath(QStringLiteral("home")));
    for (auto it = env.begin(); it != env.end(); ++it)
        environment.insert(it.key(), it.value());
    process.setProcessEnvironment(environment);
    process.start(m_exe, args);
    Result result;
    if (!process.waitForStarted()) {
        result.err = process.errorString();
        return result;
    }
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(300000)) {
        process.kill();
        process.waitForFinished();
        result.err = QStringLiteral("did not finish");
        return result;
    }
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.out = QString::fromUtf8(process.readAllStandardOutput());
    result.err = QString::fromUtf8(process.readAllStandardError());
    return result;
}

QString TestCli::freshDir(const QString &name)
{
    const QString path = m_tmp.filePath(QStringLiteral("%1-%2").arg(name).arg(++m_dirs));
    QDir().mkpath(path);
    return path;
}

QStringList TestCli::signIn(const QString &command, const QString &database) const
{
    QStringList args{command, QStringLiteral("--server"), m_server, QStringLiteral("--user"), QStringLiteral("demo")};
    if (!database.isEmpty())
        args << QStringLiteral("--database") << database;
    return args;
}

// The window's way: enter the database list, pick the entry, press OK, click a path open and
// tick its folder, then start the copy.
WindowRun TestCli::windowExport(const QString &database, const QList<QStringList> &chains, bool all,
                                const QString &dest, const QString &logDir)
{
    WindowRun result;
    PlainFormPort port;
    port.server = m_server;
    port.user = QStringLiteral("demo");
    SignIn signIn(port);
    FolderTree tree;
    TreeProcs procs(signIn, tree);
    try {
        signIn.refreshDatabaseList();
        port.database = database;
        signIn.cboDBName_Click();
        QString focus;
        if (!signIn.validateAndPrepare(&focus)) {
            result.why = QStringLiteral("sign-in refused: ") + port.messages.join(QLatin1Char(';'));
            return result;
        }
        procs.Load_Trees();
        if (signIn.blnInvalidDb || tree.count() < 1) {
            result.why = QStringLiteral("no tree");
            return result;
        }
        FolderTree::Node *root = tree.node(1);
        QSet<QString> clicked;
        auto click = [&](FolderTree::Node *node) {
            if (!clicked.contains(node->key)) {
                clicked.insert(node->key);
                procs.tvDefaultRoot_NodeClick(node);
            }
        };
        auto tick = [&](FolderTree::Node *node) {
            tree.setChecked(node, true);
            procs.tvDefaultRoot_NodeCheck(node);
            procs.tvDefaultRoot_Click();
        };
        if (all) {
            click(root);
            const std::vector<FolderTree::Node *> children = root->children;
            for (FolderTree::Node *child : children)
                tick(child);
        }
        for (const QStringList &chain : chains) {
            FolderTree::Node *node = root;
            for (const QString &name : chain) {
                click(node);
                FolderTree::Node *found = nullptr;
                for (FolderTree::Node *child : node->children) {
                    if (child->text == name)
                        found = child;
                }
                if (!found) {
                    result.why = QStringLiteral("no folder ") + name;
                    return result;
                }
                node = found;
            }
            tick(node);
        }
        signIn.DestinationPath = QDir::toNativeSeparators(dest);
        Exporter exporter(signIn, procs);
        exporter.logFolderOverride = QDir::toNativeSeparators(logDir);
        result.logged = exporter.run();
        result.stats = exporter.stats;
        result.ok = true;
    } catch (const std::exception &e) {
        result.why = QString::fromLocal8Bit(e.what());
    }
    return result;
}

void TestCli::helpForEveryCommand()
{
    const Result tool = run({QStringLiteral("--help")});
    QCOMPARE(tool.exitCode, 0);
    QVERIFY(tool.out.startsWith(QStringLiteral("Usage: parcelwise <command> [options]")));
    for (const char *command : {"databases", "tree", "export", "demo"})
        QVERIFY2(tool.out.contains(QRegularExpression(QStringLiteral("\\n  %1 +\\S").arg(QLatin1String(command)))), command);
    QVERIFY(tool.out.contains(QStringLiteral("Examples:")));

    const QList<QStringList> forms = {
        {QStringLiteral("databases"), QStringLiteral("--help")},
        {QStringLiteral("help"), QStringLiteral("tree")},
        {QStringLiteral("export"), QStringLiteral("-h")},
        {QStringLiteral("demo"), QStringLiteral("--help")},
    };
    for (const QStringList &form : forms) {
        const QString command = form.first() == QLatin1String("help") ? form.last() : form.first();
        const Result help = run(form);
        QCOMPARE(help.exitCode, 0);
        QVERIFY2(help.out.startsWith(QStringLiteral("Usage: parcelwise ") + command), qPrintable(help.out));
        QVERIFY(help.out.contains(QStringLiteral("\nOptions:\n")));
        QVERIFY(help.out.contains(QStringLiteral("\nExamples:\n  parcelwise")));
        // Option help starts in one column for every option of the command.
        const QStringList optionLines = help.out.section(QStringLiteral("\nOptions:\n"), 1)
                                            .section(QStringLiteral("\n\n"), 0, 0)
                                            .split(QLatin1Char('\n'));
        QSet<qsizetype> columns;
        for (const QString &line : optionLines) {
            const QRegularExpressionMatch m = QRegularExpression(QStringLiteral("^  (-\\S.*?)  +\\S")).match(line);
            if (m.hasMatch())
                columns.insert(m.capturedEnd(0) - 1);
        }
        QCOMPARE(columns.size(), 1);
        // A password is never shown as an argument.
        QVERIFY(!help.out.contains(QRegularExpression(QStringLiteral("--password[ =]"))));
        QVERIFY(!help.out.contains(QRegularExpression(QStringLiteral("PARCELWISE_PASSWORD=\\S"))));
    }
    const Result exportHelp = run({QStringLiteral("export"), QStringLiteral("--help")});
    for (const char *option : {"--folder PATH", "--all", "--dest DIR", "--dry-run", "--log-dir DIR", "--trace-sql FILE",
                               "--password-stdin"})
        QVERIFY2(exportHelp.out.contains(QLatin1String(option)), option);

    const Result version = run({QStringLiteral("--version")});
    QCOMPARE(version.exitCode, 0);
    QVERIFY(version.out.startsWith(QStringLiteral("parcelwise 6.")));
}

void TestCli::usageErrors()
{
    const QString dest = freshDir(QStringLiteral("usage"));
    struct Case {
        QStringList args;
        QString message;
    };
    const QList<Case> cases = {
        {{QStringLiteral("frobnicate")}, QStringLiteral("unknown command 'frobnicate'")},
        {signIn(QStringLiteral("export"), QStringLiteral("Acme")) << QStringLiteral("--all") << QStringLiteral("--bogus"),
         QStringLiteral("unknown option '--bogus'")},
        {signIn(QStringLiteral("export"), QStringLiteral("Acme")) << QStringLiteral("--all"), QStringLiteral("missing --dest")},
        {signIn(QStringLiteral("export"), QStringLiteral("Acme")) << QStringLiteral("--dest") << dest,
         QStringLiteral("--folder PATH (repeatable) or --all")},
        {signIn(QStringLiteral("export"), QStringLiteral("Acme")) << QStringLiteral("--all") << QStringLiteral("--folder")
             << QStringLiteral("Docs") << QStringLiteral("--dest") << dest,
         QStringLiteral("--folder and --all cannot be combined")},
        {signIn(QStringLiteral("export"), QStringLiteral("Acme")) << QStringLiteral("--all") << QStringLiteral("--dest")
             << m_tmp.filePath(QStringLiteral("no-such-dir")),
         QStringLiteral("is not an existing directory")},
        {signIn(QStringLiteral("tree"), QStringLiteral("Acme")) << QStringLiteral("--depth") << QStringLiteral("deep"),
         QStringLiteral("--depth needs a whole number")},
        {signIn(QStringLiteral("tree"), QStringLiteral("Acme")) << QStringLiteral("--depth"),
         QStringLiteral("option '--depth' needs a value (N)")},
        {{QStringLiteral("demo")}, QStringLiteral("missing DIR")},
        {{QStringLiteral("demo"), QStringLiteral("a"), QStringLiteral("b")}, QStringLiteral("unexpected argument 'b'")},
    };
    for (const Case &c : cases) {
        const Result r = run(c.args);
        QVERIFY2(r.exitCode == 2, qPrintable(c.args.join(QLatin1Char(' ')) + QStringLiteral(" -> ") + r.err));
        QVERIFY2(r.err.contains(c.message), qPrintable(r.err));
        QVERIFY2(r.out.isEmpty(), qPrintable(r.out));
    }
    QVERIFY(QDir(dest).isEmpty());
}

void TestCli::passwordSources()
{
    const QString secret = QStringLiteral("Wr0ng-Secret");

    // --password-stdin with nothing on stdin: there is no password to read.
    Result r = run(signIn(QStringLiteral("databases")) << QStringLiteral("--password-stdin"));
    QCOMPARE(r.exitCode, 2);
    QVERIFY2(r.err.contains(QStringLiteral("--password-stdin")) && r.err.contains(QStringLiteral("no line")), qPrintable(r.err));

    // An empty line is an empty password, which the demo login has.
    r = run(signIn(QStringLiteral("databases")) << QStringLiteral("--password-stdin"), "\n");
    QCOMPARE(r.exitCode, 0);
    QVERIFY(r.out.contains(QStringLiteral("Acme")));

    // The password is never an argument, and is never echoed.
    r = run(signIn(QStringLiteral("databases")) << QStringLiteral("--password") << secret);
    QCOMPARE(r.exitCode, 2);
    QVERIFY(r.err.contains(QStringLiteral("--password-stdin")));
    QVERIFY(!r.err.contains(secret) && !r.out.contains(secret));

    // A wrong password from stdin or from the environment: the sign-in's own message, exit 2.
    const QList<Result> wrong = {
        run(signIn(QStringLiteral("databases")) << QStringLiteral("--password-stdin"), secret.toUtf8() + "\n"),
        run(signIn(QStringLiteral("databases")), {}, {{QStringLiteral("PARCELWISE_PASSWORD"), secret}}),
    };
    for (const Result &w : wrong) {
        QCOMPARE(w.exitCode, 2);
        QVERIFY2(w.err.startsWith(QStringLiteral("parcelwise: ")), qPrintable(w.err));
        QVERIFY2(!w.err.contains(secret) && !w.out.contains(secret), qPrintable(w.err));
    }

    // --password-stdin wins over the environment.
    r = run(signIn(QStringLiteral("databases")) << QStringLiteral("--password-stdin"), "\n",
            {{QStringLiteral("PARCELWISE_PASSWORD"), secret}});
    QCOMPARE(r.exitCode, 0);
}

void TestCli::signInAndDatabaseErrors()
{
    struct Case {
        QStringList args;
        QString message;
    };
    const QList<Case> cases = {
        {signIn(QStringLiteral("tree"), QStringLiteral("Nope")), QStringLiteral("Selected database does not exists")},
        {signIn(QStringLiteral("tree"), QStringLiteral("Initech")), QStringLiteral("Selected database does not exists")},
        {signIn(QStringLiteral("tree"), QStringLiteral("Scratch")), QStringLiteral("Invalid database selected")},
        {signIn(QStringLiteral("tree")), QStringLiteral("Please select database name")},
        {{QStringLiteral("tree"), QStringLiteral("--user"), QStringLiteral("demo"), QStringLiteral("--database"),
          QStringLiteral("Acme")},
         QStringLiteral("Please enter server name")},
        {{QStringLiteral("databases"), QStringLiteral("--server"), m_server}, QStringLiteral("Please enter user name")},
        {signIn(QStringLiteral("export"), QStringLiteral("Nope")) << QStringLiteral("--all") << QStringLiteral("--dest")
             << freshDir(QStringLiteral("nope")),
         QStringLiteral("Selected database does not exists")},
    };
    for (const Case &c : cases) {
        const Result r = run(c.args);
        QVERIFY2(r.exitCode == 2, qPrintable(c.args.join(QLatin1Char(' ')) + QStringLiteral(" -> ") + r.err));
        QVERIFY2(r.err.contains(QStringLiteral("parcelwise: ") + c.message), qPrintable(r.err));
        QVERIFY(r.out.isEmpty());
    }

    // A server folder that is not there.
    const Result r = run({QStringLiteral("databases"), QStringLiteral("--server"), m_tmp.filePath(QStringLiteral("no-server")),
                          QStringLiteral("--user"), QStringLiteral("demo")});
    QCOMPARE(r.exitCode, 2);
    QVERIFY2(r.err.contains(QStringLiteral("SQL Server does not exist or access denied")), qPrintable(r.err));
}

void TestCli::databasesAndTree()
{
    Result r = run(signIn(QStringLiteral("databases")));
    QCOMPARE(r.exitCode, 0);
    QStringList rows;
    for (const QString &line : r.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts))
        rows << line.split(QLatin1Char(' '), Qt::SkipEmptyParts).join(QLatin1Char('|'));
    const QStringList expectedRows = {
        QStringLiteral("DATABASE|TYPE|LIVE|DATABASE"),
        QStringLiteral("Acme|Live|-"),
        QStringLiteral("AcmeArchive|Archive|Acme"),
        QStringLiteral("Globex|Live|-"),
        QStringLiteral("Initech|Live|-"),
        QStringLiteral("Scratch|Live|-"),
        QStringLiteral("VandelayArchive|Archive|-"),
    };
    QCOMPARE(rows, expectedRows);

    // The root and its children, as the window shows them after one click on the root.
    r = run(signIn(QStringLiteral("tree"), QStringLiteral("Acme")));
    QCOMPARE(r.exitCode, 0);
    const QString live = QStringLiteral(
        " 1  Acme Corporation [Acme <Live> ]\n"
        " 2    A/B\n"
        " 3    A:B\n"
        " 4    Admin\n"
        " 5    Branch Office\n"
        " 6    Contracts\n"
        " 7    Docs\n"
        " 8    Docs 2006\n"
        " 9    Empty Folder\n"
        "10    Finance\n"
        "11    Head Office\n"
        "12    Legal\n"
        "13    Marketing\n"
        "14    Projects\n"
        "15    Q1: Plans/Drafts\n"
        "16    Recycle Bin\n"
        "17    Templates\n"
        "18    Training\n"
        "19    Unsorted\n");
    QCOMPARE(r.out, live);

    r = run(signIn(QStringLiteral("tree"), QStringLiteral("Acme")) << QStringLiteral("--depth") << QStringLiteral("0"));
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(r.out, QStringLiteral("1  Acme Corporation [Acme <Live> ]\n"));

    r = run(signIn(QStringLiteral("tree"), QStringLiteral("Acme")) << QStringLiteral("--depth=4"));
    QCOMPARE(r.exitCode, 0);
    QVERIFY2(r.out.contains(QStringLiteral("14    Projects\n25      Plans\n26        2016\n27          Reports\n")),
             qPrintable(r.out));
    QVERIFY(r.out.contains(QStringLiteral("11    Head Office\n21      Filing Room\n22        Invoices\n")));

    // The archive view lists only folders with archived documents, under the archive's name.
    r = run(signIn(QStringLiteral("tree"), QStringLiteral("AcmeArchive")));
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(r.out, QStringLiteral(" 1  Acme Corporation [AcmeArchive <Archive> ]\n"
                                   "20    Archive 2010\n"
                                   "10    Finance\n"
                                   "12    Legal\n"
                                   "38    Old Branch\n"));

    // Clicking Legal in the archive view meets the folder that is in both folder lists: the
    // window shows an error report, the command line prints it and fails.
    r = run(signIn(QStringLiteral("tree"), QStringLiteral("AcmeArchive")) << QStringLiteral("--depth") << QStringLiteral("2"));
    QCOMPARE(r.exitCode, 2);
    QVERIFY2(r.err.contains(QStringLiteral("error report")), qPrintable(r.err));
    QVERIFY(r.out.isEmpty());
}

void TestCli::exportMatchesWindow_data()
{
    QTest::addColumn<QString>("database");
    QTest::addColumn<QStringList>("folders");
    QTest::addColumn<QList<QStringList>>("chains");

    QTest::newRow("one folder") << QStringLiteral("Acme") << QStringList{QStringLiteral("Projects")}
                                << QList<QStringList>{{QStringLiteral("Projects")}};
    QTest::newRow("two folders, one deep, names with marks")
        << QStringLiteral("Acme")
        << QStringList{QStringLiteral("Docs"), QStringLiteral("Projects/Plans/2016"), QStringLiteral("Q1: Plans/Drafts")}
        << QList<QStringList>{{QStringLiteral("Docs")},
                              {QStringLiteral("Projects"), QStringLiteral("Plans"), QStringLiteral("2016")},
                              {QStringLiteral("Q1: Plans/Drafts")}};
    QTest::newRow("parent after child") << QStringLiteral("Acme")
                                        << QStringList{QStringLiteral("Head Office/Filing Room"), QStringLiteral("Head Office")}
                                        << QList<QStringList>{{QStringLiteral("Head Office"), QStringLiteral("Filing Room")},
                                                              {QStringLiteral("Head Office")}};
    QTest::newRow("all, live") << QStringLiteral("Acme") << QStringList{} << QList<QStringList>{};
    QTest::newRow("archive, two folders")
        << QStringLiteral("AcmeArchive")
        << QStringList{QStringLiteral("Finance"), QStringLiteral("Archive 2010/Old Projects")}
        << QList<QStringList>{{QStringLiteral("Finance")}, {QStringLiteral("Archive 2010"), QStringLiteral("Old Projects")}};
    QTest::newRow("all, archive") << QStringLiteral("AcmeArchive") << QStringList{} << QList<QStringList>{};
}

void TestCli::exportMatchesWindow()
{
    QFETCH(QString, database);
    QFETCH(QStringList, folders);
    QFETCH(QList<QStringList>, chains);
    const bool all = folders.isEmpty();

    const QString windowDest = freshDir(QStringLiteral("window"));
    const QString windowLog = freshDir(QStringLiteral("window-log"));
    const QDateTime windowStart = QDateTime::currentDateTime().addSecs(-2);
    const WindowRun window = windowExport(database, chains, all, windowDest, windowLog);
    QVERIFY2(window.ok, qPrintable(window.why));

    const QString cliDest = freshDir(QStringLiteral("cli"));
    const QString cliLog = freshDir(QStringLiteral("cli-log"));
    QStringList args = signIn(QStringLiteral("export"), database);
    if (all)
        args << QStringLiteral("--all");
    for (const QString &folder : folders)
        args << QStringLiteral("--folder") << folder;
    args << QStringLiteral("--dest") << cliDest << QStringLiteral("--log-dir") << cliLog;
    const QDateTime cliStart = QDateTime::currentDateTime().addSecs(-2);
    const Result r = run(args);
    QVERIFY2(r.exitCode == (window.logged ? 1 : 0), qPrintable(r.err));
    QVERIFY(r.out.isEmpty());

    const Snapshot expected = snapshot(windowDest);
    const Snapshot actual = snapshot(cliDest);
    QVERIFY(expected.size() > 1);
    QCOMPARE(actual.keys(), expected.keys());
    int dated = 0;
    for (auto it = expected.begin(); it != expected.end(); ++it) {
        const Entry &want = it.value();
        const Entry &got = actual.value(it.key());
        QVERIFY2(got.dir == want.dir, qPrintable(it.key()));
        QVERIFY2(got.bytes == want.bytes, qPrintable(it.key()));
        if (want.dir)
            continue;
        if (want.modified < windowStart) { // a repository date: the very same instant
            ++dated;
            QVERIFY2(got.modified == want.modified, qPrintable(it.key() + QStringLiteral(": ")
                                                                + got.modified.toString(Qt::ISODateWithMs) + QStringLiteral(" / ")
                                                                + want.modified.toString(Qt::ISODateWithMs)));
        } else { // no date in the repository: the moment of writing
            QVERIFY2(got.modified >= cliStart, qPrintable(it.key()));
        }
    }
    QVERIFY(dated > 0);
    QCOMPARE(logLines(cliLog), logLines(windowLog));

    // The summary counts what the engine counted.
    const QString summary = QStringLiteral("Exported %1 folders, %2 documents, %3 bytes")
                                .arg(window.stats.folders)
                                .arg(window.stats.documents)
                                .arg(window.stats.bytes);
    QVERIFY2(r.err.contains(summary), qPrintable(r.err + QStringLiteral(" / ") + summary));
    QVERIFY2(r.err.contains(QStringLiteral("%1 failures").arg(window.stats.failures)), qPrintable(r.err));
    QVERIFY(!r.err.contains(QLatin1Char('\r'))); // stderr is a pipe: no progress line
}

void TestCli::dryRunWritesNothing()
{
    const QString dest = freshDir(QStringLiteral("dry"));
    const QString logDir = freshDir(QStringLiteral("dry-log"));
    QDir(dest).mkpath(QStringLiteral("Projects/Old"));
    {
        QFile keep(QDir(dest).filePath(QStringLiteral("Projects/keep.txt")));
        QVERIFY(keep.open(QIODevice::WriteOnly));
        keep.write("left from an earlier run");
    }
    const Snapshot before = snapshot(dest);

    QStringList args = signIn(QStringLiteral("export"), QStringLiteral("Acme"));
    args << QStringLiteral("--all") << QStringLiteral("--dest") << dest << QStringLiteral("--log-dir") << logDir;
    const Result dry = run(QStringList(args) << QStringLiteral("--dry-run"));
    QCOMPARE(dry.exitCode, 0);
    QVERIFY2(dry.err.contains(QStringLiteral("Dry run")), qPrintable(dry.err));
    QCOMPARE(snapshot(dest).keys(), before.keys());
    QVERIFY(QDir(logDir).isEmpty());

    const QString prefix = QDir::toNativeSeparators(QDir(dest).absolutePath()) + QDir::separator();
    // Replaying the listing in order gives the tree the real run leaves: a deletion takes
    // everything below it, including what the run itself wrote a moment before.
    QSet<QString> deleted, created, written;
    QMap<QString, qint64> sizes;
    auto dropBelow = [](QSet<QString> &set, const QString &dir) {
        for (auto it = set.begin(); it != set.end();) {
            if (*it == dir || it->startsWith(dir + QLatin1Char('/')))
                it = set.erase(it);
            else
                ++it;
        }
    };
    const QRegularExpression writeLine(QStringLiteral("^write   (.*)  \\((\\d+) bytes\\)$"));
    for (const QString &line : dry.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        const QString path = line.mid(8);
        QVERIFY2(path.startsWith(prefix), qPrintable(line));
        if (line.startsWith(QStringLiteral("delete  "))) {
            const QString rel = QDir::fromNativeSeparators(path.mid(prefix.size()));
            deleted << rel;
            dropBelow(created, rel);
            dropBelow(written, rel);
        } else if (line.startsWith(QStringLiteral("mkdir   "))) {
            created << QDir::fromNativeSeparators(path.mid(prefix.size()));
        } else {
            const QRegularExpressionMatch m = writeLine.match(line);
            QVERIFY2(m.hasMatch(), qPrintable(line));
            const QString rel = QDir::fromNativeSeparators(m.captured(1).mid(prefix.size()));
            written << rel;
            sizes[rel] = m.captured(2).toLongLong(); // the last write of a name is the one that stays
        }
    }
    QVERIFY(deleted.contains(QStringLiteral("Projects")));
    QVERIFY(deleted.contains(QStringLiteral("A B"))); // "A/B" and "A:B" clean to one name

    // The real run writes exactly what the dry run listed.
    const Result real = run(args);
    QCOMPARE(real.exitCode, 0);
    const Snapshot after = snapshot(dest);
    QSet<QString> dirs, files;
    for (auto it = after.begin(); it != after.end(); ++it) {
        if (it.value().dir)
            dirs << it.key();
        else
            files << it.key();
    }
    QCOMPARE(created, dirs);
    QCOMPARE(written, files);
    for (const QString &file : std::as_const(files))
        QVERIFY2(sizes.value(file) == after.value(file).bytes.size(), qPrintable(file));
    QVERIFY(!after.contains(QStringLiteral("Projects/keep.txt")));
}

void TestCli::folderPathErrors()
{
    const QString dest = freshDir(QStringLiteral("paths"));
    struct Case {
        QString database;
        QStringList folders;
        QString message;
    };
    const QList<Case> cases = {
        {QStringLiteral("Acme"), {QStringLiteral("Projects/Plns/2016")},
         QStringLiteral("no folder \"Plns\" in \"Projects\"")},
        {QStringLiteral("Acme"), {QStringLiteral("Docs"), QStringLiteral("Nowhere")},
         QStringLiteral("no folder \"Nowhere\" below the root folder")},
        // Budgets holds no archived documents: the archive view does not show it.
        {QStringLiteral("AcmeArchive"), {QStringLiteral("Finance/Budgets")},
         QStringLiteral("no folder \"Budgets\" in \"Finance\"")},
        {QStringLiteral("Acme"), {QStringLiteral("/")}, QStringLiteral("--folder needs a folder path")},
    };
    for (const Case &c : cases) {
        QStringList args = signIn(QStringLiteral("export"), c.database);
        for (const QString &folder : c.folders)
            args << QStringLiteral("--folder") << folder;
        args << QStringLiteral("--dest") << dest << QStringLiteral("--log-dir") << dest;
        const Result r = run(args);
        QVERIFY2(r.exitCode == 2, qPrintable(r.err));
        QVERIFY2(r.err.contains(c.message), qPrintable(r.err));
        QVERIFY2(QDir(dest).isEmpty(), "nothing is written when a path does not resolve");
    }
}

void TestCli::itemFailureGivesExitOne()
{
    const QString dest = freshDir(QStringLiteral("blocked"));
    const QString logDir = freshDir(QStringLiteral("blocked-log"));
    {
        // A file where the Projects directory has to go.
        QFile blocker(QDir(dest).filePath(QStringLiteral("Projects")));
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.write("not a directory");
    }
    QStringList args = signIn(QStringLiteral("export"), QStringLiteral("Acme"));
    args << QStringLiteral("--folder") << QStringLiteral("Projects") << QStringLiteral("--folder") << QStringLiteral("Docs 2006")
         << QStringLiteral("--dest") << dest << QStringLiteral("--log-dir") << logDir;
    const Result r = run(args);
    QCOMPARE(r.exitCode, 1);

    const QStringList lines = logLines(logDir);
    QVERIFY2(!lines.isEmpty(), qPrintable(r.err));
    QCOMPARE(lines.first(), QStringLiteral("Folder ID: 14 , Folder Name: Projects , Folder Location: Projects"));
    QVERIFY(r.err.contains(QStringLiteral("log: ") + QDir::toNativeSeparators(QDir(logDir).absolutePath())));
    QVERIFY(!r.err.contains(QStringLiteral(" 0 failures")));
    // The other folder is exported all the same.
    QVERIFY(QFileInfo::exists(QDir(dest).filePath(QStringLiteral("Docs 2006/Summary 2006.txt"))));
}

void TestCli::traceSql()
{
    const QString trace = m_tmp.filePath(QStringLiteral("trace.sql"));
    const QString catalogue = QStringLiteral("select Com_db, com_type from com_company order by Com_db");
    for (int i = 0; i < 2; ++i) {
        const Result r = run(signIn(QStringLiteral("databases")) << QStringLiteral("--trace-sql") << trace);
        QCOMPARE(r.exitCode, 0);
    }
    QFile file(trace);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QStringList lines = QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (QString &line : lines)
        line.remove(QLatin1Char('\r'));
    QCOMPARE(lines.count(catalogue), 2); // appended, not replaced
    QVERIFY(lines.contains(QStringLiteral(
        "select com_db from zar_master..Com_Company where com_id = (select live_com_id from zar_master..com_company "
        "where com_db ='AcmeArchive')")));

    // The environment variable does the same, and every statement is on its own line exactly.
    const QString envTrace = m_tmp.filePath(QStringLiteral("env-trace.sql"));
    const Result r = run(signIn(QStringLiteral("tree"), QStringLiteral("Acme")), {},
                         {{QStringLiteral("PARCELWISE_TRACE_SQL"), envTrace}});
    QCOMPARE(r.exitCode, 0);
    QFile envFile(envTrace);
    QVERIFY(envFile.open(QIODevice::ReadOnly));
    const QStringList statements = QString::fromUtf8(envFile.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    const QString firstLevel = QStringLiteral("SELECT ") + QStringLiteral(" a.Rec_ID, ") + QStringLiteral(" a.Folder_Parent, ")
        + QStringLiteral(" a.Folder_Name, ") + QStringLiteral(" a.IsAdmin , ") + QStringLiteral(" a.Icon_rec_id , ")
        + QStringLiteral(" a.Folder_Type ") + QStringLiteral(" FROM ZAR_Folder a, zar_FolderLive b")
        + QStringLiteral(" where a.rec_id = b.rec_id and (a.Folder_Parent=") + QStringLiteral("0") + QStringLiteral(")")
        + QStringLiteral(" ORDER BY a.Folder_Parent, a.Folder_Name");
    const QString rootChildren = QStringLiteral("SELECT a.rec_id, a.icon_rec_id, a.Folder_Type, a.Folder_Name ")
        + QStringLiteral(" FROM ZAR_FOLDER a, zar_folderLive b") + QStringLiteral(" WHERE a.rec_id = b.rec_id and  a.FOLDER_PARENT=")
        + QStringLiteral("1") + QStringLiteral(" order by a.Folder_Parent, a.Folder_Name, a.rec_id");
    QVERIFY(statements.contains(catalogue));
    QVERIFY(statements.contains(QStringLiteral("select name from sysdatabases  where name = 'Acme'")));
    QVERIFY(statements.contains(firstLevel));
    QVERIFY(statements.contains(rootChildren));
    QVERIFY(statements.indexOf(firstLevel) < statements.indexOf(rootChildren));
}

void TestCli::progressLine()
{
    QStringList args = signIn(QStringLiteral("export"), QStringLiteral("Globex"));
    args << QStringLiteral("--all") << QStringLiteral("--log-dir") << freshDir(QStringLiteral("progress-log"));

    const Result forced = run(QStringList(args) << QStringLiteral("--dest") << freshDir(QStringLiteral("progress"))
                                                << QStringLiteral("--progress"));
    QCOMPARE(forced.exitCode, 0);
    QVERIFY2(forced.err.contains(QLatin1Char('\r')), qPrintable(forced.err));
    QVERIFY(forced.err.contains(QRegularExpression(QStringLiteral("\\r\\d+ folders  \\d+ documents  "))));
    // The summary stands on a line of its own after the progress line was wiped.
    QVERIFY(forced.err.contains(QRegularExpression(QStringLiteral("\\r *\\rExported 3 folders, 3 documents, \\d+ bytes"))));

    const Result piped = run(QStringList(args) << QStringLiteral("--dest") << freshDir(QStringLiteral("quiet")));
    QCOMPARE(piped.exitCode, 0);
    QVERIFY(!piped.err.contains(QLatin1Char('\r')));
    QCOMPARE(piped.err.count(QLatin1Char('\n')), 1);
    QVERIFY(piped.err.startsWith(QStringLiteral("Exported 3 folders, 3 documents, ")));
}

QTEST_GUILESS_MAIN(TestCli)
#include "test_cli.moc"
