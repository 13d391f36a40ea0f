#include "repository/connection.h"

#include "repository/drivers.h"
#include "repository/sqladapt.h"
#include "repository/statementshapes.h"

#include <QAtomicInt>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QRegularExpression>
#include <QSet>
#include <QSettings>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QSqlRecord>

#include <unordered_map>

namespace repo {

namespace {

// ADO's own error numbers for misuse of its objects.
constexpr qint32 adErrObjectClosed = 3704;
constexpr qint32 adErrObjectOpen = 3705;
constexpr qint32 adErrProviderNotFound = 3706;
constexpr qint32 adErrInvalidConnection = 3709;

const QString kQSqlite = QStringLiteral("QSQLITE");
// Where the errors say they come from, as the data-access layer names itself.
const QString kProvider = QStringLiteral("Microsoft OLE DB Provider for SQL Server");
const QString kAdoConnection = QStringLiteral("ADODB.Connection");
const QString kAdoRecordset = QStringLiteral("ADODB.Recordset");

QString &traceFileSetting()
{
    static QString path = qEnvironmentVariable("PARCELWISE_TRACE_SQL");
    return path;
}

QString &embeddedDriverSetting()
{
    static QString driver = [] {
        const QString env = qEnvironmentVariable("PARCELWISE_EMBEDDED_DRIVER").trimmed();
        if (env.isEmpty() || env.compare(kQSqlite, Qt::CaseInsensitive) == 0)
            return kQSqlite;
        if (env.compare(u"odbc", Qt::CaseInsensitive) == 0)
            return QStringLiteral("SQLite3");
        return env; // the name of another SQLite ODBC driver
    }();
    return driver;
}

void traceStatement(const QString &sql)
{
    const QString path = traceFile();
    if (path.isEmpty())
        return;
    QFile f(path);
    if (f.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text)) {
        f.write(sql.toUtf8());
        f.write("\n");
    }
}

QString newConnectionName()
{
    static QAtomicInt counter;
    return QStringLiteral("parcelwise-connection-%1").arg(counter.fetchAndAddRelaxed(1) + 1);
}

// Closes and forgets a Qt connection; every handle on it must be gone first.
void dropQtConnection(QString &name)
{
    if (name.isEmpty())
        return;
    {
        QSqlDatabase db = QSqlDatabase::database(name, false);
        if (db.isOpen())
            db.close();
    }
    QSqlDatabase::removeDatabase(name);
    name.clear();
}

// Every row of an executed statement into the record set; false when the driver failed on the way.
bool readRows(QSqlQuery &q, RecordSet &rs)
{
    if (!q.isSelect())
        return true;
    const QSqlRecord record = q.record();
    QStringList names;
    names.reserve(record.count());
    for (int c = 0; c < record.count(); ++c)
        names << record.fieldName(c);
    rs.setFields(names);
    const int columns = int(names.size());
    while (q.next()) {
        QVariantList row;
        row.reserve(columns);
        for (int c = 0; c < columns; ++c)
            row.append(q.isNull(c) ? QVariant() : q.value(c));
        rs.appendRow(std::move(row));
    }
    return !q.lastError().isValid();
}

} // namespace

// --- ConnectionString --------------------------------------------------------------------

ConnectionString ConnectionString::parse(const QString &text)
{
    ConnectionString cs;
    const qsizetype n = text.size();
    qsizetype i = 0;
    while (i < n) {
        const qsizetype eq = text.indexOf(u'=', i);
        const qsizetype semi = text.indexOf(u';', i);
        if (eq < 0)
            break;
        if (semi >= 0 && semi < eq) { // a fragment without "=": nothing to take from it
            i = semi + 1;
            continue;
        }
        const QString key = text.mid(i, eq - i).simplified().toLower();
        i = eq + 1;
        while (i < n && text.at(i) == u' ')
            ++i;

        QString value;
        bool quoted = false;
        if (i < n && (text.at(i) == u'"' || text.at(i) == u'\'')) {
            // A quoted value may hold ";"; a doubled quote stands for itself.
            const QChar q = text.at(i);
            QString inner;
            qsizetype j = i + 1;
            bool closed = false;
            while (j < n) {
                if (text.at(j) == q) {
                    if (j + 1 < n && text.at(j + 1) == q) {
                        inner += q;
                        j += 2;
                        continue;
                    }
                    closed = true;
                    ++j;
                    break;
                }
                inner += text.at(j++);
            }
            qsizetype k = j;
            while (k < n && text.at(k) == u' ')
                ++k;
            if (closed && (k >= n || text.at(k) == u';')) {
                value = inner;
                quoted = true;
                i = k + 1;
            }
        }
        if (!quoted) {
            const qsizetype end = text.indexOf(u';', i);
            value = text.mid(i, (end < 0 ? n : end) - i).trimmed();
            i = end < 0 ? n : end + 1;
        }

        if (key == u"data source" || key == u"server" || key == u"address" || key == u"addr"
            || key == u"network address")
            cs.dataSource = value;
        else if (key == u"initial catalog" || key == u"database")
            cs.initialCatalog = value;
        else if (key == u"user id" || key == u"uid" || key == u"user")
            cs.userId = value;
        else if (key == u"password" || key == u"pwd")
            cs.password = value;
        else if (key == u"provider")
            cs.provider = value;
    }
    return cs;
}

