// The data path on the embedded server: connection strings, the T-SQL adaptation, every statement
// form against the demo repository, the error numbers, record-set reading, the SQL trace, and the
// promise that nothing is ever written.

#include "repository_suite.h"
#include "testsupport.h"

#include "repository/drivers.h"
#include "repository/sqladapt.h"

#include <QDir>
#include <QFile>
#include <QSettings>
#include <QSqlDatabase>
#include <QSqlQuery>
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

// A small SQLite database written with Qt's own driver (fixtures the demo does not hold).
bool writeSqlite(const QString &file, const QStringList &statements, const QVariantList &blobs = {})
{
    const QString name = QStringLiteral("fixture-") + file;
    bool ok = true;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        db.setDatabaseName(file);
        ok = db.open();
        QSqlQuery q(db);
        for (const QString &sql : statements) {
            if (!ok)
                break;
            q.prepare(sql);
            if (sql.contains(u'?'))
                for (const QVariant &v : blobs)
                    q.addBindValue(v);
            ok = q.exec();
        }
        q = QSqlQuery();
        db.close();
    }
    QSqlDatabase::removeDatabase(name);
    return ok;
}

} // namespace

class TestRepository : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void connectionStrings();
    void sqlAdaptation();
    void statementSuite();
    void errorNumbers();
    void logins();
    void recordSets();
    void largeDocument();
    void sqlTrace();
    void driverChoice();

private:
    QTemporaryDir m_tmp;
    QString m_demo;
};

void TestRepository::initTestCase()
{
    QVERIFY(m_tmp.isValid());
    QString error;
    m_demo = writeDemo(m_tmp.path(), &error);
    QVERIFY2(!m_demo.isEmpty(), qPrintable(error));
    repo::setEmbeddedDriver(QStringLiteral("QSQLITE"));
    repo::setTraceFile(QString());
}

void TestRepository::init()
{
    HuntERR::reset();
}

