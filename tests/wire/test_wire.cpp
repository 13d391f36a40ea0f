// The SQL Server path end to end: the tool through Qt's ODBC driver and FreeTDS's ODBC driver to
// the SQL Server stand-in, which serves a copy of the demo repository (with a 50 MiB document,
// an empty one and undated ones added) over TDS. Every outcome is set against the same steps on
// the embedded server: sign-in, tree, export (files, dates, log, SQL trace).

#include "errors/hunterr.h"
#include "export/exporter.h"
#include "exportcheck.h"
#include "repository/connection.h"
#include "scopes.h"
#include "testsupport.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRandomGenerator>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

using tree::FolderTree;
using session::HeadlessSession;
using session::PlainFormPort;
using exporting::ExportOptions;
using exporting::ExportResult;
using exporting::Exporter;

using Opened = HeadlessSession::Opened;

namespace {

constexpr qint64 kBigDocument = 50 * 1024 * 1024;

QByteArray noise(qint64 size, quint32 seed)
{
    QByteArray b(size, Qt::Uninitialized);
    QRandomGenerator g(seed);
    g.fillRange(reinterpret_cast<quint32 *>(b.data()), size / 4);
    return b;
}

// Documents the demo lacks for this path: one far over any TEXTSIZE, an empty one and undated
// ones, live and archived. Added to a writable copy of the demo server.
bool addWireDocuments(const QString &server, QString *error)
{
    const auto exec = [error](QSqlQuery &q) {
        if (q.exec())
            return true;
        *error = q.lastError().text();
        return false;
    };
    const QString name = QStringLiteral("wire-fixture");
    bool ok = true;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        db.setDatabaseName(server + QStringLiteral("/Acme.sqlite"));
        ok = db.open();
        QSqlQuery q(db);
        q.exec(QStringLiteral("ATTACH DATABASE '%1' AS arc").arg(server + QStringLiteral("/AcmeArchive.sqlite")));
        const struct {
            qint64 id, folder;
            const char *file, *title, *actual, *uploaded;
            qint64 size;
            bool archived;
        } docs[] = {
            {2101, 7, "big.bin", "Big document", "2018-06-30 10:11:12.345", nullptr, kBigDocument, false},
            {2102, 7, "empty.txt", "Empty document", nullptr, nullptr, 0, false},
            {2103, 7, "mid.bin", "Undated document", nullptr, nullptr, 100000, false},
            {2104, 28, "ledger-big.bin", "Archived big ledger", nullptr, "2009-12-31 23:59:59.997", kBigDocument, true},
            {2105, 28, "ledger-empty.txt", "Archived empty ledger", nullptr, nullptr, 0, true},
        };
        for (const auto &d : docs) {
            if (!ok)
                break;
            const QByteArray bytes = noise(d.size, quint32(d.id));
            q.prepare(QStringLiteral("insert into zar_file (rec_id, folder_rec_id, File_Name, File_Description, "
                                     "FileActualDate, File_DateUploaded, file_data) values (?, ?, ?, ?, ?, ?, ?)"));
            q.addBindValue(d.id);
            q.addBindValue(d.folder);
            q.addBindValue(QString::fromUtf8(d.file));
            q.addBindValue(QString::fromUtf8(d.title));
            q.addBindValue(d.actual ? QVariant(QString::fromLatin1(d.actual)) : QVariant(QMetaType::fromType<QString>()));
            q.addBindValue(d.uploaded ? QVariant(QString::fromLatin1(d.uploaded)) : QVariant(QMetaType::fromType<QString>()));
            q.addBindValue(d.archived ? QVariant(QMetaType::fromType<QByteArray>()) : QVariant(bytes));
            ok = exec(q);
            q.prepare(d.archived ? QStringLiteral("insert into ZAR_FileArchived (rec_id) values (?)")
                                 : QStringLiteral("insert into zar_fileLive (rec_id) values (?)"));
            q.addBindValue(d.id);
            ok = ok && exec(q);
            if (d.archived) {
                q.prepare(QStringLiteral("insert into arc.zar_FileArchive (FileID, FileData) values (?, ?)"));
                q.addBindValue(d.id);
                q.addBindValue(bytes);
                ok = ok && exec(q);
            }
        }
        q = QSqlQuery();
        db.close();
    }
    QSqlDatabase::removeDatabase(name);
    return ok;
}

