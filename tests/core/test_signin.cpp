// The sign-in procedures against the demo server, through a plain form: the database list, the
// live/archive type, the existence check, the archive pairing, the validation order and the two
// failures that are told to the person instead of reported.

#include "repository_suite.h"
#include "testsupport.h"

#include "repository/signin.h"

#include <QDir>
#include <QFile>
#include <QSqlDatabase>
#include <QTemporaryDir>
#include <QtTest>

using suite::failure;

namespace {

bool copyFolder(const QString &from, const QString &to)
{
    if (!QDir().mkpath(to))
        return false;
    const QDir source(from);
    for (const QString &name : source.entryList(QDir::Files | QDir::Hidden))
        if (!QFile::copy(source.filePath(name), QDir(to).filePath(name)))
            return false;
    return true;
}

// An error that passed through the trail: its report names where it happened.
struct Passed {
    qint32 number = 0;
    QString description;
    QString source;
};

template <class F>
Passed passedOn(F &&body)
{
    try {
        body();
    } catch (const HuntERR::Error &e) {
        return {e.number(), e.description(), e.info().source};
    }
    return {};
}

} // namespace

class TestSignIn : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void quotesAndConnectionStrings();
    void databaseList();
    void databaseTypes();
    void existenceAndPairing();
    void validationOrder();
    void handledFailures();
    void passedOnFailures();
    void typeCounterOverflow();

private:
    void fill(PlainFormPort &form, const QString &server = QString())
    {
        form.server = server.isEmpty() ? m_demo : server;
        form.user = QStringLiteral("demo");
        form.password = QString();
    }

    QTemporaryDir m_tmp;
    QString m_demo;
};

void TestSignIn::initTestCase()
{
    QVERIFY(m_tmp.isValid());
    QString error;
    m_demo = writeDemo(m_tmp.path(), &error);
    QVERIFY2(!m_demo.isEmpty(), qPrintable(error));
    repo::setEmbeddedDriver(QStringLiteral("QSQLITE"));
    repo::setTraceFile(QString());
    HuntERR::setShower([](const QString &) {});
}

void TestSignIn::init()
{
    HuntERR::reset();
}

void TestSignIn::quotesAndConnectionStrings()
{
    QCOMPARE(correctQuotes(QStringLiteral("a'b")), QStringLiteral("a''b"));
    QCOMPARE(correctQuotes(QStringLiteral("  'x'  ")), QStringLiteral("''x''"));
    QCOMPARE(correctQuotes(QStringLiteral("   ")), QString());
    QCOMPARE(correctQuotes(QStringLiteral("\tx\t")), QStringLiteral("\tx\t")); // blanks only
    QCOMPARE(correctQuotes(QStringLiteral("a b")), QStringLiteral("a b"));

    QCOMPARE(masterConnectionString(" sa ", " SRV\\INST ", " a'b "),
             QStringLiteral("Provider=SQLOLEDB.1;Persist Security Info=true;User ID=sa;Initial Catalog = zar_Master;"
                            "Data Source=SRV\\INST;Password=a''b"));
    QCOMPARE(serverMasterConnectionString("o'neil", "srv", ""),
             QStringLiteral("Provider=SQLOLEDB.1;Persist Security Info=true;User ID=o''neil;Initial Catalog = MASTER;"
                            "Data Source=srv;Password="));
    QCOMPARE(databaseConnectionString("sa", "Acme", "srv,1433", "pw"),
             QStringLiteral("Provider=SQLOLEDB.1;Persist Security Info=true;User ID=sa;Initial Catalog=Acme;"
                            "Data Source=srv,1433;Password=pw"));
    QCOMPARE(databaseConnectionString("sa", "", "srv", "pw"),
             QStringLiteral("Provider=SQLOLEDB.1;Persist Security Info=true;User ID=sa;Initial Catalog=;"
                            "Data Source=srv;Password=pw"));

    // A quote in the password travels doubled: a server that expects the doubled text lets it in.
    QTemporaryDir quoted;
    QVERIFY(copyFolder(m_demo, quoted.path()));
    {
        QFile ini(QDir(quoted.path()).filePath("server.ini"));
        QVERIFY(ini.open(QIODevice::WriteOnly | QIODevice::Truncate));
        ini.write("[logins]\nreader=\"a''b\"\n");
    }
    PlainFormPort form;
    form.server = QStringLiteral("  ") + quoted.path() + QStringLiteral("  ");
    form.user = QStringLiteral(" reader ");
    form.password = QStringLiteral(" a'b ");
    SignIn signIn(form);
    signIn.refreshDatabaseList();
    QCOMPARE(form.messages, QStringList());
    QCOMPARE(form.databases.size(), 6);
    // The boxes are kept as typed.
    QCOMPARE(signIn.strUserName, QStringLiteral(" reader "));
    QCOMPARE(signIn.strPassword, QStringLiteral(" a'b "));
    QCOMPARE(signIn.cnMaster().connectionString,
             "Provider=SQLOLEDB.1;Persist Security Info=true;User ID=reader;Initial Catalog = zar_Master;Data Source="
                 + quoted.path() + ";Password=a''b");
}