void TestRepository::connectionStrings()
{
    using repo::ConnectionString;
    // The three texts the tool builds.
    ConnectionString cs = ConnectionString::parse(masterConnectionString("sa", "SRV01\\SQL2008", "pw"));
    QCOMPARE(cs.provider, QStringLiteral("SQLOLEDB.1"));
    QCOMPARE(cs.userId, QStringLiteral("sa"));
    QCOMPARE(cs.initialCatalog, QStringLiteral("zar_Master"));
    QCOMPARE(cs.dataSource, QStringLiteral("SRV01\\SQL2008"));
    QCOMPARE(cs.password, QStringLiteral("pw"));
    cs = ConnectionString::parse(serverMasterConnectionString("sa", "db,1433", ""));
    QCOMPARE(cs.initialCatalog, QStringLiteral("MASTER"));
    QCOMPARE(cs.dataSource, QStringLiteral("db,1433"));
    QCOMPARE(cs.password, QString());
    cs = ConnectionString::parse(databaseConnectionString("u", "Acme", "host", " a'b "));
    QCOMPARE(cs.initialCatalog, QStringLiteral("Acme"));
    QCOMPARE(cs.password, QStringLiteral("a''b"));

    // Keys in any letter case, blanks around "=", synonyms, quoted values, stray fragments.
    cs = ConnectionString::parse("  DATA SOURCE  =  my host ;user id=Bob;PASSWORD=\"x;y\";initial catalog= Db ;junk;pwd2=1");
    QCOMPARE(cs.dataSource, QStringLiteral("my host"));
    QCOMPARE(cs.userId, QStringLiteral("Bob"));
    QCOMPARE(cs.password, QStringLiteral("x;y"));
    QCOMPARE(cs.initialCatalog, QStringLiteral("Db"));
    cs = ConnectionString::parse("Server=s;Database=d;UID=u;PWD='it''s'");
    QCOMPARE(cs.dataSource, QStringLiteral("s"));
    QCOMPARE(cs.initialCatalog, QStringLiteral("d"));
    QCOMPARE(cs.userId, QStringLiteral("u"));
    QCOMPARE(cs.password, QStringLiteral("it's"));
    // A doubled quote from correctQuotes that only looks like quoting stays as it is.
    cs = ConnectionString::parse("Password=''abc'';User ID=x");
    QCOMPARE(cs.password, QStringLiteral("''abc''"));
    QCOMPARE(cs.userId, QStringLiteral("x"));
    cs = ConnectionString::parse("Password=a=b");
    QCOMPARE(cs.password, QStringLiteral("a=b"));
    cs = ConnectionString::parse(QString());
    QVERIFY(cs.dataSource.isEmpty() && cs.userId.isEmpty());

    // What reaches the ODBC driver.
    auto odbc = [](const QString &server, const QString &driver, const QString &password = "p") {
        repo::ConnectionString c;
        c.dataSource = server;
        c.initialCatalog = "zar_Master";
        c.userId = "sa";
        c.password = password;
        return repo::sqlServerOdbcText(c, driver);
    };
    qunsetenv("PARCELWISE_TDS_VERSION");
    QCOMPARE(odbc("db1", "FreeTDS"),
             QStringLiteral("DRIVER={FreeTDS};Server=db1;Database=zar_Master;UID=sa;PWD=p;TDS_Version=7.4"));
    QCOMPARE(odbc("(local)", "FreeTDS").section(';', 1, 1), QStringLiteral("Server=localhost"));
    QCOMPARE(odbc(".\\SQLEXPRESS", "FreeTDS").section(';', 1, 1), QStringLiteral("Server=localhost\\SQLEXPRESS"));
    QCOMPARE(odbc("db1,1433", "SQL Server"), QStringLiteral("DRIVER={SQL Server};Server=db1,1433;Database=zar_Master;UID=sa;PWD=p"));
    QCOMPARE(odbc("db1", "FreeTDS", "a;b}c").section(';', 4, 5), QStringLiteral("PWD={a;b}}c}"));
    QCOMPARE(odbc("db1", "SQL Server", "x=y"), QStringLiteral("DRIVER={SQL Server};Server=db1;Database=zar_Master;UID=sa;PWD={x=y}"));
    qputenv("PARCELWISE_TDS_VERSION", "7.3");
    QVERIFY(odbc("db1", "FreeTDS").endsWith(QStringLiteral(";TDS_Version=7.3")));
    qunsetenv("PARCELWISE_TDS_VERSION");

    // Which Data Sources are folders.
    QVERIFY(repo::looksLikeFolderPath("/no/such/dir"));
    QVERIFY(repo::looksLikeFolderPath("./demo"));
    QVERIFY(repo::looksLikeFolderPath("..\\demo"));
    QVERIFY(repo::looksLikeFolderPath("a/b"));
    QVERIFY(!repo::looksLikeFolderPath("."));
    QVERIFY(!repo::looksLikeFolderPath(".\\SQLEXPRESS"));
    QVERIFY(!repo::looksLikeFolderPath("db1\\SQLEXPRESS"));
    QVERIFY(!repo::looksLikeFolderPath("127.0.0.1,1433"));
    QVERIFY(!repo::looksLikeFolderPath(""));
}