// Every directory and file below dir: relative path, size, SHA-256 and the modification time
// taken from the repository (a file written after runStart has none and shows "undated").
QStringList filesWithDates(const QString &dir, const QDateTime &runStart)
{
    QSet<QString> dirs;
    QStringList files;
    listTree(dir, &dirs, &files);
    files.sort();
    QStringList out;
    for (const QString &rel : std::as_const(files)) {
        QFile f(dir + u'/' + rel);
        if (!f.open(QIODevice::ReadOnly))
            return {QStringLiteral("unreadable ") + rel};
        QCryptographicHash h(QCryptographicHash::Sha256);
        h.addData(&f);
        out << QStringLiteral("%1 %2 %3 %4")
                   .arg(rel)
                   .arg(f.size())
                   .arg(QString::fromLatin1(h.result().toHex()))
                   .arg(QFileInfo(f).lastModified() < runStart
                            ? QString::number(QFileInfo(f).lastModified().toMSecsSinceEpoch())
                            : QStringLiteral("undated"));
    }
    QStringList dirList(dirs.begin(), dirs.end());
    dirList.sort();
    return dirList + out;
}

// The tree under node, every node clicked open first, as "key text image" lines.
void walkTree(HeadlessSession &s, FolderTree::Node *node, int depth, QStringList &out)
{
    if (!node || depth > 12)
        return;
    out << QStringLiteral("%1%2 %3 %4").arg(QString(depth * 2, u' '), node->key, node->text).arg(node->image);
    if (!s.click(node))
        out << QStringLiteral("click failed");
    const std::vector<FolderTree::Node *> children = node->children;
    for (FolderTree::Node *child : children)
        walkTree(s, child, depth + 1, out);
}

} // namespace

class TestWire : public QObject {
    Q_OBJECT

    DemoFixture m_fx;
    ErrorTrailScope m_trail; // what the error trail would have put in front of the person
    QString m_wire;   // "127.0.0.1,PORT"
    int m_port = 0;
    QProcess m_standin;
    int m_runs = 0;
    QDateTime m_started; // files dated later than this kept the time they were written

    // The same sign-in on the embedded server and on the stand-in.
    QString server(bool wire) const { return wire ? m_wire : m_fx.demo; }

    bool startStandin()
    {
        m_port = ::startStandin(m_standin, m_fx.demo);
        m_wire = QStringLiteral("127.0.0.1,%1").arg(m_port);
        return m_port > 0;
    }

    // A bare ODBC connection to the stand-in with the given extra text.
    QSqlDatabase rawConnection(const QString &name, const QString &database, const QString &extra)
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QODBC"), name);
        db.setDatabaseName(QStringLiteral("DRIVER={FreeTDS};Server=127.0.0.1;Port=%1;Database=%2;UID=demo;PWD=;"
                                          "TDS_Version=7.4%3")
                               .arg(m_port)
                               .arg(database, extra));
        return db;
    }

    struct Run {
        QStringList files;
        QByteArray log;
        QByteArray trace;
        qint64 failures = 0;
    };
    Run exportAll(bool wire, const QString &database, const QString &dest, const QString &blocker);

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init() { m_trail.shown.clear(); }
    void signInFlows_data();
    void signInFlows();
    void treeLiveAndArchive();
    void exportEqualsEmbedded_data();
    void exportEqualsEmbedded();
    void textSize();
    void failuresAndSessions();
};

void TestWire::initTestCase()
{
    if (!odbcDriverRegistered(QStringLiteral("FreeTDS")))
        QSKIP("FreeTDS's ODBC driver is not registered (scripts/setup.sh installs tdsodbc)");
    m_started = QDateTime::currentDateTime().addSecs(-1);
    qputenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
    qputenv("PARCELWISE_ODBC_DRIVER", "FreeTDS");
    qunsetenv("PARCELWISE_ODBC_OPTIONS");
    qunsetenv("PARCELWISE_TDS_VERSION");
    repo::setEmbeddedDriver(QStringLiteral("QSQLITE"));
    repo::setTraceFile(QString());

    QVERIFY2(m_fx.setUp(), qPrintable(m_fx.error));

    QString error;
    QVERIFY2(addWireDocuments(m_fx.demo, &error), qPrintable(error));
    QVERIFY2(startStandin(), "the stand-in did not start");
}