// --- RecordSet ---------------------------------------------------------------------------

struct RecordSet::Data : QSharedData {
    bool open = false;
    QStringList names;
    QHash<QString, int> index; // lower-case name -> column, first of equal names
    QList<QVariantList> rows;
    qsizetype pos = 0;

    int column(const QString &field) const
    {
        const QString key = field.trimmed().toLower();
        const auto it = index.constFind(key);
        if (it != index.constEnd())
            return it.value();
        // Some drivers hand back "a.rec_id" where SQL Server says "rec_id".
        for (int c = 0; c < names.size(); ++c) {
            const QString &name = names.at(c);
            const qsizetype dot = name.lastIndexOf(u'.');
            if (dot >= 0 && name.mid(dot + 1).compare(key, Qt::CaseInsensitive) == 0)
                return c;
        }
        return -1;
    }
};

RecordSet::RecordSet() : d(new Data) {}
RecordSet::RecordSet(const RecordSet &) = default;
RecordSet &RecordSet::operator=(const RecordSet &) = default;
RecordSet::~RecordSet() = default;

bool RecordSet::isOpen() const
{
    return d->open;
}

void RecordSet::close()
{
    d = QSharedDataPointer<Data>(new Data);
}

int RecordSet::recordCount() const
{
    return d->open ? int(d->rows.size()) : 0;
}

bool RecordSet::eof() const
{
    return !d->open || d->pos >= d->rows.size();
}

void RecordSet::moveFirst()
{
    if (!d->open)
        HuntERR::raise(adErrObjectClosed, QStringLiteral("Operation is not allowed when the object is closed."),
                       kAdoRecordset);
    d->pos = 0;
}

void RecordSet::moveNext()
{
    if (!d->open)
        HuntERR::raise(adErrObjectClosed, QStringLiteral("Operation is not allowed when the object is closed."),
                       kAdoRecordset);
    if (d->pos >= d->rows.size())
        HuntERR::raise(HuntERR::ERR_NO_CURRENT_RECORD,
                       QStringLiteral("Either BOF or EOF is True, or the current record has been deleted. "
                                      "Requested operation requires a current record."),
                       kAdoRecordset);
    ++d->pos;
}

QVariant RecordSet::value(const QString &field) const
{
    if (!d->open)
        HuntERR::raise(adErrObjectClosed, QStringLiteral("Operation is not allowed when the object is closed."),
                       kAdoRecordset);
    const int c = d->column(field);
    if (c < 0)
        HuntERR::raise(HuntERR::ERR_ITEM_NOT_FOUND,
                       QStringLiteral("Item cannot be found in the collection corresponding to the requested name "
                                      "or ordinal."),
                       kAdoRecordset);
    if (d->pos < 0 || d->pos >= d->rows.size())
        HuntERR::raise(HuntERR::ERR_NO_CURRENT_RECORD,
                       QStringLiteral("Either BOF or EOF is True, or the current record has been deleted. "
                                      "Requested operation requires a current record."),
                       kAdoRecordset);
    return d->rows.at(d->pos).value(c);
}

bool RecordSet::isNull(const QString &field) const
{
    return value(field).isNull();
}

QString RecordSet::text(const QString &field) const
{
    const QVariant v = value(field);
    return v.isNull() ? QString() : v.toString();
}

QStringList RecordSet::fieldNames() const
{
    return d->names;
}