void TestSignIn::databaseList()
{
    PlainFormPort form;
    fill(form);
    SignIn signIn(form);
    QCOMPARE(signIn.cnMaster().state(), repo::adStateClosed); // created closed on first use
    signIn.refreshDatabaseList();
    QCOMPARE(form.messages, QStringList());
    QCOMPARE(form.databases,
             QStringList({"Acme", "AcmeArchive", "Globex", "Initech", "Scratch", "VandelayArchive"}));
    QCOMPARE(form.database, QStringLiteral("Acme")); // the first entry is chosen
    QCOMPARE(signIn.cnMaster().state(), repo::adStateOpen);
    QVERIFY(signIn.rsDbList.isOpen());
    QCOMPARE(signIn.rsDbList.recordCount(), 6);

    // Entering the list again re-opens the catalogue and rebuilds the list, not appends to it.
    form.database = QStringLiteral("Globex");
    signIn.refreshDatabaseList();
    QCOMPARE(form.databases.size(), 6);
    QCOMPARE(form.database, QStringLiteral("Acme"));
    QCOMPARE(signIn.cnMaster().state(), repo::adStateOpen);

    // A server of blanks only: nothing at all happens past copying the boxes.
    PlainFormPort blank;
    blank.server = QStringLiteral("   ");
    blank.user = QStringLiteral("u ");
    SignIn quiet(blank);
    quiet.FillDataBasename();
    QCOMPARE(blank.messages, QStringList());
    QCOMPARE(quiet.strUserName, QStringLiteral("u "));
    QCOMPARE(quiet.cnMaster().state(), repo::adStateClosed);
}

void TestSignIn::databaseTypes()
{
    PlainFormPort form;
    fill(form);
    SignIn signIn(form);
    signIn.refreshDatabaseList();

    struct Case {
        QString name, caption;
        int colour;
        bool archive;
    };
    // Codes in either letter case; names matched without regard to case.
    const QList<Case> cases = {{"Acme", "Live", 0, false},           {"AcmeArchive", "Archive", 255, true},
                               {"Globex", "Live", 0, false},         {"VandelayArchive", "Archive", 255, true},
                               {"acmearchive", "Archive", 255, true}, {"Scratch", "Live", 0, false}};
    for (const Case &c : cases) {
        form.database = c.name;
        signIn.cboDBName_Click();
        QCOMPARE(form.dbType, c.caption);
        QCOMPARE(form.dbTypeColour, c.colour);
        QCOMPARE(signIn.blnArchive, c.archive);
    }
    // A name that is not in the list: no caption, the colour stays, not an archive.
    form.database = QStringLiteral("AcmeArchive");
    signIn.cboDBName_Click();
    form.database = QStringLiteral("Nope");
    signIn.cboDBName_Click();
    QCOMPARE(form.dbType, QString());
    QCOMPARE(form.dbTypeColour, 255);
    QVERIFY(!signIn.blnArchive);
    QCOMPARE(signIn.fxnGetDBType(QStringLiteral("GLOBEX")), QStringLiteral("Live"));
    QCOMPARE(signIn.fxnGetDBType(QString()), QString());

    // Before any list was read there is nothing to match.
    PlainFormPort fresh;
    SignIn none(fresh);
    QCOMPARE(none.fxnGetDBType(QStringLiteral("Acme")), QString());
}