void TestRepository::sqlAdaptation()
{
    using repo::adaptTSqlForSqlite;
    // The date query: every T-SQL form in one statement.
    const repo::AdaptedStatement dates = adaptTSqlForSqlite(suite::fileDates(1007));
    const QString sql = dates.sql;
    QVERIFY(dates.crossNames.isEmpty());
    QVERIFY2(!sql.contains("convert(", Qt::CaseInsensitive), qPrintable(sql));
    QVERIFY2(!sql.contains("DATEPART", Qt::CaseInsensitive), qPrintable(sql));
    QVERIFY2(!sql.contains("RIGHT(", Qt::CaseInsensitive), qPrintable(sql));
    QVERIFY2(!sql.contains("VARCHAR", Qt::CaseInsensitive), qPrintable(sql));
    QVERIFY2(!sql.contains(QStringLiteral(")+")) && !sql.contains(QStringLiteral("'+")), qPrintable(sql));
    QVERIFY(sql.contains("strftime('%Y%m%d', FileActualDate)"));
    QVERIFY(sql.contains("CAST(strftime('%H', File_DateUploaded) AS INTEGER)"));
    QVERIFY(sql.contains("CAST(substr(strftime('%f', FileActualDate), 4) AS INTEGER)"));
    QVERIFY(sql.contains("'0'||CAST("));
    QVERIFY(sql.contains(" as FileActualDate, "));
    QVERIFY(sql.endsWith(" from zar_file  where rec_id = 1007"));

    // Three-part names: every occurrence reported, rewritten to schema.table.
    const repo::AdaptedStatement probe = adaptTSqlForSqlite(suite::archivedBelow(28, "AcmeArchive"));
    QCOMPARE(probe.crossNames.size(), 2);
    QCOMPARE(probe.crossNames.at(0).database, QStringLiteral("AcmeArchive"));
    QCOMPARE(probe.crossNames.at(0).table, QStringLiteral("zar_FileArchive"));
    QCOMPARE(probe.crossNames.at(0).original, QStringLiteral("AcmeArchive..zar_FileArchive"));
    QVERIFY(probe.sql.contains("b,  AcmeArchive.zar_FileArchive c where"));
    QVERIFY(!probe.sql.contains(".."));
    const repo::AdaptedStatement live = adaptTSqlForSqlite(suite::liveDatabase("AcmeArchive"));
    QCOMPARE(live.sql, QStringLiteral("select com_db from zar_master.Com_Company where com_id = (select live_com_id "
                                      "from zar_master.com_company where com_db ='AcmeArchive')"));
    QCOMPARE(adaptTSqlForSqlite("select * from [My Db]..[zar file]").crossNames.value(0).database,
             QStringLiteral("My Db"));
    QCOMPARE(adaptTSqlForSqlite("select * from [My Db]..[zar file]").sql,
             QStringLiteral("select * from \"My Db\".\"zar file\""));

    // Statements without T-SQL forms pass unchanged, doubled blanks included.
    for (const QString &plain : {suite::catalogueList(), suite::databaseExists("Acme"), suite::firstLevel(0),
                                 suite::liveChildren("Fold1"), suite::archiveChildren("Fold1"),
                                 suite::subFoldersLive("7", false), suite::subFoldersArchive("7"),
                                 suite::folderFilesLive(7), suite::documentLive(1007)})
        QCOMPARE(adaptTSqlForSqlite(plain).sql, plain);

    // String literals are never touched; "+" between numbers stays an addition.
    QCOMPARE(adaptTSqlForSqlite("select 'a+b..c RIGHT(x,2)' from t").sql,
             QStringLiteral("select 'a+b..c RIGHT(x,2)' from t"));
    QCOMPARE(adaptTSqlForSqlite("select a.x + 1, 'it''s' + a.y from t a").sql,
             QStringLiteral("select a.x + 1, 'it''s' || a.y from t a"));
    // Once a chain holds a text, its later "+" join texts too.
    QCOMPARE(adaptTSqlForSqlite("select 'a' + x + y").sql, QStringLiteral("select 'a' || x || y"));
    QCOMPARE(adaptTSqlForSqlite("select x + y, z + 'b'").sql, QStringLiteral("select x + y, z || 'b'"));
    QCOMPARE(adaptTSqlForSqlite("select RIGHT('00' + CAST(n AS varchar(10)), 2) from t").sql,
             QStringLiteral("select substr('00' || substr(CAST(n AS TEXT), 1, 10), max(length('00' || "
                            "substr(CAST(n AS TEXT), 1, 10)) - (2) + 1, 1)) from t"));
    QCOMPARE(adaptTSqlForSqlite("select LEFT(name, 3), ISNULL(a, 0) from t").sql,
             QStringLiteral("select substr(name, 1, 3), ifnull(a, 0) from t"));
    // Forms the adapter does not know are left for SQLite to refuse.
    QCOMPARE(adaptTSqlForSqlite("select convert(varchar(8), d, 999)").sql,
             QStringLiteral("select convert(varchar(8), d, 999)"));
    QCOMPARE(adaptTSqlForSqlite("select (a").sql, QStringLiteral("select (a"));
    QCOMPARE(adaptTSqlForSqlite("select a)").sql, QStringLiteral("select a)"));
    QCOMPARE(adaptTSqlForSqlite(QString()).sql, QString());
    QCOMPARE(adaptTSqlForSqlite("select N'x' -- note").sql, QStringLiteral("select 'x' -- note"));
}