QVariant RecordSet::valueAt(int column) const
{
    if (!d->open || d->pos < 0 || d->pos >= d->rows.size())
        return {};
    return d->rows.at(d->pos).value(column);
}

void RecordSet::setFields(const QStringList &names)
{
    d->open = true;
    d->names = names;
    d->index.clear();
    for (int c = 0; c < names.size(); ++c) {
        const QString key = names.at(c).toLower();
        if (!d->index.contains(key))
            d->index.insert(key, c);
    }
    d->rows.clear();
    d->pos = 0;
}

void RecordSet::appendRow(QVariantList row)
{
    d->rows.append(std::move(row));
}

// --- Connection --------------------------------------------------------------------------

struct Connection::Impl {
    int state = adStateClosed;
    QString qtName;         // the Qt connection of this object
    bool embedded = false;
    bool odbcFile = false;  // the embedded file is read through ODBC
    QString folder;         // embedded server folder
    QSet<QString> attached; // databases attached for three-part names, lower case
    QStringList errors;     // messages of the last failure (ADO's Errors collection)
    // Embedded server: one prepared statement per shape of statement (its text with the compared
    // ids taken out). Translating and compiling the long date statement anew for every document
    // took most of an export's processor time; as SQL Server keeps its plans, the embedded server
    // keeps these until the connection closes. Errors never come from here: a shape that fails to
    // prepare or to run is sent again as written and reports through that path.
    std::unordered_map<QString, std::unique_ptr<QSqlQuery>> shapes;
    static constexpr size_t kMaxShapes = 32;

    [[noreturn]] void fail(qint32 number, const QString &description, const QStringList &messages = {})
    {
        errors = messages.isEmpty() ? QStringList{description} : messages;
        HuntERR::raise(number, description, kProvider);
    }
    [[noreturn]] void fail(const DriverFailure &f) { fail(f.number, f.description, f.messages); }
    [[noreturn]] void failOpen(const DriverFailure &f)
    {
        dropQtConnection(qtName);
        fail(f);
    }

    QSqlDatabase database() const { return QSqlDatabase::database(qtName, false); }

    void openSqlServer(const ConnectionString &cs);
    void openEmbedded(const ConnectionString &cs, const QString &folderPath);
    void checkLogin(const ConnectionString &cs);
    void openFile(const QString &file, const QString &name);
    void openServerCatalogue();
    void attach(const CrossDatabaseName &name);
    QSqlQuery *preparedShape(const ParameterizedStatement &shape);
    DriverFailure failure(const QSqlError &e, bool connecting) const
    {
        return embedded ? sqliteFailure(e, connecting) : sqlServerFailure(e, connecting);
    }
};

void Connection::Impl::openSqlServer(const ConnectionString &cs)
{
    embedded = false;
    const QString driver = sqlServerDriver();
    qtName = newConnectionName();
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QODBC"), qtName);
        if (!db.isValid()) {
            db = QSqlDatabase();
            dropQtConnection(qtName);
            errors = {QStringLiteral("Provider cannot be found. It may not be properly installed.")};
            HuntERR::raise(adErrProviderNotFound, errors.first(), kAdoConnection);
        }
        db.setDatabaseName(sqlServerOdbcText(cs, driver));
        // An unreachable server should not keep the window blocked for long.
        db.setConnectOptions(QStringLiteral("SQL_ATTR_LOGIN_TIMEOUT=5"));
        if (!db.open()) {
            const DriverFailure f = sqlServerFailure(db.lastError(), true);
            db = QSqlDatabase();
            failOpen(f);
        }
    }
}

void Connection::Impl::checkLogin(const ConnectionString &cs)
{
    const QString ini = QDir(folder).filePath(QStringLiteral("server.ini"));
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
    for (const QString &user : settings.childKeys()) {
        if (user.compare(cs.userId, Qt::CaseInsensitive) != 0)
            continue;
        const QVariant stored = settings.value(user);
        // QSettings reads "a,b" as a list; the password is the text as written.
        const QString password = stored.typeId() == QMetaType::QStringList ? stored.toStringList().join(u',')
                                                                            : stored.toString();
        if (password == cs.password)
            return;
    }
    fail(ERR_LOGIN_REJECTED, QStringLiteral("Login failed for user '%1'.").arg(cs.userId));
}

