// The sign-in against the demo server, each step under the window's own event handler: the
// database list, the live/archive type, the existence check, the archive pairing, the validation
// order, the failures told to the person and those reported through the error trail.

#include "repository_suite.h"
#include "scopes.h"
#include "testsupport.h"

#include "session/headlesssession.h"
#include "repository/drivers.h"

#include <optional>

using session::SignIn;

class TestSignIn : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY2(m_fx.setUp(), qPrintable(m_fx.error));
        repo::setEmbeddedDriver(QStringLiteral("QSQLITE"));
        repo::setTraceFile(QString());
    }

    void init()
    {
        HuntERR::reset();
        m_trail.shown.clear();
    }

    void listAndTypes()
    {
        PlainFormPort port;
        HeadlessSession h(port);
        QVERIFY(h.fillDatabaseList(m_fx.demo, "demo", ""));
        QCOMPARE(port.databases, QStringList({"Acme", "AcmeArchive", "Globex", "Initech", "Scratch", "Twofold", "TwofoldArchive", "VandelayArchive"}));
        QCOMPARE(port.database, QStringLiteral("Acme")); // the first entry is chosen
        // Entering the list again re-reads it rather than appending, and chooses the first again.
        port.database = QStringLiteral("Globex");
        QVERIFY(h.fillDatabaseList(m_fx.demo, "demo", ""));
        QCOMPARE(port.databases.size(), 8);
        QCOMPARE(port.database, QStringLiteral("Acme"));

        // Type codes in either letter case, names without regard to case; archive in red. A name that
        // is not a list entry (a padded one too) has no caption and leaves the colour as it was.
        const struct {
            const char *name, *caption;
            int colour;
        } cases[] = {{"AcmeArchive", "Archive", 255}, {" AcmeArchive ", "", 255}, {"Globex", "Live", 0},
                     {"VandelayArchive", "Archive", 255}, {"acmearchive", "Archive", 255}, {"Scratch", "Live", 0},
                     {"Nope", "", 0}};
        for (const auto &c : cases) {
            port.database = QString::fromLatin1(c.name);
            h.signin.cboDBName_Click();
            QCOMPARE(port.dbType, QLatin1String(c.caption));
            QCOMPARE(port.dbTypeColour, c.colour);
            QCOMPARE(h.signin.blnArchive, qstrcmp(c.caption, "Archive") == 0);
        }
    }

    void openingAndPairing()
    {
        const QStringList before = treeSnapshot(m_fx.demo, {});
        PlainFormPort port;
        HeadlessSession h(port);
        QTemporaryDir traceDir;
        const QString trace = QDir(traceDir.path()).filePath("statements.sql");
        std::optional<TraceFileScope> tracing(std::in_place, trace);
        // An archive company: its tree is read from the paired live database.
        QCOMPARE(h.signIn(m_fx.demo, "demo", "", "AcmeArchive"), Opened::Yes);
        QCOMPARE(h.signin.strSelectedDb + ">" + h.signin.strLiveDb, QStringLiteral("AcmeArchive>Acme"));
        QVERIFY(h.signin.cnDb().connectionString.contains(QStringLiteral(";Initial Catalog=Acme;")));
        QVERIFY(h.root());
        QCOMPARE(port.messages, QStringList());
        QCOMPARE(h.openDatabase("O'Brien"), Opened::Failed); // a failing statement is traced too
        m_trail.shown.clear();
        tracing.reset();
        QCOMPARE(h.openDatabase("Acme"), Opened::Yes); // off again: nothing more is written
        // The statements went out exactly as built (doubled blanks, three-part names), in order.
        QCOMPARE(QString::fromUtf8(fileBytes(trace)).remove(u'\r').split(u'\n'),
                 QStringList({suite::catalogueList(), suite::databaseExists("AcmeArchive"),
                              suite::liveDatabase("AcmeArchive"), suite::firstLevel(0), suite::databaseExists("O'Brien"),
                              QString()}));

        // An archive without a partner: an empty live name, which the tree building then refuses.
        QCOMPARE(h.openDatabase("VandelayArchive"), Opened::InvalidDatabase);
        QCOMPARE(h.signin.strSelectedDb + ">" + h.signin.strLiveDb, QStringLiteral("VandelayArchive>"));
        // A live company has no partner to look for; the typed name is trimmed.
        port.messages.clear();
        QCOMPARE(h.openDatabase("Globex"), Opened::Yes);
        port.database = QStringLiteral(" Globex ");
        QVERIFY(h.signin.validateAndPrepare(nullptr));
        QCOMPARE(h.signin.strSelectedDb + ">" + h.signin.strLiveDb, QStringLiteral("Globex>"));
        QVERIFY(m_trail.shown.isEmpty());

        // A quote in the password travels doubled and blanks are dropped; the boxes are kept as typed.
        QVERIFY(!h.fillDatabaseList("  " + m_fx.demo + "  ", " demo ", " a'b "));
        QCOMPARE(port.messages.last(), QStringLiteral("Login failed for user 'demo'."));
        QCOMPARE(h.signin.strUserName + "|" + h.signin.strPassword, QStringLiteral(" demo | a'b "));
        QCOMPARE(h.signin.cnMaster().connectionString, "Provider=SQLOLEDB.1;Persist Security Info=true;User ID=demo;"
                                                       "Initial Catalog = zar_Master;Data Source=" + m_fx.demo + ";Password=a''b");
        QCOMPARE(treeSnapshot(m_fx.demo, {}), before);
    }

    void validationOrder_data()
    {
        QTest::addColumn<QString>("server");
        QTest::addColumn<QString>("user");
        QTest::addColumn<QString>("database");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("focus");
        const QString demo = m_fx.demo;
        QTest::newRow("blank server first") << "   " << "" << "" << "Please enter server name" << "txServerName";
        QTest::newRow("blank user") << demo << "  " << "" << "Please enter user name" << "txtUserName";
        QTest::newRow("no database") << demo << "demo" << "" << "Please select database name" << "";
        // Blanks are a name to this check; the existence check then refuses them.
        QTest::newRow("blank database") << demo << "demo" << "  " << "Selected database does not exists" << "";
        QTest::newRow("listed without file") << demo << "demo" << "Initech" << "Selected database does not exists" << "";
        QTest::newRow("empty password is fine") << demo << "demo" << "Acme" << "" << "";
    }

    void validationOrder()
    {
        QFETCH(QString, server);
        QFETCH(QString, user);
        QFETCH(QString, database);
        QFETCH(QString, message);
        QFETCH(QString, focus);
        PlainFormPort port;
        HeadlessSession h(port);
        port.server = server;
        port.user = user;
        port.database = database;
        QString focusTo = QStringLiteral("unset");
        QCOMPARE(h.signin.validateAndPrepare(&focusTo), message.isEmpty());
        QCOMPARE(port.messages, message.isEmpty() ? QStringList() : QStringList({message}));
        QCOMPARE(focusTo, focus);
        // Entering the list checks the same two boxes first, and then does not sign in.
        if (focus.startsWith(QLatin1String("tx"))) {
            QVERIFY(!h.fillDatabaseList(server, user, QString()));
            QCOMPARE(port.messages.last(), message);
            QCOMPARE(h.signin.cnMaster().state(), repo::adStateClosed);
        }
    }

    void failures()
    {
        // Login rejected: the server's own text as a message, no report; the earlier list stays.
        PlainFormPort port;
        HeadlessSession h(port);
        QVERIFY(h.fillDatabaseList(m_fx.demo, "demo", ""));
        QVERIFY(!h.fillDatabaseList(m_fx.demo, "demo", "wrong"));
        QCOMPARE(port.messages, QStringList({"Login failed for user 'demo'."}));
        QCOMPARE(port.databases.size(), 8);
        QVERIFY(m_trail.shown.isEmpty() && !HuntERR::isPreserved());

        // (A server that is not there, its fixed text: test_cli, on a folder, and test_wire, on a
        // closed port; the connection's own refusals: test_repository.)

        // Other failures are reported with the procedure's own call-stack entry.
        // A catalogue without the company table (the list is cleared before the statement fails):
        QTemporaryDir odd;
        QVERIFY(QFile::copy(QDir(m_fx.demo).filePath("Scratch.sqlite"), QDir(odd.path()).filePath("zar_Master.sqlite")));
        port.databases = QStringList({"kept"});
        port.messages.clear();
        QVERIFY(!h.fillDatabaseList(odd.path(), "demo", ""));
        QCOMPARE(m_trail.shown.size(), 1);
        QString report = m_trail.shown.first();
        QVERIFY2(report.contains("  Call Stack: FrmSendtofolder.FillDataBasename"), qPrintable(report));
        QVERIFY(report.contains("  Call Stack: FrmSendtofolder.cboDBName_GotFocus"));
        QVERIFY(report.contains("Invalid object name 'com_company'."));
        QVERIFY(report.contains("Error Number: -2147217865 "));
        QVERIFY(port.databases.isEmpty() && port.messages.isEmpty());
        // A database name with a quote breaks the existence check's statement.
        QCOMPARE(h.signIn(m_fx.demo, "demo", "", "O'Brien"), Opened::Failed);
        QVERIFY(m_trail.shown.last().contains("  Call Stack: FrmSendtofolder.fxnIsDBExists(paramDbName)"));
        QVERIFY(m_trail.shown.last().contains("  Call Stack: FrmSendtofolder.cmdlogin_Click"));
        QVERIFY(port.messages.isEmpty() && h.signin.strSelectedDb.isEmpty());
        PlainFormPort fresh;
        SignIn unopened(fresh);

        // The type lookup's row counter holds 32,767 rows; one more overflows, even for the first name.
        auto list = [](int rows) {
            repo::RecordSet rs;
            rs.setFields({QStringLiteral("Com_db"), QStringLiteral("com_type")});
            for (int i = 1; i <= rows; ++i)
                rs.appendRow({QStringLiteral("Db%1").arg(i), i % 2 ? QStringLiteral("a") : QStringLiteral("L")});
            return rs;
        };
        unopened.rsDbList = list(32767);
        QCOMPARE(unopened.fxnGetDBType(QStringLiteral("db32767")), QStringLiteral("Archive"));
        unopened.rsDbList = list(32768);
        QVERIFY(!HuntERR::handler("FrmSendtofolder.cboDBName_Click", [&] { unopened.fxnGetDBType("Db1"); }));
        report = m_trail.shown.last();
        QVERIFY(report.startsWith("  Error Description: Overflow"));
        QVERIFY(report.contains("  Call Stack: FrmSendtofolder.fxnGetDBType(paramDBName)"));
    }

private:
    DemoFixture m_fx;
    ErrorTrailScope m_trail; // what the error trail would have put in front of the person
};

QTEST_GUILESS_MAIN(TestSignIn)
#include "test_signin.moc"
