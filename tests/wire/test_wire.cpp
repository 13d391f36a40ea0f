// The SQL Server path end to end: the tool through Qt's ODBC driver and FreeTDS's ODBC driver to
// the SQL Server stand-in, which serves a copy of the demo repository (with an undated document of
// 100,000 bytes and a row its columns' types cannot hold added) over TDS, offering encryption.
// Every outcome is set against the same steps on the embedded server: sign-in and failures. The export over the wire, which also reads the folder tree, is in
// test_streaming, where its files, log, report and every statement sent equal the embedded server's.

#include "errors/hunterr.h"
#include "repository/connection.h"
#include "scopes.h"
#include "testsupport.h"

#include <QTcpServer>

class TestWire : public QObject {
    Q_OBJECT

    DemoFixture m_fx;
    ErrorTrailScope m_trail; // what the error trail would have put in front of the person
    StandinProcess m_standin;
    QString m_wire; // "127.0.0.1,PORT"
    int m_port = 0;

    // The same sign-in on the embedded server and on the stand-in.
    QString server(bool wire) const { return wire ? m_wire : m_fx.demo; }

    // A bare ODBC connection to the stand-in with the given extra text.
    QSqlDatabase rawConnection(const QString &name, const QString &database, const QString &extra,
                               const QString &version = QStringLiteral("7.4"))
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QODBC"), name);
        db.setDatabaseName(QStringLiteral("DRIVER={FreeTDS};Server=127.0.0.1;Port=%1;Database=%2;UID=demo;PWD=;"
                                          "TDS_Version=%4%3")
                               .arg(m_port)
                               .arg(database, extra, version));
        return db;
    }

