// The SQL Server path end to end: the tool through Qt's ODBC driver and FreeTDS's ODBC driver to
// the SQL Server stand-in, which serves a copy of the demo repository (with an undated document of
// 100,000 bytes added) over TDS. Every outcome is set against the same steps on the embedded
// server: sign-in and failures. The export over the wire, which also reads the folder tree, is in
// test_streaming, where its files, log, report and every statement sent equal the embedded server's.

#include "errors/hunterr.h"
#include "repository/connection.h"
#include "scopes.h"
#include "testsupport.h"

#include <QTcpServer>

using session::HeadlessSession;
using session::PlainFormPort;

using Opened = HeadlessSession::Opened;

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
    QSqlDatabase rawConnection(const QString &name, const QString &database, const QString &extra)
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QODBC"), name);
        db.setDatabaseName(QStringLiteral("DRIVER={FreeTDS};Server=127.0.0.1;Port=%1;Database=%2;UID=demo;PWD=;"
                                          "TDS_Version=7.4%3")
                               .arg(m_port)
                               .arg(database, extra));
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
        QVERIFY2(m_standin.start(m_fx.demo), "the stand-in did not start");
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

    // TEXTSIZE on the wire as SQL Server has it, and the tool's connection asking for all of it.
    void textSize()
    {
        const QString cut = QStringLiteral("select file_data from zar_file where rec_id = 2103");
        const struct {
            const char *name, *extra, *setFirst;
            int expected;
        } cases[] = {
            {"no TextSize: the default cuts", "", nullptr, 4096},
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

    // Failures as SQL Server reports them, and extra driver attributes. (How the stand-in itself
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
    }
};

QTEST_GUILESS_MAIN(TestWire)
#include "test_wire.moc"