void Connection::Impl::openFile(const QString &file, const QString &name)
{
    const QString driverName = embeddedDriver();
    odbcFile = driverName.compare(kQSqlite, Qt::CaseInsensitive) != 0;
    qtName = newConnectionName();
    {
        QSqlDatabase db;
        if (odbcFile) {
            db = QSqlDatabase::addDatabase(QStringLiteral("QODBC"), qtName);
            // The driver takes SQLite URIs, so mode=ro keeps the file untouched; NoCreat guards the rest.
            db.setDatabaseName(QStringLiteral("DRIVER={%1};Database=%2;NoCreat=1;Timeout=2000")
                                   .arg(driverName, readOnlyUri(file)));
        } else {
            db = QSqlDatabase::addDatabase(kQSqlite, qtName);
            db.setDatabaseName(readOnlyUri(file));
            db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY;QSQLITE_OPEN_URI"));
        }
        if (!db.isValid()) {
            db = QSqlDatabase();
            dropQtConnection(qtName);
            errors = {QStringLiteral("Provider cannot be found. It may not be properly installed.")};
            HuntERR::raise(adErrProviderNotFound, errors.first(), kAdoConnection);
        }
        if (!db.open()) {
            DriverFailure f = sqliteFailure(db.lastError(), true);
            f.description = QStringLiteral("Cannot open database \"%1\" requested by the login. %2")
                                .arg(name, f.description);
            db = QSqlDatabase();
            failOpen(f);
        }
        // SQLite opens lazily: a file that is no database shows only when it is read.
        QSqlQuery probe(db);
        if (!probe.exec(QStringLiteral("select count(*) from sqlite_master"))) {
            DriverFailure f = sqliteFailure(probe.lastError(), true);
            f.description = QStringLiteral("Cannot open database \"%1\" requested by the login. %2")
                                .arg(name, f.description);
            probe = QSqlQuery();
            db = QSqlDatabase();
            failOpen(f);
        }
    }
}

void Connection::Impl::openServerCatalogue()
{
    // The server's own catalogue: one row per database file, built in memory so nothing is written.
    odbcFile = false;
    qtName = newConnectionName();
    QSqlDatabase db = QSqlDatabase::addDatabase(kQSqlite, qtName);
    db.setDatabaseName(QStringLiteral(":memory:"));
    db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_URI"));
    if (!db.open()) {
        const DriverFailure f = sqliteFailure(db.lastError(), true);
        db = QSqlDatabase();
        failOpen(f);
    }
    QSqlQuery q(db);
    bool ok = q.exec(QStringLiteral("create table sysdatabases (name text collate nocase not null, dbid integer)"));
    int dbid = 0;
    for (const QString &name : embeddedDatabaseNames(folder)) {
        if (!ok)
            break;
        q.prepare(QStringLiteral("insert into sysdatabases (name, dbid) values (?, ?)"));
        q.addBindValue(name);
        q.addBindValue(++dbid);
        ok = q.exec();
    }
    if (!ok) {
        const DriverFailure f = sqliteFailure(q.lastError(), true);
        q = QSqlQuery();
        db = QSqlDatabase();
        failOpen(f);
    }
}

void Connection::Impl::openEmbedded(const ConnectionString &cs, const QString &folderPath)
{
    embedded = true;
    folder = folderPath;
    checkLogin(cs);
    const QString catalogue = cs.initialCatalog.trimmed();
    // No catalogue: the login's default database, the server's own.
    const QString wanted = catalogue.isEmpty() ? QStringLiteral("master") : catalogue;
    const QString file = embeddedDatabaseFile(folder, wanted);
    if (!file.isEmpty())
        openFile(file, wanted);
    else if (wanted.compare(u"master", Qt::CaseInsensitive) == 0)
        openServerCatalogue();
    else
        fail(ERR_UNREACHABLE,
             QStringLiteral("Cannot open database \"%1\" requested by the login. The login failed.").arg(wanted));
}

void Connection::Impl::attach(const CrossDatabaseName &name)
{
    const QString key = name.database.toLower();
    if (attached.contains(key))
        return;
    const QString file = embeddedDatabaseFile(folder, name.database);
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
    attached.insert(key);
}

QSqlQuery *Connection::Impl::preparedShape(const ParameterizedStatement &shape)
{
    const auto found = shapes.find(shape.text);
    if (found != shapes.end())
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
    if (shapes.size() >= kMaxShapes)
        shapes.clear();
    return shapes.emplace(shape.text, std::move(query)).first->second.get();
}