void TestRepository::statementSuite()
{
    const QByteArray before = sha256OfTree(m_demo);
    suite::runStatementSuite(m_demo);
    if (QTest::currentTestFailed())
        return;
    // The tool only reads: every file of the server is byte for byte what it was.
    // (no journal or lock file left behind either: the hash covers every file of the folder)
    QCOMPARE(sha256OfTree(m_demo), before);
}

void TestRepository::errorNumbers()
{
    const QByteArray before = sha256OfTree(m_demo);
    repo::Connection cn;
    cn.open(suite::connectionText(m_demo, "Acme"));
    QString description;

    QCOMPARE(failure([&] { cn.execute("select * from zar_nothing"); }, &description), repo::ERR_NO_OBJECT);
    QCOMPARE(description, QStringLiteral("Invalid object name 'zar_nothing'."));
    QCOMPARE(cn.errorDescriptions(), QStringList({description}));
    QCOMPARE(failure([&] { cn.execute("selec * from zar_file"); }, &description), repo::ERR_COMMAND);
    QCOMPARE(description, QStringLiteral("Incorrect syntax near 'selec'."));
    QCOMPARE(failure([&] { cn.execute("select nosuchcol from zar_file"); }, &description), repo::ERR_COMMAND);
    QCOMPARE(description, QStringLiteral("Invalid column name 'nosuchcol'."));
    QCOMPARE(failure([&] { cn.execute("select rec_id from zar_file a, zar_fileLive b"); }), repo::ERR_COMMAND);
    QCOMPARE(failure([&] { cn.execute("select * from Nowhere..zar_FileArchive"); }, &description),
             repo::ERR_NO_OBJECT);
    QCOMPARE(description, QStringLiteral("Invalid object name 'Nowhere..zar_FileArchive'."));
    // An attached database without the table.
    QCOMPARE(failure([&] { cn.execute("select * from Globex..zar_FileArchive_x"); }), repo::ERR_NO_OBJECT);
    // The repository is never written, not even when a statement asks for it.
    QVERIFY(failure([&] { cn.execute("delete from zar_file"); }) != 0);
    QVERIFY(failure([&] { cn.execute("delete from AcmeArchive..zar_FileArchive"); }) != 0);
    QCOMPARE(cn.execute("select count(*) as n from zar_file").value("n").toInt() > 0, true);
    // The connection still works after failures.
    QCOMPARE(cn.execute(suite::firstLevel(0)).recordCount(), 1);
    // ADO's own refusals.
    QCOMPARE(failure([&] { cn.open(); }), 3705);
    QCOMPARE(failure([&] { cn.rollbackTrans(); }), HuntERR::ERR_NOT_PASSED_ON);
    cn.close();
    QCOMPARE(cn.state(), repo::adStateClosed);
    QCOMPARE(failure([&] { cn.execute(suite::firstLevel(0)); }), 3709);
    cn.close(); // closing twice is harmless
    // Re-opening from the connection-string property, as the tree building does.
    cn.connectionString = suite::connectionText(m_demo, "Globex");
    cn.open();
    QCOMPARE(cn.execute(suite::firstLevel(0)).text("Folder_Name"), QStringLiteral("Globex Inc"));
    cn.close();

    // Servers that cannot be reached.
    auto openFails = [&](const QString &server, const QString &catalogue, QString *text = nullptr) {
        repo::Connection c;
        const qint32 n = failure([&] { c.open(suite::connectionText(server, catalogue)); }, text);
        if (c.state() != repo::adStateClosed)
            return qint32(1);
        return n;
    };
    QCOMPARE(openFails("/no/such/dir", "zar_Master", &description), repo::ERR_UNREACHABLE);
    QCOMPARE(description, QStringLiteral("SQL Server does not exist or access denied."));
    QCOMPARE(openFails(QDir(m_demo).filePath("server.ini"), "zar_Master"), repo::ERR_UNREACHABLE);
    QCOMPARE(openFails(QDir(m_demo).filePath("Acme.sqlite"), "Acme"), repo::ERR_UNREACHABLE);
    QCOMPARE(openFails(m_demo + "/missing", "zar_Master"), repo::ERR_UNREACHABLE);
    // A listed database without its file, and one the server does not know at all.
    QCOMPARE(openFails(m_demo, "Initech", &description), repo::ERR_UNREACHABLE);
    QCOMPARE(description, QStringLiteral("Cannot open database \"Initech\" requested by the login. The login failed."));
    QCOMPARE(openFails(m_demo, "Nobody"), repo::ERR_UNREACHABLE);

    // Files that are no database.
    QTemporaryDir broken;
    QVERIFY(copyFolder(m_demo, broken.path()));
    {
        QFile junk(QDir(broken.path()).filePath("Junk.sqlite"));
        QVERIFY(junk.open(QIODevice::WriteOnly));
        junk.write(QByteArray(8192, 'x'));
        QFile half(QDir(broken.path()).filePath("Half.sqlite"));
        QFile acme(QDir(broken.path()).filePath("Acme.sqlite"));
        QVERIFY(acme.open(QIODevice::ReadOnly) && half.open(QIODevice::WriteOnly));
        half.write(acme.read(100)); // the header and nothing else
    }
    QCOMPARE(openFails(broken.path(), "Junk", &description), repo::ERR_UNREACHABLE);
    QVERIFY2(description.contains("Junk"), qPrintable(description));
    QCOMPARE(openFails(broken.path(), "Half"), repo::ERR_UNREACHABLE);
    QCOMPARE(openFails(broken.path(), "junk"), repo::ERR_UNREACHABLE);
    {
        repo::Connection c;
        c.open(suite::connectionText(broken.path(), "Acme"));
        QCOMPARE(failure([&] { c.execute("select * from Junk..zar_FileArchive"); }), repo::ERR_NO_OBJECT);
        // The catalogue of that server lists the broken files as well: they are databases by name.
        repo::Connection m;
        m.open(suite::connectionText(broken.path(), "MASTER"));
        QCOMPARE(m.execute(suite::databaseExists("junk")).recordCount(), 1);
    }

    // No catalogue named: the login's default database, the server's own catalogue.
    {
        repo::Connection c;
        c.open(suite::connectionText(m_demo, QString()));
        QCOMPARE(c.execute(suite::databaseExists("Globex")).recordCount(), 1);
        QCOMPARE(failure([&] { c.execute(suite::firstLevel(0)); }), repo::ERR_NO_OBJECT);
    }
    QCOMPARE(sha256OfTree(m_demo), before);
}

