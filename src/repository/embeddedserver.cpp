// The embedded server: a folder whose <name>.sqlite files are its databases, read-only, with an
// optional server.ini that lists who may sign in. Statements arrive in T-SQL and are adapted to
// SQLite's dialect just before they run; a three-part name attaches the sibling file.

#include "repository/backend.h"
#include "repository/connection.h"
#include "repository/sqladapt.h"
#include "repository/sqliteblob.h"
#include "repository/statementshapes.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSet>
#include <QSettings>
#include <QSqlQuery>

#include <unordered_map>

namespace repo {

namespace {

const QString kQSqlite = QStringLiteral("QSQLITE");

// The password a server.ini lists for user; false when the user is not listed.
bool listedPassword(QSettings &settings, const QString &user, QString *password)
{
    for (const QString &listed : settings.childKeys()) {
        if (listed.compare(user, Qt::CaseInsensitive) != 0)
            continue;
        const QVariant stored = settings.value(listed);
        // QSettings reads "a,b" as a list; the password is the text as written.
        *password = stored.typeId() == QMetaType::QStringList ? stored.toStringList().join(u',') : stored.toString();
        return true;
    }
    return false;
}

class EmbeddedServer final : public Backend {
public:
    EmbeddedServer(QStringList &errors, const QString &folder) : Backend(errors), m_folder(folder) {}

    ~EmbeddedServer() override;
    void open(const ConnectionString &cs);
    RecordSet execute(const QString &sql) override;
    StreamedRow executeStreamed(const QString &sql) override;

private:
    void checkLogin(const ConnectionString &cs);
    void openFile(const QString &file, const QString &name);
    void openServerCatalogue();
    void attach(const CrossDatabaseName &name);
    QSqlQuery *preparedShape(const ParameterizedStatement &shape);
    bool runShape(const QString &sql, RecordSet *rs);