void TestWire::cleanupTestCase()
{
    if (m_standin.state() != QProcess::NotRunning) {
        m_standin.closeWriteChannel(); // its cue to end
        if (!m_standin.waitForFinished(10000))
            m_standin.kill();
    }
}

void TestWire::signInFlows_data()
{
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("database");
    QTest::addColumn<bool>("closedPort");
    QTest::addColumn<QStringList>("listed");
    QTest::addColumn<int>("opened");
    QTest::addColumn<QStringList>("messages");
    const QStringList all = {"Acme", "AcmeArchive", "Globex", "Initech", "Scratch", "Twofold", "TwofoldArchive", "VandelayArchive"};
    const auto row = [](const char *name, const char *user, const char *db, bool closed, const QStringList &listed,
                        Opened opened, const QStringList &messages) {
        QTest::newRow(name) << QString::fromLatin1(user) << QString::fromLatin1(db) << closed << listed << int(opened)
                            << messages;
    };
    row("live", "demo", "Acme", false, all, Opened::Yes, {});
    row("archive paired", "demo", "AcmeArchive", false, all, Opened::Yes, {});
    row("listed but missing", "demo", "Initech", false, all, Opened::Refused, {"Selected database does not exists"});
    row("without tables", "demo", "Scratch", false, all, Opened::InvalidDatabase, {"Invalid database selected"});
    // The list tells the reason; "&OK" then fails in the existence check and the error window shows it.
    row("login rejected", "bob", "Acme", false, {}, Opened::Failed, {"Login failed for user 'bob'."});
    row("unreachable", "demo", "Acme", true, {}, Opened::Failed, {"SQL Server does not exist or access denied"});
}

// Each flow through the wire, and the same flow on the embedded server: same list, same outcome,
// same words in front of the person.
void TestWire::signInFlows()
{
    QFETCH(QString, user);
    QFETCH(QString, database);
    QFETCH(bool, closedPort);
    QFETCH(QStringList, listed);
    QFETCH(int, opened);
    QFETCH(QStringList, messages);

    QString closed = QStringLiteral("127.0.0.1,1");
    if (closedPort) {
        QTcpServer probe; // a port nobody listens on any more
        QVERIFY(probe.listen(QHostAddress::LocalHost));
        closed = QStringLiteral("127.0.0.1,%1").arg(probe.serverPort());
    }
    for (const bool wire : {false, true}) {
        const QString name = closedPort ? (wire ? closed : m_fx.filePath(QStringLiteral("no/such/folder")))
                                        : server(wire);
        PlainFormPort port;
        HeadlessSession h(port);
        h.fillDatabaseList(name, user, QString());
        QCOMPARE(port.databases, listed);
        QCOMPARE(int(h.openDatabase(database)), opened);
        QCOMPARE(port.messages, messages);
        if (opened == int(Opened::Failed)) {
            QCOMPARE(m_trail.shown.size(), 1);
            if (user == u"bob")
                QVERIFY2(m_trail.shown.first().contains(QLatin1String("Login failed for user 'bob'.")), qPrintable(m_trail.shown.first()));
            m_trail.shown.clear();
        }
        QVERIFY2(m_trail.shown.isEmpty(), qPrintable(m_trail.shown.join('\n')));
        if (opened == int(Opened::Yes)) {
            QVERIFY(h.root());
            QCOMPARE(h.signin.strLiveDb, database == u"AcmeArchive" ? QStringLiteral("Acme") : QString());
        }
    }
}