void TestRepository::logins()
{
    QString description;
    auto openAs = [&](const QString &server, const QString &user, const QString &password) {
        repo::Connection c;
        return failure([&] { c.open(suite::connectionText(server, "zar_Master", user, password)); }, &description);
    };
    // The demo's server.ini: user demo, empty password.
    QCOMPARE(openAs(m_demo, "demo", ""), 0);
    QCOMPARE(openAs(m_demo, "DEMO", ""), 0);
    QCOMPARE(openAs(m_demo, "demo", "x"), repo::ERR_LOGIN_REJECTED);
    QCOMPARE(description, QStringLiteral("Login failed for user 'demo'."));
    QCOMPARE(openAs(m_demo, "sa", ""), repo::ERR_LOGIN_REJECTED);
    QCOMPARE(description, QStringLiteral("Login failed for user 'sa'."));
    // The login is checked before the database is looked for.
    {
        repo::Connection c;
        QCOMPARE(failure([&] { c.open(suite::connectionText(m_demo, "Nobody", "sa", "")); }), repo::ERR_LOGIN_REJECTED);
    }

    QTemporaryDir other;
    QVERIFY(copyFolder(m_demo, other.path()));
    // Without server.ini every login is accepted.
    QVERIFY(QFile::remove(QDir(other.path()).filePath("server.ini")));
    QCOMPARE(openAs(other.path(), "anyone", "anything"), 0);
    // Passwords must match exactly, including letter case and quotes as sent.
    {
        QFile ini(QDir(other.path()).filePath("server.ini"));
        QVERIFY(ini.open(QIODevice::WriteOnly));
        ini.write("[logins]\nreader=Secret\nquoter=\"a''b\"\n");
    }
    QCOMPARE(openAs(other.path(), "reader", "Secret"), 0);
    QCOMPARE(openAs(other.path(), "reader", "secret"), repo::ERR_LOGIN_REJECTED);
    QCOMPARE(openAs(other.path(), "quoter", "a''b"), 0);
    QCOMPARE(openAs(other.path(), "quoter", "a'b"), repo::ERR_LOGIN_REJECTED);
    // A server.ini without a login list accepts everyone.
    {
        QFile ini(QDir(other.path()).filePath("server.ini"));
        QVERIFY(ini.open(QIODevice::WriteOnly | QIODevice::Truncate));
        ini.write("[server]\nname=test\n");
    }
    QCOMPARE(openAs(other.path(), "someone", ""), 0);
}