private slots:
    void initTestCase()
    {
        if (!odbcDriverRegistered(QStringLiteral("FreeTDS")))
            QSKIP("FreeTDS's ODBC driver is not registered (scripts/setup.sh installs tdsodbc)");
        qputenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
        qputenv("PARCELWISE_ODBC_DRIVER", "FreeTDS");
        qunsetenv("PARCELWISE_ODBC_OPTIONS");
        qunsetenv("PARCELWISE_TDS_VERSION");
        repo::setEmbeddedDriver(QStringLiteral("QSQLITE"));
        repo::setTraceFile(QString());

        QVERIFY2(m_fx.setUp(), qPrintable(m_fx.error));

        demo::Document undated;
        undated.recId = 2103;
        undated.folder = 7;
        undated.fileName = QStringLiteral("mid.bin");
        undated.description = QStringLiteral("Undated document");
        undated.data = noise(100000, 2103);
        QString error;
        QVERIFY2(addDocuments(m_fx.demo, {undated}, &error), qPrintable(error));
        // A row no folder shows, with values its columns' declared types (int, datetime) cannot hold.
        demo::SqliteFile acme(demo::databaseFile(m_fx.demo, QStringLiteral("Acme")));
        QVERIFY2(acme.open(&error) && acme.exec(QStringLiteral("insert into zar_file (rec_id, folder_rec_id, File_Name, FileActualDate) "
                                                               "values (2106, 'forty-two', 'misfit.txt', 'someday')"), &error), qPrintable(error));
        acme.close();
        QVERIFY2(m_standin.start(m_fx.demo, {QStringLiteral("--tls")}), "the stand-in did not start");
        m_wire = m_standin.server;
        m_port = m_standin.port;
    }
    void init() { m_trail.shown.clear(); }

    void signInFlows_data()
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
    void signInFlows()
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
            // On the wire the driver's reason follows.
            const QString reason = QStringLiteral(" (connection refused by %1)").arg(QString(closed).replace(u',', u':'));
            QCOMPARE(port.messages, closedPort && wire ? QStringList{messages.first() + reason} : messages);
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

    // Each form of server name a person types, and a host that is not there named as such.
    void serverNames()
    {
        StandinProcess atDefault; // on SQL Server's own port, with the instance lookup on UDP 1434
        const bool defaultPorts = atDefault.start(m_fx.demo, {"--port", "1433", "--browser-port", "1434"});
        for (const char *name : {"127.0.0.1", "127.0.0.1\\STANDIN", "tcp:localhost,1433", "no-such-host.invalid"}) {
            const bool missing = QByteArray(name).endsWith(".invalid");
            if (!missing && !defaultPorts) {
                qWarning("%s not tried: 127.0.0.1:1433 or UDP 1434 is taken", name);
                continue;
            }
            PlainFormPort port;
            HeadlessSession h(port);
            h.fillDatabaseList(QString::fromLatin1(name), QStringLiteral("demo"), QString());
            QCOMPARE(port.databases.size(), missing ? 0 : 8);
            QCOMPARE(port.messages, missing ? QStringList{"SQL Server does not exist or access denied (unknown host no-such-host.invalid)"}
                                            : QStringList());
        }
    }

    // TEXTSIZE on the wire as SQL Server has it, and the tool's connection asking for all of it.
    void textSize()
    {
        // Every TDS version gets the document whole, and 7.1 a long nvarchar as ntext (from 7.2 it is
        // nvarchar(max), which Qt's ODBC driver reads into 256 bytes and leaves empty at the truncation).
        const QString cut = QStringLiteral("select file_data from zar_file where rec_id = 2103");
        const QString longText(5000, QChar(0xE9));
        const struct {
            const char *name, *extra, *version;
            int expected;
        } cases[] = {
            {"no TextSize: the default cuts", "", "7.4", 4096},
            {"TextSize in the connection text", ";TextSize=2147483647", "7.4", 100000},
            {"TDS 7.1", ";TextSize=2147483647", "7.1", 100000},
            {"TDS 7.2", ";TextSize=2147483647", "7.2", 100000},
            {"TDS 7.3", ";TextSize=2147483647", "7.3", 100000},
        };
        for (const auto &c : cases) {
            const QString name = QString::fromLatin1(c.name);
            {
                QSqlDatabase db = rawConnection(name, QStringLiteral("Acme"), QString::fromLatin1(c.extra), QString::fromLatin1(c.version));
                QVERIFY2(db.open(), qPrintable(db.lastError().text()));
                QSqlQuery q(db);
                q.setForwardOnly(true);
                QVERIFY2(q.exec(QStringLiteral("select N'%1' as v, file_data from zar_file where rec_id = 2103").arg(longText)) && q.next(),
                         qPrintable(q.lastError().text()));
                const QByteArray bytes = q.value(1).toByteArray();
                QVERIFY2(bytes.size() == c.expected, c.name);
                QCOMPARE(bytes, noise(100000, 2103).left(c.expected));
                if (c.version == QByteArrayView("7.1"))
                    QCOMPARE(q.value(0).toString(), longText);
            }
            QSqlDatabase::removeDatabase(name);
        }

        // The tool's own connection asks for the whole document.
        repo::Connection cn;
        cn.open(QStringLiteral("Provider=SQLOLEDB.1;User ID=demo;Initial Catalog=Acme;Data Source=%1;Password=").arg(m_wire));
        QCOMPARE(cn.execute(cut).value(QStringLiteral("file_data")).toByteArray().size(), 100000);
    }

    // Logins refused as SQL Server refuses them; encryption as agreed. (How the stand-in itself
    // copes with junk and with sessions side by side is the stand-in's business, not this test's.)
    void failuresAndDriverAttributes()
    {
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

        // Encryption as FreeTDS agrees it with a server that has a certificate: the login only by
        // default, the whole session when the extra driver attributes require it.
        for (const char *options : {"", "Encryption=require"}) {
            qputenv("PARCELWISE_ODBC_OPTIONS", options);
            repo::Connection encrypted;
            encrypted.open(QStringLiteral("User ID=demo;Initial Catalog=Acme;Data Source=%1;Password=").arg(m_wire));
            const repo::RecordSet rs = encrypted.execute(
                QStringLiteral("select encrypt_option from sys.dm_exec_connections where session_id = @@SPID"));
            QCOMPARE(rs.value(QStringLiteral("encrypt_option")).toString(), QLatin1String(*options ? "TRUE" : "FALSE"));
        }
        qunsetenv("PARCELWISE_ODBC_OPTIONS");
    }

    // Failures of statements in SQL Server's numbers and words, as the tool describes them; the
    // collation's order; batches; varchar in the collation's code page.
    void statementFailures()
    {
        const struct {
            const char *sql;
            qint32 number;
            const char *description;
        } failures[] = {
            {"select * from zar_nothing", repo::ERR_NO_OBJECT, "Invalid object name 'zar_nothing'."},
            {"select rec_id from from zar_file", repo::ERR_COMMAND, "Incorrect syntax near 'from'."},
            {"select no_such_column from zar_file", repo::ERR_COMMAND, "Invalid column name 'no_such_column'."},
            // SQLite's own syntax, which the embedded server runs, refused as SQL Server refuses it
            {"select rec_id from zar_file order by rec_id limit 1", repo::ERR_COMMAND, "Incorrect syntax near 'limit'."},
            {"select File_Name || 'x' from zar_file", repo::ERR_COMMAND, "Incorrect syntax near '|'."},
            {"create table if not exists t (a int)", repo::ERR_COMMAND, "Incorrect syntax near the keyword 'IF'."},
            // A value its column's declared type cannot hold is an error, not a silent 0
            {"select folder_rec_id from zar_file where rec_id = 2106", HuntERR::ERR_GENERAL,
             "Conversion failed when converting the nvarchar value 'forty-two' to data type int."},
            {"select a.FileActualDate as d from zar_file a where a.rec_id = 2106", HuntERR::ERR_GENERAL,
             "Conversion failed when converting date and/or time from character string."},
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

        // Texts in the collation's order: accents with their letter, hyphens not counted, "ß" as "ss";
        // varchar in its code page, CP1252: "€" is in it, "Ω" is not.
        repo::RecordSet sorted = cn.execute(QStringLiteral(
            "select N'strast' as v union all select N'Straße' union all select N'cotf' union all select N'côte' "
            "union all select N'co-op' union all select N'cook' order by v"));
        QStringList order;
        for (; !sorted.eof(); sorted.moveNext())
            order << sorted.text(QStringLiteral("v"));
        QCOMPARE(order, QStringList({"cook", "co-op", "côte", "cotf", "Straße", "strast"}));
        QCOMPARE(cn.execute(QStringLiteral("select 'x € Ω' as FOLDER")).text(QStringLiteral("FOLDER")), QStringLiteral("x € ?"));

        // Statements one after another in a batch, with ";" or without: a result each.
        QSqlDatabase db = rawConnection(QStringLiteral("batch"), QStringLiteral("zar_Master"), QString());
        QVERIFY2(db.open(), qPrintable(db.lastError().text()));
        QSqlQuery q(db);
        q.setForwardOnly(true); // as the tool's statements: no server cursor
        QVERIFY(q.exec(QStringLiteral("SET TEXTSIZE 9; select Com_db from com_company where Com_db = 'Acme'\n"
                                      "select count(*) from com_company where Com_db <> 'Acme' select 3")));
        QStringList results;
        do {
            while (q.next())
                results << q.value(0).toString();
        } while (q.nextResult());
        QCOMPARE(results, QStringList({"Acme", "7", "3"}));
    }
};

QTEST_GUILESS_MAIN(TestWire)
#include "test_wire.moc"