void TestWire::treeLiveAndArchive()
{
    for (const QString &database : {QStringLiteral("Acme"), QStringLiteral("AcmeArchive")}) {
        QStringList trees[2];
        QStringList shown[2]; // a click that fails (Legal's picture in the archive view) fails alike
        for (const bool wire : {false, true}) {
            m_trail.shown.clear();
            PlainFormPort port;
            HeadlessSession h(port);
            QCOMPARE(h.signIn(server(wire), QStringLiteral("demo"), QString(), database), Opened::Yes);
            walkTree(h, h.root(), 0, trees[wire]);
            shown[wire] = m_trail.shown;
        }
        QVERIFY2(trees[0].size() > 10, qPrintable(trees[0].join(u'\n')));
        QCOMPARE(trees[1], trees[0]);
        QCOMPARE(shown[1], shown[0]);
    }
    m_trail.shown.clear();
}

TestWire::Run TestWire::exportAll(bool wire, const QString &database, const QString &dest, const QString &blocker)
{
    Run run;
    const QString trace = m_fx.filePath(QStringLiteral("trace%1.sql").arg(++m_runs));
    {
        const TraceFileScope tracing(trace);
        DemoSession d(server(wire), database);
        if (d.opened != Opened::Yes || !d.tickEverything())
            return run;
        QDir().mkpath(dest);
        // A file where a directory belongs: logged failures, the same both ways.
        QFile file(dest + u'/' + blocker);
        file.open(QIODevice::WriteOnly);
        file.close();
        d.s.signin.DestinationPath = QDir::toNativeSeparators(dest);
        Exporter exporter(d.s.signin, d.s.procs);
        ExportOptions options;
        options.logFolder = m_fx.filePath(QStringLiteral("logs%1").arg(m_runs));
        const ExportResult result = exporter.run(options);
        run.failures = result.failures;
        run.log = fileBytes(result.logPath);
    }
    run.trace = fileBytes(trace);
    run.files = filesWithDates(dest, m_started);
    return run;
}

void TestWire::exportEqualsEmbedded_data()
{
    QTest::addColumn<QString>("database");
    QTest::addColumn<QString>("archive");
    QTest::addColumn<QString>("blocker"); // a file where this folder's directory belongs
    QTest::addColumn<QString>("firstLogLine");
    QTest::newRow("live") << QStringLiteral("Acme") << QString() << QStringLiteral("Unsorted")
                          << QStringLiteral("Folder ID: 19 , Folder Name: Unsorted , Folder Location: Unsorted");
    QTest::newRow("archive") << QStringLiteral("AcmeArchive") << QStringLiteral("AcmeArchive")
                             << QStringLiteral("Old Branch")
                             << QStringLiteral("Folder ID: 38 , Folder Name: Old Branch , Folder Location: Old Branch");
}

void TestWire::exportEqualsEmbedded()
{
    QFETCH(QString, database);
    QFETCH(QString, archive);
    QFETCH(QString, blocker);
    QFETCH(QString, firstLogLine);
    const QString embeddedDest = m_fx.filePath(QStringLiteral("embedded-") + database);
    const QString wireDest = m_fx.filePath(QStringLiteral("wire-") + database);
    const QDateTime start = QDateTime::currentDateTime();
    const Run embedded = exportAll(false, database, embeddedDest, blocker);
    const Run wire = exportAll(true, database, wireDest, blocker);

    // The wire run is the repository itself: every name, byte and date.
    RepositoryReader reader(m_fx.demo, QStringLiteral("Acme"), archive);
    QVERIFY(reader.ok());
    ExpectedTree expected;
    reader.addEverything(expected);
    expected.replace(blocker);
    expected.dirs.remove(blocker);
    expected.files[blocker] = {ExpectedTree::Candidate{QByteArray(), {}}};
    compareWithRepository(wireDest, expected, start);
    if (QTest::currentTestFailed())
        return;

    // And the embedded run, line for line: files, dates, the log, every statement sent.
    const QString big = archive.isEmpty() ? QStringLiteral("Docs/Big document.bin")
                                          : QStringLiteral("Finance/Ledgers 2009/Archived big ledger.bin");
    QCOMPARE(QFileInfo(wireDest + u'/' + big).size(), kBigDocument);
    QVERIFY(!wire.files.filter(QStringLiteral(" 0 e3b0c442")).isEmpty()); // the empty document
    QVERIFY(!wire.files.filter(QStringLiteral(" undated")).isEmpty());
    QCOMPARE(wire.files, embedded.files);
    QVERIFY(wire.failures >= 1);
    QCOMPARE(wire.failures, embedded.failures);
    QVERIFY2(wire.log.startsWith(firstLogLine.toUtf8()), wire.log.constData());
    QCOMPARE(wire.log, embedded.log);
    QVERIFY(wire.trace.count('\n') > 20);
    QCOMPARE(wire.trace, embedded.trace);
    QVERIFY(m_trail.shown.isEmpty());
}