void TestRepository::recordSets()
{
    repo::Connection cn;
    cn.open(suite::connectionText(m_demo, "Acme"));
    repo::RecordSet rs = cn.execute(suite::liveChildren("Fold1"));
    QVERIFY(rs.isOpen());
    QCOMPARE(rs.recordCount(), 18);
    QVERIFY(!rs.eof());
    // (the letter case of a name may be the column's own rather than the statement's)
    QCOMPARE(rs.fieldNames().join(u',').toLower(), QStringLiteral("rec_id,icon_rec_id,folder_type,folder_name"));
    // Field names in any letter case.
    QCOMPARE(rs.text("REC_ID"), QStringLiteral("2"));
    QCOMPARE(rs.text("Rec_Id"), QStringLiteral("2"));
    QCOMPARE(rs.value("folder_name").toString(), QStringLiteral("A/B"));
    QCOMPARE(failure([&] { rs.value("Nothing"); }), HuntERR::ERR_ITEM_NOT_FOUND);

    // A copy reads on its own; the original keeps its place.
    rs.moveNext();
    repo::RecordSet copy = rs;
    copy.moveNext();
    QCOMPARE(rs.text("rec_id"), QStringLiteral("3"));
    QCOMPARE(copy.text("rec_id"), QStringLiteral("4"));
    while (!copy.eof())
        copy.moveNext();
    QCOMPARE(failure([&] { copy.value("rec_id"); }), HuntERR::ERR_NO_CURRENT_RECORD);
    QCOMPARE(failure([&] { copy.moveNext(); }), HuntERR::ERR_NO_CURRENT_RECORD);
    copy.moveFirst();
    QCOMPARE(copy.text("rec_id"), QStringLiteral("2"));
    QCOMPARE(rs.text("rec_id"), QStringLiteral("3"));

    // Closing one copy leaves the other open.
    copy.close();
    QVERIFY(!copy.isOpen());
    QVERIFY(copy.eof());
    QCOMPARE(copy.recordCount(), 0);
    QCOMPARE(failure([&] { copy.value("rec_id"); }), 3704);
    QVERIFY(rs.isOpen());

    // Nulls: isNull true, text empty. An empty result is open, at its end.
    repo::RecordSet dates = cn.execute(suite::fileDates(1009));
    QVERIFY(dates.isNull("FileActualDate"));
    QCOMPARE(dates.text("FileActualDate"), QString());
    repo::RecordSet none = cn.execute(suite::folderFilesLive(9));
    QVERIFY(none.isOpen());
    QVERIFY(none.eof());
    QCOMPARE(none.recordCount(), 0);
    QCOMPARE(none.fieldNames().size(), 3);

    // Equal names: the first one answers, as the server's record sets do.
    repo::RecordSet twice = cn.execute("select a.rec_id, b.rec_id from zar_file a, zar_fileLive b "
                                       "where a.rec_id = b.rec_id and a.rec_id = 1007");
    QCOMPARE(twice.text("rec_id"), QStringLiteral("1007"));

    // A default record set is closed and empty.
    repo::RecordSet fresh;
    QVERIFY(!fresh.isOpen());
    QVERIFY(fresh.eof());
    QCOMPARE(fresh.recordCount(), 0);
}