void TestSignIn::existenceAndPairing()
{
    const QByteArray before = sha256OfTree(m_demo);
    PlainFormPort form;
    fill(form);
    SignIn signIn(form);
    QVERIFY(signIn.fxnIsDBExists(QStringLiteral("Acme")));
    QCOMPARE(signIn.cnDb().state(), repo::adStateOpen); // stays open on the server's catalogue
    QVERIFY(signIn.cnDb().connectionString.contains(QStringLiteral(";Initial Catalog = MASTER;")));
    QVERIFY(signIn.fxnIsDBExists(QStringLiteral("acme")));
    QVERIFY(!signIn.fxnIsDBExists(QStringLiteral("Initech"))); // listed, but no database behind it
    QVERIFY(!signIn.fxnIsDBExists(QStringLiteral("")));

    // The pairing is read on the connection the existence check left open.
    QVERIFY(signIn.fxnIsDBExists(QStringLiteral("AcmeArchive")));
    QCOMPARE(signIn.fxnGetLiveDb(QStringLiteral("AcmeArchive")), QStringLiteral("Acme"));
    QCOMPARE(signIn.fxnGetLiveDb(QStringLiteral("VandelayArchive")), QString());
    QCOMPARE(signIn.fxnGetLiveDb(QStringLiteral("Acme")), QString());

    // A company connection left by an earlier tree is dropped by the next check.
    signIn.cnDb().close();
    signIn.cnDb().open(databaseConnectionString("demo", "Acme", m_demo, ""));
    QVERIFY(signIn.fxnIsDBExists(QStringLiteral("Globex")));
    QVERIFY(signIn.cnDb().connectionString.contains(QStringLiteral("MASTER")));

    // The whole sign-in of an archive company: the selected name and its live partner.
    QTemporaryDir traceDir;
    const QString trace = QDir(traceDir.path()).filePath("statements.sql");
    repo::setTraceFile(trace);
    signIn.refreshDatabaseList();
    form.database = QStringLiteral(" AcmeArchive ");
    signIn.cboDBName_Click(); // the padded text is not a list entry
    QVERIFY(!signIn.blnArchive);
    form.database = QStringLiteral("AcmeArchive");
    signIn.cboDBName_Click();
    form.database = QStringLiteral(" AcmeArchive ");
    QString focus = QStringLiteral("unchanged");
    QVERIFY(signIn.validateAndPrepare(&focus));
    QCOMPARE(focus, QString());
    QCOMPARE(signIn.strSelectedDb, QStringLiteral("AcmeArchive"));
    QCOMPARE(signIn.strLiveDb, QStringLiteral("Acme"));
    QCOMPARE(form.messages, QStringList());
    repo::setTraceFile(QString());
    // The statements went out exactly so (doubled blanks and all).
    QFile traced(trace);
    QVERIFY(traced.open(QIODevice::ReadOnly | QIODevice::Text));
    QCOMPARE(QString::fromUtf8(traced.readAll()),
             QStringLiteral("select Com_db, com_type from com_company order by Com_db\n"
                            "select name from sysdatabases  where name = 'AcmeArchive'\n"
                            "select com_db from zar_master..Com_Company where com_id = (select live_com_id from "
                            "zar_master..com_company where com_db ='AcmeArchive')\n"));

    // An archive without a partner signs in with an empty live name.
    form.database = QStringLiteral("VandelayArchive");
    signIn.cboDBName_Click();
    QVERIFY(signIn.validateAndPrepare(&focus));
    QCOMPARE(signIn.strSelectedDb, QStringLiteral("VandelayArchive"));
    QCOMPARE(signIn.strLiveDb, QString());

    // A live company has no partner to look for.
    form.database = QStringLiteral("Globex");
    signIn.cboDBName_Click();
    QVERIFY(signIn.validateAndPrepare(&focus));
    QCOMPARE(signIn.strSelectedDb, QStringLiteral("Globex"));
    QCOMPARE(signIn.strLiveDb, QString());
    QCOMPARE(sha256OfTree(m_demo), before);
}