Connection::Connection() : d(std::make_unique<Impl>()) {}

Connection::~Connection()
{
    close();
}

int Connection::state() const
{
    return d->state;
}

bool Connection::isEmbedded() const
{
    return d->embedded;
}

void Connection::open(const QString &connectionText)
{
    if (d->state != adStateClosed)
        HuntERR::raise(adErrObjectOpen, QStringLiteral("Operation is not allowed when the object is open."),
                       kAdoConnection);
    if (!connectionText.isEmpty())
        connectionString = connectionText;
    d->errors.clear();
    d->attached.clear();
    d->embedded = false;
    d->odbcFile = false;

    const ConnectionString cs = ConnectionString::parse(connectionString);
    const QString source = cs.dataSource.trimmed();
    const QFileInfo server(source);
    if (!source.isEmpty() && server.isDir())
        d->openEmbedded(cs, server.absoluteFilePath());
    else if (looksLikeFolderPath(source))
        d->fail(ERR_UNREACHABLE, QStringLiteral("SQL Server does not exist or access denied."));
    else
        d->openSqlServer(cs);
    d->state = adStateOpen;
}

void Connection::close()
{
    d->shapes.clear(); // the statements hold the Qt connection
    dropQtConnection(d->qtName);
    d->attached.clear();
    d->state = adStateClosed;
}

RecordSet Connection::execute(const QString &sql)
{
    if (d->state != adStateOpen)
        HuntERR::raise(adErrInvalidConnection,
                       QStringLiteral("The connection cannot be used to perform this operation. It is either closed "
                                      "or invalid in this context."),
                       kAdoConnection);
    traceStatement(sql);
    d->errors.clear();

    if (d->embedded && !d->odbcFile) {
        const ParameterizedStatement shape = parameterizeTSql(sql);
        if (!shape.values.isEmpty()) {
            if (QSqlQuery *q = d->preparedShape(shape)) {
                for (const qint64 value : shape.values)
                    q->addBindValue(value);
                RecordSet rs;
                const bool ok = q->exec() && readRows(*q, rs);
                q->finish();
                if (ok)
                    return rs;
                d->shapes.erase(shape.text); // sent again as written below, which reports the failure
            }
        }
    }

    QString statement = sql;
    if (d->embedded) {
        const AdaptedStatement adapted = adaptTSqlForSqlite(sql);
        for (const CrossDatabaseName &name : adapted.crossNames)
            d->attach(name);
        statement = adapted.sql;
    }

    RecordSet rs;
    DriverFailure failure;
    {
        QSqlQuery q(d->database());
        // Forward only: the driver keeps one row, so a document's bytes exist once, in the record set.
        q.setForwardOnly(true);
        if (!q.exec(statement) || !readRows(q, rs))
            failure = d->failure(q.lastError(), false);
        q.finish();
    }
    if (failure.number != 0)
        d->fail(failure);
    return rs;
}

QStringList Connection::errorDescriptions() const
{
    return d->errors;
}

void Connection::rollbackTrans()
{
    if (d->state != adStateOpen)
        HuntERR::raise(adErrInvalidConnection,
                       QStringLiteral("The connection cannot be used to perform this operation. It is either closed "
                                      "or invalid in this context."),
                       kAdoConnection);
    // The tool never begins a transaction, so there is never one to roll back.
    HuntERR::raise(HuntERR::ERR_NOT_PASSED_ON, QStringLiteral("No transaction is active."), kProvider);
}

// --- Settings ------------------------------------------------------------------------------

void setTraceFile(const QString &path)
{
    traceFileSetting() = path;
}

QString traceFile()
{
    return traceFileSetting();
}

QString sqlServerDriver()
{
    const QString env = qEnvironmentVariable("PARCELWISE_ODBC_DRIVER").trimmed();
    if (!env.isEmpty())
        return env;
    const QString setting = QSettings().value(QStringLiteral("odbc/driver")).toString().trimmed();
    if (!setting.isEmpty())
        return setting;
#ifdef Q_OS_WIN
    return QStringLiteral("SQL Server");
#else
    return QStringLiteral("FreeTDS");
#endif
}

QString embeddedDriver()
{
    return embeddedDriverSetting();
}

void setEmbeddedDriver(const QString &driver)
{
    const QString d = driver.trimmed();
    embeddedDriverSetting() = d.isEmpty() ? kQSqlite : d;
}

} // namespace repo