void TestRepository::largeDocument()
{
    // A 50 MiB document: the record set holds the bytes once, and copies of the set share them.
    QTemporaryDir server;
    const QByteArray bytes(50 * 1024 * 1024, 'z');
    const QString file = QDir(server.path()).filePath("Big.sqlite");
    QVERIFY(writeSqlite(file,
                        {"create table ZAR_File (rec_id integer primary key, File_name text, File_Description text, "
                         "file_data blob)",
                         "create table zar_FileLive (rec_id integer primary key)",
                         "insert into ZAR_File values (7, 'big.bin', 'Big', ?)", "insert into zar_FileLive values (7)"},
                        {bytes}));
    repo::Connection cn;
    cn.open(suite::connectionText(server.path(), "big", "anyone", ""));
    const repo::RecordSet rs = cn.execute(suite::documentLive(7));
    QCOMPARE(rs.recordCount(), 1);
    const QByteArray first = rs.value("File_Data").toByteArray();
    const QByteArray second = rs.value("file_data").toByteArray();
    QCOMPARE(first.size(), bytes.size());
    QCOMPARE(first.constData(), second.constData()); // shared, not copied per read
    repo::RecordSet copy = rs;
    copy.moveFirst();
    QCOMPARE(copy.value("FILE_DATA").toByteArray().constData(), first.constData());
    QVERIFY(first == bytes);
}

void TestRepository::sqlTrace()
{
    QTemporaryDir dir;
    const QString trace = QDir(dir.path()).filePath("trace.sql");
    repo::setTraceFile(trace);
    QCOMPARE(repo::traceFile(), trace);
    {
        repo::Connection cn;
        cn.open(suite::connectionText(m_demo, "Acme"));
        cn.execute(suite::fileDates(1007));
        cn.execute(suite::archivedBelow(28, "AcmeArchive"));
        failure([&] { cn.execute("select * from zar_nothing"); });
    }
    repo::setTraceFile(QString());
    {
        // Off again: nothing more is written.
        repo::Connection cn;
        cn.open(suite::connectionText(m_demo, "Acme"));
        cn.execute(suite::firstLevel(0));
    }
    QFile f(trace);
    QVERIFY(f.open(QIODevice::ReadOnly | QIODevice::Text));
    const QStringList lines = QString::fromUtf8(f.readAll()).split(u'\n');
    // Exactly as the procedures built them, before any adaptation; failing ones too.
    QCOMPARE(lines, QStringList({suite::fileDates(1007), suite::archivedBelow(28, "AcmeArchive"),
                                 "select * from zar_nothing", QString()}));
}

void TestRepository::driverChoice()
{
    qputenv("PARCELWISE_ODBC_DRIVER", "ODBC Driver 18 for SQL Server");
    QCOMPARE(repo::sqlServerDriver(), QStringLiteral("ODBC Driver 18 for SQL Server"));
    qunsetenv("PARCELWISE_ODBC_DRIVER");
#ifndef Q_OS_WIN
    if (QSettings().value("odbc/driver").toString().isEmpty())
        QCOMPARE(repo::sqlServerDriver(), QStringLiteral("FreeTDS"));
#endif
    repo::setEmbeddedDriver(QStringLiteral("SQLite3"));
    QCOMPARE(repo::embeddedDriver(), QStringLiteral("SQLite3"));
    repo::setEmbeddedDriver(QString());
    QCOMPARE(repo::embeddedDriver(), QStringLiteral("QSQLITE"));

    // A read-only URI for names with characters that mean something in a URI.
    QCOMPARE(repo::readOnlyUri("/tmp/a b/c#d?e%f;g.sqlite"),
             QStringLiteral("file:///tmp/a%20b/c%23d%3Fe%25f%3Bg.sqlite?mode=ro"));
    QTemporaryDir odd;
    const QString folder = QDir(odd.path()).filePath("srv #1 %x?");
    QVERIFY(copyFolder(m_demo, folder));
    repo::Connection cn;
    cn.open(suite::connectionText(folder, "ACME"));
    QCOMPARE(cn.execute(suite::documentArchive(1101, "AcmeArchive")).recordCount(), 1);
    QCOMPARE(repo::embeddedDatabaseFile(folder, "acmearchive"), QDir(folder).filePath("AcmeArchive.sqlite"));
    QCOMPARE(repo::embeddedDatabaseFile(folder, "Initech"), QString());
    QCOMPARE(repo::embeddedDatabaseNames(folder),
             QStringList({"Acme", "AcmeArchive", "Globex", "Scratch", "VandelayArchive", "zar_Master"}));
}

QTEST_GUILESS_MAIN(TestRepository)
#include "test_repository.moc"