void TestSignIn::validationOrder()
{
    PlainFormPort form;
    SignIn signIn(form);
    QString focus;

    // Each check in turn, with its message and where the focus goes.
    form.server = QStringLiteral("   ");
    form.user = QString();
    QVERIFY(!signIn.validateAndPrepare(&focus));
    QCOMPARE(form.messages.takeLast(), QStringLiteral("Please enter server name"));
    QCOMPARE(focus, QStringLiteral("txServerName"));
    signIn.refreshDatabaseList();
    QCOMPARE(form.messages.takeLast(), QStringLiteral("Please enter server name"));

    form.server = m_demo;
    form.user = QStringLiteral("  ");
    QVERIFY(!signIn.validateAndPrepare(&focus));
    QCOMPARE(form.messages.takeLast(), QStringLiteral("Please enter user name"));
    QCOMPARE(focus, QStringLiteral("txtUserName"));
    signIn.refreshDatabaseList();
    QCOMPARE(form.messages.takeLast(), QStringLiteral("Please enter user name"));
    QCOMPARE(signIn.cnMaster().state(), repo::adStateClosed);

    form.user = QStringLiteral("demo");
    form.database = QString();
    focus = QStringLiteral("unchanged");
    QVERIFY(!signIn.validateAndPrepare(&focus));
    QCOMPARE(form.messages.takeLast(), QStringLiteral("Please select database name"));
    QCOMPARE(focus, QString());

    // Blanks are a database name to this check; the existence check then refuses them.
    form.database = QStringLiteral("  ");
    QVERIFY(!signIn.validateAndPrepare(&focus));
    QCOMPARE(form.messages.takeLast(), QStringLiteral("Selected database does not exists"));
    form.database = QStringLiteral("Initech");
    QVERIFY(!signIn.validateAndPrepare(&focus));
    QCOMPARE(form.messages.takeLast(), QStringLiteral("Selected database does not exists"));
    QVERIFY(form.messages.isEmpty());

    // The password may be empty; a wrong one is refused by the server.
    form.database = QStringLiteral("Acme");
    QVERIFY(signIn.validateAndPrepare(&focus));
    QCOMPARE(signIn.strSelectedDb, QStringLiteral("Acme"));
}

void TestSignIn::handledFailures()
{
    // Login rejected: the server's own text, no report, no trail left behind.
    PlainFormPort form;
    fill(form);
    form.password = QStringLiteral("wrong");
    SignIn signIn(form);
    signIn.refreshDatabaseList();
    QCOMPARE(form.messages, QStringList({"Login failed for user 'demo'."}));
    QVERIFY(form.databases.isEmpty());
    QVERIFY(!HuntERR::isPreserved());
    QCOMPARE(HuntERR::current().number, 0);

    // A list filled earlier stays as it was when the next refresh cannot get in.
    form.password = QString();
    signIn.refreshDatabaseList();
    QCOMPARE(form.databases.size(), 6);
    form.password = QStringLiteral("wrong");
    signIn.refreshDatabaseList();
    QCOMPARE(form.databases.size(), 6);
    form.messages.clear();

    // A server that is not there: the fixed text.
    for (const QString &server : {QStringLiteral("/no/such/dir"), QDir(m_demo).filePath("server.ini"),
                                  m_demo + QStringLiteral("/gone")}) {
        PlainFormPort absent;
        fill(absent, server);
        SignIn s(absent);
        s.refreshDatabaseList();
        QCOMPARE(absent.messages, QStringList({"SQL Server does not exist or access denied"}));
        QVERIFY(!HuntERR::isPreserved());
    }

    // The same through the real SQL Server driver, at a port where nothing listens.
    qputenv("PARCELWISE_ODBC_DRIVER", "FreeTDS");
    const auto restore = qScopeGuard([] { qunsetenv("PARCELWISE_ODBC_DRIVER"); });
    if (QSqlDatabase::isDriverAvailable(QStringLiteral("QODBC"))) {
        PlainFormPort tds;
        fill(tds, QStringLiteral("127.0.0.1,1"));
        SignIn s(tds);
        const Passed p = passedOn([&] { s.refreshDatabaseList(); });
        if (p.number == 0) // a missing driver would be a different failure, passed on
            QCOMPARE(tds.messages, QStringList({"SQL Server does not exist or access denied"}));
    }
}

