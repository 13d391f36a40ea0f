// The ODBC side of the data path: the same statement suite through the SQLite3 ODBC driver on the
// demo's files, and the real FreeTDS driver against a server that is not there.

#include "repository_suite.h"
#include "testsupport.h"

#include "repository/drivers.h"

#include <QDir>
#include <QFile>
#include <QSqlDatabase>
#include <QTemporaryDir>
#include <QtTest>

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

class TestOdbcSqlite : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();
    void statementSuite();
    void errorsThroughOdbc();
    void freeTdsUnreachable();

private:
    bool sqliteOdbcAvailable(QString *why);

    QTemporaryDir m_tmp;
    QString m_demo;
};

void TestOdbcSqlite::initTestCase()
{
    if (!QSqlDatabase::isDriverAvailable(QStringLiteral("QODBC")))
        QSKIP("Qt's ODBC driver is not installed");
    QVERIFY(m_tmp.isValid());
    QString error;
    m_demo = writeDemo(m_tmp.path(), &error);
    QVERIFY2(!m_demo.isEmpty(), qPrintable(error));
    repo::setTraceFile(QString());
}

void TestOdbcSqlite::init()
{
    HuntERR::reset();
    repo::setEmbeddedDriver(QStringLiteral("SQLite3"));
}

void TestOdbcSqlite::cleanupTestCase()
{
    repo::setEmbeddedDriver(QStringLiteral("QSQLITE"));
}

bool TestOdbcSqlite::sqliteOdbcAvailable(QString *why)
{
    repo::Connection probe;
    QString description;
    const qint32 n = failure([&] { probe.open(suite::connectionText(m_demo, "Globex")); }, &description);
    *why = description;
    return n == 0 || !driverMissing(description);
}

void TestOdbcSqlite::statementSuite()
{
    QString why;
    if (!sqliteOdbcAvailable(&why))
        QSKIP(qPrintable("The SQLite3 ODBC driver is not registered: " + why));
    QCOMPARE(repo::embeddedDriver(), QStringLiteral("SQLite3"));
    const QByteArray before = sha256OfTree(m_demo);
    suite::runStatementSuite(m_demo);
    if (QTest::currentTestFailed())
        return;
    QCOMPARE(sha256OfTree(m_demo), before);
}

void TestOdbcSqlite::errorsThroughOdbc()
{
    QString why;
    if (!sqliteOdbcAvailable(&why))
        QSKIP(qPrintable("The SQLite3 ODBC driver is not registered: " + why));
    const QByteArray before = sha256OfTree(m_demo);
    repo::Connection cn;
    cn.open(suite::connectionText(m_demo, "Acme"));
    QString description;
    QCOMPARE(failure([&] { cn.execute("select * from zar_nothing"); }, &description), repo::ERR_NO_OBJECT);
    // The ODBC driver's own decorations are gone from the text.
    QCOMPARE(description, QStringLiteral("Invalid object name 'zar_nothing'."));
    QCOMPARE(failure([&] { cn.execute("selec 1"); }, &description), repo::ERR_COMMAND);
    QCOMPARE(description, QStringLiteral("Incorrect syntax near 'selec'."));
    QCOMPARE(failure([&] { cn.execute("select nosuchcol from zar_file"); }), repo::ERR_COMMAND);
    QCOMPARE(failure([&] { cn.execute("select * from Nowhere..zar_FileArchive"); }), repo::ERR_NO_OBJECT);
    // Opened read-only: writes are refused and the files stay as they were.
    QVERIFY(failure([&] { cn.execute("delete from zar_file"); }) != 0);
    QVERIFY(failure([&] { cn.execute("create table t (a)"); }) != 0);
    QVERIFY(failure([&] { cn.execute("delete from AcmeArchive..zar_FileArchive"); }) != 0);
    QCOMPARE(cn.execute(suite::firstLevel(0)).recordCount(), 1);
    cn.close();

    // A file that is no database fails at open, not at the first statement.
    QTemporaryDir broken;
    QVERIFY(QFile::copy(QDir(m_demo).filePath("zar_Master.sqlite"), QDir(broken.path()).filePath("zar_Master.sqlite")));
    {
        QFile junk(QDir(broken.path()).filePath("Junk.sqlite"));
        QVERIFY(junk.open(QIODevice::WriteOnly));
        junk.write(QByteArray(8192, 'x'));
    }
    repo::Connection bad;
    QCOMPARE(failure([&] { bad.open(suite::connectionText(broken.path(), "Junk")); }), repo::ERR_UNREACHABLE);
    QCOMPARE(bad.state(), repo::adStateClosed);
    repo::Connection good;
    good.open(suite::connectionText(broken.path(), "zar_master"));
    QCOMPARE(good.execute(suite::catalogueList()).recordCount(), 6);
    QCOMPARE(sha256OfTree(m_demo), before);

    // The files really go through the named ODBC driver: an unknown one cannot open them.
    repo::setEmbeddedDriver(QStringLiteral("No Such SQLite Driver"));
    QCOMPARE(failure([&] { good.close(); good.open(suite::connectionText(m_demo, "Acme")); }, &description),
             repo::ERR_UNREACHABLE);
    QVERIFY2(driverMissing(description), qPrintable(description));
}