// TEXTSIZE on the wire as SQL Server has it, and the tool's connection asking for all of it.
void TestWire::textSize()
{
    const QString cut = QStringLiteral("select file_data from zar_file where rec_id = 2103");
    const struct {
        const char *name, *extra, *setFirst;
        int expected;
    } cases[] = {
        {"no TextSize: the default cuts", "", nullptr, 4096},
        {"no TextSize, SET TEXTSIZE", "", "SET TEXTSIZE 10000", 10000},
        {"SET TEXTSIZE 0 is the default", "", "SET TEXTSIZE 0", 4096},
        {"TextSize in the connection text", ";TextSize=2147483647", nullptr, 100000},
    };
    for (const auto &c : cases) {
        const QString name = QString::fromLatin1(c.name);
        {
            QSqlDatabase db = rawConnection(name, QStringLiteral("Acme"), QString::fromLatin1(c.extra));
            QVERIFY2(db.open(), qPrintable(db.lastError().text()));
            QSqlQuery q(db);
            q.setForwardOnly(true);
            if (c.setFirst)
                QVERIFY(q.exec(QString::fromLatin1(c.setFirst)));
            QVERIFY2(q.exec(cut) && q.next(), qPrintable(q.lastError().text()));
            const QByteArray bytes = q.value(0).toByteArray();
            QVERIFY2(bytes.size() == c.expected, c.name);
            QCOMPARE(bytes, noise(100000, 2103).left(c.expected));
        }
        QSqlDatabase::removeDatabase(name);
    }

    // The tool's own connection asks for the whole document.
    repo::Connection cn;
    cn.open(QStringLiteral("Provider=SQLOLEDB.1;User ID=demo;Initial Catalog=Acme;Data Source=%1;Password=").arg(m_wire));
    QCOMPARE(cn.execute(cut).value(QStringLiteral("file_data")).toByteArray().size(), 100000);
}

