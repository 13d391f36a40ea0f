// The data path: what reaches the ODBC driver, every statement form and the T-SQL forms against the
// demo repository through Qt's SQLite driver and through the SQLite3 ODBC driver, the error
// numbers and bad input, logins, record-set reading, and the promise that nothing is ever
// written. (FreeTDS against a closed port and a running server: test_wire.)

#include "repository_suite.h"
#include "scopes.h"
#include "testsupport.h"

#include "repository/drivers.h"

using suite::failure;

namespace {

// Driver managers say so in these words when a driver is not installed or not registered.
bool driverMissing(const QString &description)
{
    return description.contains(QStringLiteral("not found"), Qt::CaseInsensitive)
        || description.contains(QStringLiteral("Can't open lib"), Qt::CaseInsensitive)
        || description.contains(QStringLiteral("Provider cannot be found"), Qt::CaseInsensitive);
}

} // namespace

class TestRepository : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY2(m_fx.setUp(), qPrintable(m_fx.error));
        repo::setEmbeddedDriver(QStringLiteral("QSQLITE"));
        repo::setTraceFile(QString());
        qunsetenv("PARCELWISE_TDS_VERSION");
    }

    void init()
    {
        HuntERR::reset();
    }

    // What the ODBC driver is handed for SQL Server.
    void odbcText_data()
    {
        QTest::addColumn<QString>("input");
        QTest::addColumn<QString>("driver");
        QTest::addColumn<QString>("options"); // PARCELWISE_ODBC_OPTIONS
        QTest::addColumn<QString>("expected");
        const auto row = [](const char *name, const QString &input, const char *driver, const QString &expected,
                            const char *options = "") {
            QTest::newRow(name) << input << QString::fromLatin1(driver) << QString::fromLatin1(options) << expected;
        };
        row("FreeTDS: host,port split", masterConnectionString("sa", "127.0.0.1,1", "pw"), "FreeTDS",
            "DRIVER={FreeTDS};Server=127.0.0.1;Port=1;Database=zar_Master;UID=sa;PWD=pw;TDS_Version=7.4;TextSize=2147483647;Timeout=600");
        row("FreeTDS: padded port, quote", databaseConnectionString("sa", "Acme", " dbhost , 2433 ", "p'w"), "FreeTDS",
            "DRIVER={FreeTDS};Server=dbhost;Port=2433;Database=Acme;UID=sa;PWD=p''w;TDS_Version=7.4;TextSize=2147483647;Timeout=600");
        row("FreeTDS: .\\instance", serverMasterConnectionString("sa", ".\\SQLEXPRESS", "p"), "FreeTDS",
            "DRIVER={FreeTDS};Server=localhost\\SQLEXPRESS;Database=MASTER;UID=sa;PWD=p;TDS_Version=7.4;TextSize=2147483647;Timeout=600");
        row("FreeTDS: tcp:host\\instance", serverMasterConnectionString("sa", "tcp:db1\\SQLEXPRESS", "p"), "FreeTDS",
            "DRIVER={FreeTDS};Server=db1\\SQLEXPRESS;Database=MASTER;UID=sa;PWD=p;TDS_Version=7.4;TextSize=2147483647;Timeout=600");
        row("native: host,port kept, = braced", masterConnectionString("sa", "db1,1433", "x=y"), "SQL Server",
            "DRIVER={SQL Server};Server=db1,1433;Database=zar_Master;UID=sa;PWD={x=y}");
        row("native: key case, blanks, quoted ;}, stray fragments",
            "  DATA SOURCE  =  my host ;user id=Bob;PASSWORD=\"x;}y\";initial catalog= Db ;junk;pwd2=1", "SQL Server",
            "DRIVER={SQL Server};Server=my host;Database=Db;UID=Bob;PWD={x;}}y}");
        row("native: synonyms, single quotes", "Server=s;Database=d;UID=u;PWD='it''s'", "SQL Server",
            "DRIVER={SQL Server};Server=s;Database=d;UID=u;PWD=it's");
        row("native: doubled quotes are no quoting", "Password=''abc'';User ID=x", "SQL Server",
            "DRIVER={SQL Server};Server=;UID=x;PWD=''abc''");
        row("FreeTDS: bare host on 1433, extra attributes last", masterConnectionString("sa", "db1", "p"), "FreeTDS",
            "DRIVER={FreeTDS};Server=db1;Port=1433;Database=zar_Master;UID=sa;PWD=p;TDS_Version=7.4;TextSize=2147483647;Timeout=600;"
            "Encryption=require;ClientCharset=UTF-8",
            " ;Encryption=require;ClientCharset=UTF-8; ");
        row("native: extra attributes", masterConnectionString("sa", "db1", "p"), "ODBC Driver 18 for SQL Server",
            "DRIVER={ODBC Driver 18 for SQL Server};Server=db1;Database=zar_Master;UID=sa;PWD=p;Encrypt=yes",
            "Encrypt=yes");
    }

    void odbcText()
    {
        QFETCH(QString, input);
        QFETCH(QString, driver);
        QFETCH(QString, options);
        QFETCH(QString, expected);
        qputenv("PARCELWISE_ODBC_OPTIONS", options.toUtf8());
        const QString text = repo::sqlServerOdbcText(repo::ConnectionString::parse(input), driver);
        qunsetenv("PARCELWISE_ODBC_OPTIONS");
        QCOMPARE(text, expected);
    }

    void statementSuite_data()
    {
        QTest::addColumn<QString>("driver");
        QTest::newRow("Qt's SQLite") << QStringLiteral("QSQLITE");
        QTest::newRow("SQLite3 ODBC") << QStringLiteral("SQLite3");
    }

    void statementSuite()
    {
        QFETCH(QString, driver);
        const EmbeddedDriverScope embedded(driver);
        QString text;
        repo::Connection cn;
        if (failure([&] { cn.open(suite::connectionText(m_fx.demo, "Acme")); }, &text) != 0 && driverMissing(text))
            QSKIP(qPrintable("The driver is not registered: " + text));
        const QStringList before = treeSnapshot(m_fx.demo, {});
        QCOMPARE(failure([&] { suite::runStatementSuite(m_fx.demo); }, &text), 0); // a refusal names itself
        if (QTest::currentTestFailed())
            return;

        // T-SQL forms give SQL Server's results; literals are left alone; a form the adaptation does
        // not know is left for the server to refuse.
        const struct {
            const char *tsql, *value;
        } expressions[] = {
            {"select 'a+b..c RIGHT(x,2)' as v", "a+b..c RIGHT(x,2)"},
            {"select N'x' as v -- note", "x"},
            {"select Folder_Type + 'x' as t, Rec_ID + 1 as v from zar_Folder where Rec_ID = 1", "2"},
            {"select 'it''s ' + Folder_Type + Folder_Name as v from zar_Folder where Rec_ID = 1", "it's ROOTAcme Corporation"},
            {"select RIGHT('00' + CAST(Rec_ID AS varchar(10)), 2) + LEFT(Folder_Name, 4) as v from zar_Folder where Rec_ID = 1",
             "01Acme"},
            {"select ISNULL(FileActualDate, 'none') as v from zar_file where rec_id = 1009", "none"},
            {"select count(*) as v from [AcmeArchive]..[zar_FileArchive] where FileID = 1101", "1"},
            {"select convert(varchar(8), Rec_ID, 999) as v from zar_Folder", "<refused>"},
            // datetime in three-hundredths of a second, as SQL Server keeps it
            {"select convert(varchar(23), cast('2009-12-31 23:59:59.999' as datetime), 121) as v", "2010-01-01 00:00:00.000"},
            {"select datepart(ms, convert(datetime, '2019-03-01 10:00:00.005')) as v", "7"},
        };
        for (const auto &e : expressions) {
            QString value;
            const qint32 n = failure([&] { value = cn.execute(QString::fromUtf8(e.tsql)).text("v"); });
            QCOMPARE(n ? QStringLiteral("<refused>") : value, QString::fromUtf8(e.value));
        }

        // Refusals carry SQL Server's numbers and texts, without a driver's decorations.
        QCOMPARE(failure([&] { cn.execute("select * from zar_nothing"); }, &text), repo::ERR_NO_OBJECT);
        QCOMPARE(text, QStringLiteral("Invalid object name 'zar_nothing'."));
        QCOMPARE(cn.errorDescriptions(), QStringList({text}));
        QCOMPARE(failure([&] { cn.execute("select * from Nowhere..zar_FileArchive"); }), repo::ERR_NO_OBJECT);
        QCOMPARE(failure([&] { cn.execute("selec * from zar_file"); }, &text), repo::ERR_COMMAND);
        QCOMPARE(text, QStringLiteral("Incorrect syntax near 'selec'."));
        // Opened read-only: writes are refused, and the connection works on after failures.
        QVERIFY(failure([&] { cn.execute("delete from zar_file"); }) != 0);
        QVERIFY(failure([&] { cn.execute("delete from AcmeArchive..zar_FileArchive"); }) != 0);
        QCOMPARE(cn.execute(suite::firstLevel(0)).recordCount(), 1);
        cn.close();
        // A corrupt database file fails at open, not at the first statement.
        QTemporaryDir broken;
        QVERIFY(writeFile(QDir(broken.path()).filePath("Junk.sqlite"), QByteArray(8192, 'x')));
        QCOMPARE(failure([&] { cn.open(suite::connectionText(broken.path(), "Junk")); }), repo::ERR_UNREACHABLE);
        QCOMPARE(cn.state(), repo::adStateClosed);
        // Every file of the server (no journal or lock file left either) is as it was.
        QCOMPARE(treeSnapshot(m_fx.demo, {}), before);

        // The files really go through the named driver: an unknown one cannot open them.
        if (driver != QLatin1String("QSQLITE")) {
            const EmbeddedDriverScope none(QStringLiteral("No Such SQLite Driver"));
            QCOMPARE(failure([&] { cn.open(suite::connectionText(m_fx.demo, "Acme")); }, &text), repo::ERR_UNREACHABLE);
            QVERIFY2(driverMissing(text), qPrintable(text));
        }
    }

    void errorsAndBadInput()
    {
        const QStringList before = treeSnapshot(m_fx.demo, {});
        repo::Connection cn;
        cn.open(suite::connectionText(m_fx.demo, "Acme"));
        QString text;
        // ADO's own refusals; then a re-open from the connection-string property, as tree building does.
        QCOMPARE(failure([&] { cn.open(); }), 3705);
        cn.close();
        QCOMPARE(failure([&] { cn.execute(suite::firstLevel(0)); }), 3709);
        cn.connectionString = suite::connectionText(m_fx.demo, "Globex");
        cn.open();
        QCOMPARE(cn.execute(suite::firstLevel(0)).text("Folder_Name"), QStringLiteral("Globex Inc"));

        // Servers and databases that cannot be opened: a clear refusal, never a crash.
        QTemporaryDir broken;
        QVERIFY(copyFolder(m_fx.demo, broken.path()));
        const QDir b(broken.path());
        QFile acmeFile(b.filePath("Acme.sqlite"));
        QVERIFY(acmeFile.open(QIODevice::ReadOnly));
        QVERIFY(writeFile(b.filePath("Half.sqlite"), acmeFile.read(100))); // the header and nothing else
        const struct {
            QString server, catalogue, text;
        } unopenable[] = {
            {"/no/such/dir", "zar_Master", "SQL Server does not exist or access denied."},
            {QDir(m_fx.demo).filePath("server.ini"), "zar_Master", "SQL Server does not exist"}, // a file, not a folder
            {m_fx.demo, "Initech", "Cannot open database \"Initech\" requested by the login. The login failed."},
            {m_fx.demo, "Nobody", "Nobody"},
            {broken.path(), "Half", "Half"}, // a database file cut short
        };
        for (const auto &u : unopenable) {
            repo::Connection c;
            QCOMPARE(failure([&] { c.open(suite::connectionText(u.server, u.catalogue)); }, &text), repo::ERR_UNREACHABLE);
            QVERIFY2(text.contains(u.text, Qt::CaseInsensitive), qPrintable(u.catalogue + ": " + text));
            QCOMPARE(c.state(), repo::adStateClosed);
        }
        // No catalogue named (an archive without partner): the server's own catalogue, no folder tables.
        cn.close();
        cn.open(suite::connectionText(m_fx.demo, QString()));
        QCOMPARE(cn.execute(suite::databaseExists("Globex")).recordCount(), 1);
        QCOMPARE(failure([&] { cn.execute(suite::firstLevel(0)); }), repo::ERR_NO_OBJECT);
        // A server folder whose name means something in a URI; a path-like name counts as a folder.
        const QString odd = b.filePath("srv #1 %x?");
        QVERIFY(copyFolder(m_fx.demo, odd));
        cn.close();
        cn.open(suite::connectionText(odd, "ACME"));
        QCOMPARE(cn.execute(suite::documentArchive(1101, "AcmeArchive")).recordCount(), 1);
        for (const char *folder : {"/no/such/dir", "./demo", "..\\demo", "a/b"})
            QVERIFY2(repo::looksLikeFolderPath(folder), folder);
        for (const char *host : {".", ".\\SQLEXPRESS", "db1\\SQLEXPRESS", "127.0.0.1,1433", ""})
            QVERIFY2(!repo::looksLikeFolderPath(host), host);
        QCOMPARE(treeSnapshot(m_fx.demo, {}), before);
    }

    void logins()
    {
        QTemporaryDir other;
        QVERIFY(copyFolder(m_fx.demo, other.path()));
        const QString ini = QDir(other.path()).filePath("server.ini");
        QString text;
        // user and password as typed: the connection string doubles quotes and trims, as the tool does.
        auto openAs = [&](const QString &server, const QString &user, const QString &password,
                          const QString &catalogue = "zar_Master") {
            repo::Connection c;
            return failure([&] { c.open(databaseConnectionString(user, catalogue, server, password)); }, &text);
        };
        // The demo's server.ini: user demo (any letter case), empty password; the login is checked first.
        QCOMPARE(openAs(m_fx.demo, " DEMO ", ""), 0);
        QCOMPARE(openAs(m_fx.demo, "demo", "x"), repo::ERR_LOGIN_REJECTED);
        QCOMPARE(text, QStringLiteral("Login failed for user 'demo'."));
        QCOMPARE(openAs(m_fx.demo, "sa", "", "Nobody"), repo::ERR_LOGIN_REJECTED);
        QCOMPARE(text, QStringLiteral("Login failed for user 'sa'."));
        // Passwords match exactly: letter case, and a typed quote arrives doubled.
        QVERIFY(writeFile(ini, "[logins]\nreader=Secret\nquoter=\"a''b\"\n"));
        QCOMPARE(openAs(other.path(), "reader", "Secret"), 0);
        QCOMPARE(openAs(other.path(), "reader", "secret"), repo::ERR_LOGIN_REJECTED);
        QCOMPARE(openAs(other.path(), "quoter", " a'b "), 0);
        QCOMPARE(openAs(other.path(), "quoter", "a''b"), repo::ERR_LOGIN_REJECTED);
        // Without a login list, or without server.ini, every login is accepted.
        QVERIFY(writeFile(ini, "[server]\nname=test\n"));
        QCOMPARE(openAs(other.path(), "someone", ""), 0);
        QVERIFY(QFile::remove(ini));
        QCOMPARE(openAs(other.path(), "anyone", "anything"), 0);
    }

    void recordSets()
    {
        repo::Connection cn;
        cn.open(suite::connectionText(m_fx.demo, "Acme"));
        repo::RecordSet rs = cn.execute(suite::liveChildren(1));
        // Field names in any letter case; an unknown one is refused.
        QCOMPARE(rs.text("REC_ID") + rs.text("Rec_Id"), QStringLiteral("22"));
        QCOMPARE(failure([&] { rs.value("Nothing"); }), HuntERR::ERR_ITEM_NOT_FOUND);
        // A copy reads on its own; the original keeps its place, also when the copy is closed.
        rs.moveNext();
        repo::RecordSet copy = rs;
        for (copy.moveNext(); !copy.eof(); copy.moveNext()) {
        }
        QCOMPARE(failure([&] { copy.value("rec_id"); }), HuntERR::ERR_NO_CURRENT_RECORD);
        copy.close();
        QVERIFY(copy.eof() && !copy.isOpen() && copy.recordCount() == 0);
        QCOMPARE(failure([&] { copy.value("rec_id"); }), 3704);
        QCOMPARE(rs.text("rec_id"), QStringLiteral("3"));
        // An empty result is open, at its end, with its fields.
        const repo::RecordSet none = cn.execute(suite::folderFilesLive(9));
        QVERIFY(none.isOpen() && none.eof());
        QCOMPARE(none.fieldNames().size(), 3);
    }

private:
    DemoFixture m_fx;
};

QTEST_GUILESS_MAIN(TestRepository)
#include "test_repository.moc"