void TestOdbcSqlite::freeTdsUnreachable()
{
    qputenv("PARCELWISE_ODBC_DRIVER", "FreeTDS");
    const auto restore = qScopeGuard([] { qunsetenv("PARCELWISE_ODBC_DRIVER"); });
    QCOMPARE(repo::sqlServerDriver(), QStringLiteral("FreeTDS"));

    // Port 1 of this machine: nothing listens there.
    repo::Connection cn;
    QString description;
    const qint32 n =
        failure([&] { cn.open(masterConnectionString("sa", "127.0.0.1,1", "secret")); }, &description);
    if (driverMissing(description))
        QSKIP(qPrintable("The FreeTDS ODBC driver is not registered: " + description));
    QCOMPARE(n, repo::ERR_UNREACHABLE);
    QCOMPARE(cn.state(), repo::adStateClosed);
    QVERIFY(!cn.isEmbedded());
    QVERIFY2(!description.startsWith(u'['), qPrintable(description)); // no driver decorations
    QVERIFY(!cn.errorDescriptions().isEmpty());
    QCOMPARE(cn.errorDescriptions().first(), description);
    // The same server through the other form of the string reaches the same refusal.
    QCOMPARE(failure([&] { cn.open(suite::connectionText("tcp:127.0.0.1,1", "MASTER", "sa", "")); }),
             repo::ERR_UNREACHABLE);
    QCOMPARE(failure([&] { cn.execute("select 1"); }), 3709);

    // What the driver is handed for each Data Source form.
    auto odbcText = [](const QString &text) {
        return repo::sqlServerOdbcText(repo::ConnectionString::parse(text), QStringLiteral("FreeTDS"));
    };
    QCOMPARE(odbcText(masterConnectionString("sa", "127.0.0.1,1", "pw")),
             QStringLiteral("DRIVER={FreeTDS};Server=127.0.0.1;Port=1;Database=zar_Master;UID=sa;PWD=pw;"
                            "TDS_Version=7.4"));
    QCOMPARE(odbcText(serverMasterConnectionString("sa", "dbhost\\SQL2019", "")),
             QStringLiteral("DRIVER={FreeTDS};Server=dbhost\\SQL2019;Database=MASTER;UID=sa;PWD=;TDS_Version=7.4"));
    QCOMPARE(odbcText(databaseConnectionString("sa", "Acme", " dbhost , 2433 ", "p'w")),
             QStringLiteral("DRIVER={FreeTDS};Server=dbhost;Port=2433;Database=Acme;UID=sa;PWD=p''w;TDS_Version=7.4"));

    // A path-like Data Source never reaches ODBC: it fails at once as an absent server.
    QCOMPARE(failure([&] { cn.open(masterConnectionString("sa", "/no/such/dir", "")); }, &description),
             repo::ERR_UNREACHABLE);
    QCOMPARE(description, QStringLiteral("SQL Server does not exist or access denied."));
}

QTEST_GUILESS_MAIN(TestOdbcSqlite)
#include "test_odbc_sqlite.moc"