void TestSignIn::passedOnFailures()
{
    // A catalogue database without the company table: reported with this procedure's entry.
    QTemporaryDir odd;
    QVERIFY(QFile::copy(QDir(m_demo).filePath("Scratch.sqlite"), QDir(odd.path()).filePath("zar_Master.sqlite")));
    PlainFormPort form;
    fill(form, odd.path());
    form.databases = QStringList({"kept"});
    SignIn signIn(form);
    Passed p = passedOn([&] { signIn.FillDataBasename(); });
    QCOMPARE(p.number, repo::ERR_NO_OBJECT);
    QCOMPARE(p.source, QStringLiteral("HuntERR.ErrorIn"));
    QVERIFY2(p.description.contains(QStringLiteral("FrmSendtofolder.FillDataBasename")), qPrintable(p.description));
    QVERIFY(p.description.contains(QStringLiteral("Invalid object name 'com_company'.")));
    QVERIFY(form.messages.isEmpty());
    QVERIFY(form.databases.isEmpty()); // cleared before the statement failed

    // A database name with a quote breaks the existence check's statement.
    PlainFormPort quoted;
    fill(quoted);
    quoted.database = QStringLiteral("O'Brien");
    SignIn s(quoted);
    HuntERR::reset();
    p = passedOn([&] { s.validateAndPrepare(nullptr); });
    QCOMPARE(p.number, repo::ERR_COMMAND);
    QVERIFY2(p.description.contains(QStringLiteral("FrmSendtofolder.fxnIsDBExists(paramDbName)")),
             qPrintable(p.description));
    QVERIFY(quoted.messages.isEmpty());
    QVERIFY(s.strSelectedDb.isEmpty());

    // The pairing query without a connection to run on.
    SignIn unopened(quoted);
    HuntERR::reset();
    p = passedOn([&] { unopened.fxnGetLiveDb(QStringLiteral("AcmeArchive")); });
    QCOMPARE(p.number, 3709);
    QVERIFY(p.description.contains(QStringLiteral("FrmSendtofolder.fxnGetLiveDb(paramArchiveDbNm)")));
}

void TestSignIn::typeCounterOverflow()
{
    PlainFormPort form;
    SignIn signIn(form);
    auto list = [](int rows) {
        repo::RecordSet rs;
        rs.setFields({QStringLiteral("Com_db"), QStringLiteral("com_type")});
        for (int i = 1; i <= rows; ++i)
            rs.appendRow({QStringLiteral("Db%1").arg(i), i % 2 ? QStringLiteral("a") : QStringLiteral("L")});
        return rs;
    };
    // 32,767 rows still fit the counter; the last row is found.
    signIn.rsDbList = list(32767);
    QCOMPARE(signIn.fxnGetDBType(QStringLiteral("db32767")), QStringLiteral("Archive"));
    QCOMPARE(signIn.fxnGetDBType(QStringLiteral("Db2")), QStringLiteral("Live"));
    // One more overflows, even for a name in the first row.
    signIn.rsDbList = list(32768);
    HuntERR::reset();
    const Passed p = passedOn([&] { signIn.fxnGetDBType(QStringLiteral("Db1")); });
    QCOMPARE(p.number, 6);
    QVERIFY(p.description.contains(QStringLiteral("Overflow")));
    QVERIFY(p.description.contains(QStringLiteral("FrmSendtofolder.fxnGetDBType(paramDBName)")));
}

QTEST_GUILESS_MAIN(TestSignIn)
#include "test_signin.moc"