    QString m_folder;
    bool m_odbcFile = false;  // the file is read through the SQLite ODBC driver
    QSet<QString> m_attached; // databases attached for three-part names, lower case
    // One prepared statement per shape of statement (its text with the compared ids taken out).
    // Translating and compiling the long date statement anew for every document took most of an
    // export's processor time; as SQL Server keeps its plans, the embedded server keeps these
    // until the connection closes. Errors never come from here: a shape that fails to prepare or
    // to run is sent again as written and reports through that path.
    std::unordered_map<QString, std::unique_ptr<QSqlQuery>> m_shapes;
    static constexpr size_t kMaxShapes = 32;
    std::unique_ptr<SqliteBlobReader> m_blobs; // documents' bytes straight from the file
};

EmbeddedServer::~EmbeddedServer()
{
    endStream(); // a blob still open goes before the statements and the connection
}

void EmbeddedServer::checkLogin(const ConnectionString &cs)
{
    const QString ini = QDir(m_folder).filePath(QStringLiteral("server.ini"));
    if (!QFileInfo(ini).isFile())
        return;
    QSettings settings(ini, QSettings::IniFormat);
    if (settings.status() != QSettings::NoError)
        fail(ERR_UNREACHABLE, QStringLiteral("SQL Server does not exist or access denied."));
    QString group;
    for (const QString &g : settings.childGroups())
        if (g.compare(u"logins", Qt::CaseInsensitive) == 0)
            group = g;
    if (group.isEmpty())
        return; // no login list: every login is accepted
    settings.beginGroup(group);
    QString password;
    if (listedPassword(settings, cs.userId, &password) && password == cs.password)
        return;
    fail(ERR_LOGIN_REJECTED, QStringLiteral("Login failed for user '%1'.").arg(cs.userId));
}

void EmbeddedServer::openFile(const QString &file, const QString &name)
{
    const QString driverName = embeddedDriver();
    m_odbcFile = driverName.compare(kQSqlite, Qt::CaseInsensitive) != 0;
    QSqlDatabase db = addDatabase(m_odbcFile ? QStringLiteral("QODBC") : kQSqlite);
    if (m_odbcFile) {
        // The driver takes SQLite URIs, so mode=ro keeps the file untouched; NoCreat guards the rest.
        db.setDatabaseName(
            QStringLiteral("DRIVER={%1};Database=%2;NoCreat=1;Timeout=2000").arg(driverName, readOnlyUri(file)));
    } else {
        db.setDatabaseName(readOnlyUri(file));
        db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY;QSQLITE_OPEN_URI"));
    }
    const auto refuse = [&](const QSqlError &error) {
        DriverFailure f = sqliteFailure(error, true);
        f.description = QStringLiteral("Cannot open database \"%1\" requested by the login. %2").arg(name, f.description);
        fail(f);
    };
    if (!db.open())
        refuse(db.lastError());
    // SQLite opens lazily: a file that is no database shows only when it is read.
    QSqlQuery probe(db);
    if (!probe.exec(QStringLiteral("select count(*) from sqlite_master")))
        refuse(probe.lastError());
    // SQLite's usual page cache, 2 MiB, and no more: the walk reads the same index pages for ten
    // thousand folders, and a smaller cache read them from the file again for every statement;
    // a parallel export's five connections hold 10 MiB at most (documents bypass it).
    probe.exec(QStringLiteral("PRAGMA cache_size = -2048"));
    if (!m_odbcFile)
        m_blobs = std::make_unique<SqliteBlobReader>(db);
}

void EmbeddedServer::openServerCatalogue()
{
    // The server's own catalogue: one row per database file, built in memory so nothing is written.
    m_odbcFile = false;
    QSqlDatabase db = addDatabase(kQSqlite);
    db.setDatabaseName(QStringLiteral(":memory:"));
    db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_URI"));
    if (!db.open())
        fail(sqliteFailure(db.lastError(), true));
    QSqlQuery q(db);
    bool ok = q.exec(QStringLiteral("create table sysdatabases (name text collate nocase not null, dbid integer)"));
    int dbid = 0;
    for (const QString &name : embeddedDatabaseNames(m_folder)) {
        if (!ok)
            break;
        q.prepare(QStringLiteral("insert into sysdatabases (name, dbid) values (?, ?)"));
        q.addBindValue(name);
        q.addBindValue(++dbid);
        ok = q.exec();
    }
    if (!ok)
        fail(sqliteFailure(q.lastError(), true));
}

void EmbeddedServer::open(const ConnectionString &cs)
{
    checkLogin(cs);
    const QString catalogue = cs.initialCatalog.trimmed();
    // No catalogue: the login's default database, the server's own.
    const QString wanted = catalogue.isEmpty() ? QStringLiteral("master") : catalogue;
    const QString file = embeddedDatabaseFile(m_folder, wanted);
    if (!file.isEmpty())
        openFile(file, wanted);
    else if (wanted.compare(u"master", Qt::CaseInsensitive) == 0)
        openServerCatalogue();
    else
        fail(ERR_UNREACHABLE,
             QStringLiteral("Cannot open database \"%1\" requested by the login. The login failed.").arg(wanted));
}

void EmbeddedServer::attach(const CrossDatabaseName &name)
{
    const QString key = name.database.toLower();
    if (m_attached.contains(key))
        return;
    const QString file = embeddedDatabaseFile(m_folder, name.database);
    if (file.isEmpty())
        fail(ERR_NO_OBJECT, QStringLiteral("Invalid object name '%1'.").arg(name.original));
    QString uri = readOnlyUri(file);
    uri.replace(u'\'', QStringLiteral("''"));
    QString schema = name.database;
    schema.replace(u'"', QStringLiteral("\"\""));
    QSqlQuery q(database());
    if (!q.exec(QStringLiteral("ATTACH DATABASE '%1' AS \"%2\"").arg(uri, schema))) {
        DriverFailure f = sqliteFailure(q.lastError(), false);
        if (f.number == ERR_UNREACHABLE) // the file is there but is no database
            f.number = ERR_NO_OBJECT;
        f.description = QStringLiteral("Invalid object name '%1'. %2").arg(name.original, f.description);
        fail(f);
    }
    m_attached.insert(key);
}

QSqlQuery *EmbeddedServer::preparedShape(const ParameterizedStatement &shape)
{
    const auto found = m_shapes.find(shape.text);
    if (found != m_shapes.end())
        return found->second.get();
    const AdaptedStatement adapted = adaptTSqlForSqlite(shape.text);
    // Each value must land in exactly one place of SQLite's text, or the shape is not used.
    static const QRegularExpression holder(QStringLiteral("\\?(\\d+)"));
    QList<int> seen(shape.values.size() + 1, 0);
    for (auto it = holder.globalMatch(adapted.sql); it.hasNext();) {
        const int number = it.next().captured(1).toInt();
        if (number < 1 || number > shape.values.size() || ++seen[number] > 1)
            return nullptr;
    }
    if (seen.count(1) != shape.values.size())
        return nullptr;
    for (const CrossDatabaseName &name : adapted.crossNames)
        attach(name); // as the statement sent as written would
    auto query = std::make_unique<QSqlQuery>(database());
    query->setForwardOnly(true);
    if (!query->prepare(adapted.sql))
        return nullptr;
    if (m_shapes.size() >= kMaxShapes)
        m_shapes.clear();
    return m_shapes.emplace(shape.text, std::move(query)).first->second.get();
}

// The statement through its prepared shape; false when it has none or it failed there.
bool EmbeddedServer::runShape(const QString &sql, RecordSet *rs)
{
    if (m_odbcFile)
        return false;
    const ParameterizedStatement shape = parameterizeTSql(sql);
    if (shape.values.isEmpty())
        return false;
    QSqlQuery *q = preparedShape(shape);
    if (!q)
        return false;
    for (const qint64 value : shape.values)
        q->addBindValue(value);
    const bool ok = q->exec() && readRows(*q, *rs);
    q->finish();
    if (!ok) {
        m_shapes.erase(shape.text); // sent again as written, which reports the failure
        *rs = RecordSet();
    }
    return ok;
}

RecordSet EmbeddedServer::execute(const QString &sql)
{
    RecordSet rs;
    if (runShape(sql, &rs))
        return rs;
    const AdaptedStatement adapted = adaptTSqlForSqlite(sql);
    for (const CrossDatabaseName &name : adapted.crossNames)
        attach(name);
    return run(adapted.sql, sqliteFailure);
}

// A document's statement is run for where its value lies, and the value is read from there in
// chunks. Anything that way cannot serve (the ODBC driver, an expression, a text value) is read
// the plain way, which also reports every failure.
StreamedRow EmbeddedServer::executeStreamed(const QString &sql)
{
    if (m_blobs && m_blobs->usable()) {
        const ParameterizedStatement shape = parameterizeTSql(sql);
        const QString key = shape.values.isEmpty() ? sql : shape.text;
        const auto adapt = [&] {
            const AdaptedStatement adapted = adaptTSqlForSqlite(key);
            for (const CrossDatabaseName &name : adapted.crossNames)
                attach(name); // as the statement sent as written would
            return adapted.sql;
        };
        StreamedRow row;
        if (m_blobs->stream(*this, key, adapt, shape.values, &row))
            return row;
    }
    return Backend::executeStreamed(sql);
}

} // namespace

std::unique_ptr<Backend> openEmbeddedServer(const ConnectionString &cs, const QString &folder, QStringList &errors)
{
    auto server = std::make_unique<EmbeddedServer>(errors, folder);
    server->open(cs);
    return server;
}

} // namespace repo