// Failures as SQL Server reports them, extra driver attributes, sessions side by side.
void TestWire::failuresAndSessions()
{
    const QString cut = QStringLiteral("select file_data from zar_file where rec_id = 2103");

    // Refused at the login: a rejected password, a database that is not there (4060, then 18456),
    // numbered as on the embedded server. FreeTDS ranks the server's messages by severity, so on
    // the wire the first one of the second case is 18456's.
    const struct {
        const char *user, *database;
        qint32 number;
        const char *embedded, *wire;
    } logins[] = {
        {"bob", "Acme", repo::ERR_LOGIN_REJECTED, "Login failed for user 'bob'.", "Login failed for user 'bob'."},
        {"demo", "Initech", repo::ERR_UNREACHABLE,
         "Cannot open database \"Initech\" requested by the login. The login failed.",
         "Login failed for user 'demo'."},
    };
    for (const auto &l : logins) {
        for (const bool wire : {false, true}) {
            repo::Connection refused;
            try {
                refused.open(QStringLiteral("User ID=%1;Initial Catalog=%2;Data Source=%3;Password=")
                                 .arg(QString::fromLatin1(l.user), QString::fromLatin1(l.database), server(wire)));
                QFAIL(l.database);
            } catch (const HuntERR::Error &e) {
                QCOMPARE(e.number(), l.number);
                QCOMPARE(e.description(), QString::fromLatin1(wire ? l.wire : l.embedded));
            }
        }
    }

    // Extra driver attributes reach FreeTDS: asked to require encryption, which the stand-in does
    // not offer at pre-login, FreeTDS gives up before the login.
    qputenv("PARCELWISE_ODBC_OPTIONS", "Encryption=require");
    {
        repo::Connection encrypted;
        QString text;
        try {
            encrypted.open(QStringLiteral("User ID=demo;Initial Catalog=Acme;Data Source=%1;Password=").arg(m_wire));
        } catch (const HuntERR::Error &e) {
            text = QString::number(e.number());
        }
        QCOMPARE(text, QString::number(repo::ERR_UNREACHABLE));
    }
    qunsetenv("PARCELWISE_ODBC_OPTIONS");

    // Failures in SQL Server's numbers and words, as the tool describes them.
    const struct {
        const char *sql;
        qint32 number;
        const char *description;
    } failures[] = {
        {"select * from zar_nothing", repo::ERR_NO_OBJECT, "Invalid object name 'zar_nothing'."},
        {"select rec_id from from zar_file", repo::ERR_COMMAND, "Incorrect syntax near 'from'."},
        {"select no_such_column from zar_file", repo::ERR_COMMAND, "Invalid column name 'no_such_column'."},
    };
    repo::Connection cn;
    cn.open(QStringLiteral("Provider=SQLOLEDB.1;User ID=demo;Initial Catalog=Acme;Data Source=%1;Password=").arg(m_wire));
    for (const auto &f : failures) {
        try {
            cn.execute(QString::fromLatin1(f.sql));
            QFAIL(f.sql);
        } catch (const HuntERR::Error &e) {
            QCOMPARE(e.number(), f.number);
            QCOMPARE(e.description(), QString::fromLatin1(f.description));
        }
    }

    // A client that sends nonsense is dropped; the stand-in goes on serving the others.
    for (const QByteArray &junk : {QByteArray("\x12\x01\x00\x03", 4), QByteArray(64, '\xff'),
                                   QByteArray("\x12\x01\x00\x0c\x00\x00\x00\x00\xff\x00\x00\x00", 12)
                                       + QByteArray("\x10\x01\x00\x10\x00\x00\x00\x00", 8) + QByteArray(8, '\x7f'),
                                   QByteArray("\x03\x01\x00\x0a\x00\x00\x00\x00\x10\x00", 10)}) {
        QTcpSocket raw;
        raw.connectToHost(QHostAddress::LocalHost, quint16(m_port));
        QVERIFY(raw.waitForConnected(5000));
        raw.write(junk);
        raw.waitForBytesWritten(5000);
        raw.waitForReadyRead(300);
        raw.abort();
    }
    QCOMPARE(cn.execute(QStringLiteral("select count(*) as n from zar_fileLive")).value(QStringLiteral("n")).toInt() > 0,
             true);

    // Two sessions at once, their statements interleaved; each keeps its database and TEXTSIZE.
    {
        QSqlDatabase a = rawConnection(QStringLiteral("a"), QStringLiteral("Acme"), QString());
        QSqlDatabase b = rawConnection(QStringLiteral("b"), QStringLiteral("zar_Master"), QString());
        QVERIFY(a.open() && b.open());
        QSqlQuery qa(a), qb(b);
        qa.setForwardOnly(true); // as the tool's statements: no server cursor
        qb.setForwardOnly(true);
        QVERIFY(qa.exec(QStringLiteral("SET TEXTSIZE 5000")));
        QVERIFY(qb.exec(QStringLiteral("select count(*) from com_company")) && qb.next());
        QCOMPARE(qb.value(0).toInt(), 8);
        QVERIFY(qa.exec(cut) && qa.next());
        QCOMPARE(qa.value(0).toByteArray().size(), 5000);
        QVERIFY(!qb.exec(cut)); // no zar_file in the catalogue
        QVERIFY2(qb.lastError().databaseText().contains(QLatin1String("Invalid object name 'zar_file'.")),
                 qPrintable(qb.lastError().databaseText()));
    }
    QSqlDatabase::removeDatabase(QStringLiteral("a"));
    QSqlDatabase::removeDatabase(QStringLiteral("b"));
}

QTEST_GUILESS_MAIN(TestWire)
#include "test_wire.moc"
