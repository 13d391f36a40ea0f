#include "repository/drivers.h"

#include "errors/hunterr.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSettings>
#include <QUrl>

namespace repo {

QString odbcValue(const QString &value)
{
    static const QRegularExpression special(QStringLiteral(R"([;{}=]|^\s|\s$)"));
    if (!value.contains(special))
        return value;
    QString v = value;
    v.replace(u'}', QStringLiteral("}}"));
    return u'{' + v + u'}';
}

ServerAddress serverAddress(const QString &dataSource)
{
    ServerAddress a;
    QString server = dataSource.trimmed();
    if (server.startsWith(u"tcp:", Qt::CaseInsensitive))
        server = server.mid(4).trimmed();
    a.host = server;
    const qsizetype comma = server.indexOf(u',');
    if (comma >= 0) {
        a.host = server.left(comma).trimmed();
        a.port = server.mid(comma + 1).trimmed();
    }
    const qsizetype slash = a.host.indexOf(u'\\');
    if (slash >= 0) {
        a.instance = a.host.mid(slash + 1);
        a.host = a.host.left(slash);
    }
    // SQL Server's names for the local machine, which FreeTDS does not know.
    if (a.host == u"." || a.host.compare(u"(local)", Qt::CaseInsensitive) == 0)
        a.host = QStringLiteral("localhost");
    // A bare host is the default instance on SQL Server's own port; an instance is looked up.
    if (a.port.isEmpty() && a.instance.isEmpty())
        a.port = QStringLiteral("1433");
    return a;
}

bool isFreeTds(const QString &driver)
{
    return driver.contains(u"tds", Qt::CaseInsensitive);
}

QString sqlServerOdbcText(const ConnectionString &cs, const QString &driver)
{
    const bool freeTds = isFreeTds(driver);
    QString server = cs.dataSource.trimmed();
    if (server.startsWith(u"tcp:", Qt::CaseInsensitive))
        server = server.mid(4).trimmed();

    QStringList parts;
    parts << QStringLiteral("DRIVER={%1}").arg(driver);
    if (freeTds) {
        // FreeTDS understands neither "host,port" nor a missing port (it does not fall back to 1433).
        const ServerAddress a = serverAddress(server);
        parts << QStringLiteral("Server=") + odbcValue(a.instance.isEmpty() ? a.host : a.host + u'\\' + a.instance);
        if (!a.port.isEmpty())
            parts << QStringLiteral("Port=") + odbcValue(a.port);
    } else {
        parts << QStringLiteral("Server=") + odbcValue(server);
    }
    const QString catalogue = cs.initialCatalog.trimmed();
    if (!catalogue.isEmpty())
        parts << QStringLiteral("Database=") + odbcValue(catalogue);
    parts << QStringLiteral("UID=") + odbcValue(cs.userId);
    parts << QStringLiteral("PWD=") + odbcValue(cs.password);
    if (freeTds) {
        QString version = qEnvironmentVariable("PARCELWISE_TDS_VERSION").trimmed();
        if (version.isEmpty())
            version = QStringLiteral("7.4");
        parts << QStringLiteral("TDS_Version=") + odbcValue(version);
        // SQL Server cuts image, text and varchar(max) values to the session's TEXTSIZE, 4096 bytes
        // unless the client sets it; Microsoft's drivers set it to the largest value when they
        // connect, FreeTDS only when asked. Without this, documents come back cut short.
        parts << QStringLiteral("TextSize=2147483647");
        // A statement the server never answers (a link gone quiet, a server that froze) would wait
        // for ever: FreeTDS gives up after this many seconds and the statement is tried again.
        parts << QStringLiteral("Timeout=%1").arg(statementTimeout());
    }
    QString text = parts.join(u';');
    const QString extra = odbcOptions();
    if (!extra.isEmpty())
        text += u';' + extra;
    return text;
}

QString odbcOptions()
{
    QString options = qEnvironmentVariable("PARCELWISE_ODBC_OPTIONS");
    if (options.trimmed().isEmpty())
        options = QSettings().value(QStringLiteral("odbc/options")).toString();
    options = options.trimmed();
    while (options.startsWith(u';'))
        options = options.mid(1).trimmed();
    while (options.endsWith(u';'))
        options.chop(1);
    return options.trimmed();
}

bool looksLikeFolderPath(const QString &dataSource)
{
    const QString ds = dataSource.trimmed();
    if (ds.isEmpty())
        return false;
    if (ds.contains(u'/') || QDir::isAbsolutePath(ds))
        return true;
    if (ds.startsWith(u'.')) {
        // "." and ".\SQLEXPRESS" are SQL Server's local server, not folders.
        static const QRegularExpression localInstance(QStringLiteral(R"(^\.(\\[A-Za-z0-9_$#]+)?$)"));
        return !localInstance.match(ds).hasMatch();
    }
    return false;
}

QString embeddedDatabaseFile(const QString &folder, const QString &name)
{
    const QString wanted = name.trimmed();
    if (wanted.isEmpty())
        return {};
    const QFileInfoList files = QDir(folder).entryInfoList(QDir::Files | QDir::Readable | QDir::Hidden, QDir::Name);
    for (const QFileInfo &fi : files) {
        const QString fileName = fi.fileName();
        if (!fileName.endsWith(QStringLiteral(".sqlite"), Qt::CaseInsensitive))
            continue;
        if (fileName.chopped(7).compare(wanted, Qt::CaseInsensitive) == 0)
            return fi.absoluteFilePath();
    }
    return {};
}

QStringList embeddedDatabaseNames(const QString &folder)
{
    QStringList names;
    const QFileInfoList files = QDir(folder).entryInfoList(QDir::Files | QDir::Hidden, QDir::Name);
    for (const QFileInfo &fi : files) {
        const QString fileName = fi.fileName();
        if (fileName.size() > 7 && fileName.endsWith(QStringLiteral(".sqlite"), Qt::CaseInsensitive))
            names << fileName.chopped(7);
    }
    return names;
}

QString readOnlyUri(const QString &filePath)
{
    const QString path = QDir::fromNativeSeparators(QFileInfo(filePath).absoluteFilePath());
    // "file:///tmp/x", "file:///C:/x" and, for a share, "file:////server/share/x".
    const QString prefix = path.startsWith(u'/') ? QStringLiteral("file://") : QStringLiteral("file:///");
    // immutable: no locks and no -wal/-shm files, so nothing appears beside the database and a
    // read-only folder (or medium) works, WAL databases included. A write-ahead journal left with
    // pages in it holds data the main file lacks; only then is it read the ordinary way.
    const bool journal = QFileInfo(filePath + QStringLiteral("-wal")).size() > 0;
    return prefix + QString::fromLatin1(QUrl::toPercentEncoding(path, "/:"))
           + (journal ? QStringLiteral("?mode=ro") : QStringLiteral("?mode=ro&immutable=1"));
}

QStringList splitDriverMessages(const QString &text)
{
    static const QRegularExpression prefixes(QStringLiteral(R"((?:\[[^\[\]]*\])+)"));
    QStringList out;
    qsizetype last = 0;
    bool any = false;
    auto it = prefixes.globalMatch(text);
    while (it.hasNext()) {
        const auto m = it.next();
        if (any || m.capturedStart() > 0) {
            const QString piece = text.mid(last, m.capturedStart() - last).trimmed();
            if (!piece.isEmpty())
                out << piece;
        }
        any = true;
        last = m.capturedEnd();
    }
    const QString rest = text.mid(last).trimmed();
    if (!rest.isEmpty())
        out << rest;
    return out;
}

namespace {

QList<int> nativeCodes(const QSqlError &error)
{
    QList<int> codes;
    static const QRegularExpression digits(QStringLiteral(R"(-?\d+)"));
    auto it = digits.globalMatch(error.nativeErrorCode());
    while (it.hasNext())
        codes << it.next().captured(0).toInt();
    return codes;
}

bool anyOf(const QList<int> &codes, std::initializer_list<int> wanted)
{
    for (int c : codes)
        for (int w : wanted)
            if (c == w)
                return true;
    return false;
}

QStringList messagesOf(const QSqlError &error)
{
    QStringList messages = splitDriverMessages(error.databaseText());
    if (messages.isEmpty() && !error.driverText().trimmed().isEmpty())
        messages << error.driverText().trimmed();
    if (messages.isEmpty())
        messages << QStringLiteral("Unspecified error");
    return messages;
}

// The server's own message: the first one that carries a message number. The driver and the driver
// manager add lines of their own, without one, that say less ("Unable to connect to data source"
// before "Login failed for user 'sa'."). Some Qt versions keep only the last record's number, so
// those lines are also known by their texts, the drivers' standard texts for their states.
QString serverMessage(const QStringList &messages, const QList<int> &codes)
{
    if (codes.size() == messages.size()) {
        for (qsizetype i = 0; i < messages.size(); ++i)
            if (codes.at(i) != 0)
                return messages.at(i);
        return messages.first();
    }
    // The standard texts of the drivers' own SQLSTATEs (28000's is "Invalid authorization ..."),
    // matched by their start.
    static const QStringList driverLines = {
        QStringLiteral("Unable to connect to data source"), QStringLiteral("Communication link failure"),
        QStringLiteral("General driver error"), QStringLiteral("General error"),
        QStringLiteral("Invalid authorization"), QStringLiteral("Syntax error or access violation"),
        QStringLiteral("Invalid SQL syntax"), QStringLiteral("Login timeout expired"),
        QStringLiteral("Timeout expired"), QStringLiteral("Operation was cancelled")};
    const auto isDriverLine = [](const QString &m) {
        for (const QString &line : driverLines)
            if (m.startsWith(line, Qt::CaseInsensitive))
                return true;
        return false;
    };
    for (const QString &m : messages)
        if (!isDriverLine(m))
            return m;
    return messages.first();
}

// What the drivers say when the link under a statement broke or went quiet: FreeTDS's own
// numbers (timeout, read, write, unexpected end of file, dead process), the socket resets Windows
// reports, a lost named pipe, and the standard texts of SQLSTATE 08S01 and HYT00/HYT01 (Qt keeps
// no SQLSTATE, and some versions no number).
bool linkFailed(const QStringList &messages, const QList<int> &codes)
{
    if (anyOf(codes, {20003, 20004, 20006, 20017, 20047, 10053, 10054, 233}))
        return true;
    static const QStringList texts = {
        QStringLiteral("Communication link failure"), QStringLiteral("Timeout expired"),
        QStringLiteral("Query timeout expired"),      QStringLiteral("Read from the server failed"),
        QStringLiteral("Write to the server failed"), QStringLiteral("Unexpected EOF from the server"),
        QStringLiteral("TCP Provider:")};
    for (const QString &m : messages)
        for (const QString &t : texts)
            if (m.startsWith(t, Qt::CaseInsensitive))
                return true;
    // FreeTDS's words when a statement fails on a connection whose socket just died and nothing
    // more was recorded (HY000, no server number): no server error ever reads so.
    const bool numbered = std::any_of(codes.cbegin(), codes.cend(), [](int c) { return c != 0; });
    return !numbered && messages.size() == 1 && messages.first() == QLatin1String("Unknown error");
}

} // namespace

DriverFailure sqlServerFailure(const QSqlError &error, bool connecting)
{
    DriverFailure f;
    f.messages = messagesOf(error);
    const QList<int> codes = nativeCodes(error);
    f.description = serverMessage(f.messages, codes);
    // As in ADO's Errors collection, the error raised is the first one listed.
    f.messages.move(f.messages.indexOf(f.description), 0);
    const bool loginText = f.messages.join(u' ').contains(u"Login failed", Qt::CaseInsensitive);

    if (connecting) {
        // 18456 and its relatives: the server was reached and refused the login. A database the
        // login names that cannot be opened (4060, followed by 18456) is access refused, as the
        // embedded server has it. FreeTDS ranks its messages by severity, so 18456 comes first.
        bool noDatabase = anyOf(codes, {4060});
        for (const QString &m : std::as_const(f.messages))
            noDatabase = noDatabase || m.startsWith(u"Cannot open database");
        f.number = !noDatabase && (anyOf(codes, {18456, 18452, 18470, 18486, 18487, 18488}) || loginText)
                       ? ERR_LOGIN_REJECTED
                       : ERR_UNREACHABLE;
        return f;
    }
    if (anyOf(codes, {208}))
        f.number = ERR_NO_OBJECT;
    else if (anyOf(codes, {102, 103, 104, 105, 107, 156, 170, 174, 195, 207, 209, 4104, 8116, 8120, 8127, 1038, 145})
             || f.description.startsWith(u"Incorrect syntax", Qt::CaseInsensitive)
             || f.description.startsWith(u"Invalid column name", Qt::CaseInsensitive))
        f.number = ERR_COMMAND;
    else if (anyOf(codes, {20003, 20004, 20006, 20009, 20017, 20047, 10053, 10054, 233, 4060}) || loginText)
        f.number = loginText ? ERR_LOGIN_REJECTED : ERR_UNREACHABLE;
    else
        f.number = HuntERR::ERR_GENERAL;
    f.broken = !loginText && f.number != ERR_NO_OBJECT && f.number != ERR_COMMAND && linkFailed(f.messages, codes);
    return f;
}

DriverFailure sqliteFailure(const QSqlError &error, bool connecting)
{
    DriverFailure f;
    QStringList messages = messagesOf(error);
    // The SQLite ODBC driver ends its texts with the result code: "no such table: x (1)".
    static const QRegularExpression codeSuffix(QStringLiteral(R"(\s*\(\d+\)$)"));
    for (QString &m : messages)
        m.remove(codeSuffix);
    const QString text = messages.first();
    f.messages = messages;
    f.description = text;

    const QList<int> codes = nativeCodes(error);
    const int primary = codes.isEmpty() ? -1 : (codes.first() & 0xff);
    enum { SQLITE_ERROR_ = 1, SQLITE_PERM_ = 3, SQLITE_IOERR_ = 10, SQLITE_CORRUPT_ = 11, SQLITE_CANTOPEN_ = 14,
           SQLITE_AUTH_ = 23, SQLITE_NOTADB_ = 26 };

    static const QRegularExpression noTable(QStringLiteral(R"(^no such table:\s*(.+)$)"));
    static const QRegularExpression noColumn(QStringLiteral(R"(^no such column:\s*(.+)$)"));
    static const QRegularExpression nearSyntax(QStringLiteral(R"re(^near "(.*)": syntax error$)re"));
    static const QRegularExpression noFunction(QStringLiteral(R"(^no such function:\s*(.+)$)"));
    static const QRegularExpression ambiguous(QStringLiteral(R"(^ambiguous column name:\s*(.+)$)"));

    if (connecting || primary == SQLITE_CORRUPT_ || primary == SQLITE_NOTADB_ || primary == SQLITE_CANTOPEN_
        || primary == SQLITE_IOERR_ || primary == SQLITE_PERM_ || primary == SQLITE_AUTH_) {
        f.number = ERR_UNREACHABLE;
        return f;
    }
    QRegularExpressionMatch m;
    if ((m = noTable.match(text)).hasMatch()) {
        f.number = ERR_NO_OBJECT;
        f.description = QStringLiteral("Invalid object name '%1'.").arg(m.captured(1).trimmed());
    } else if ((m = noColumn.match(text)).hasMatch()) {
        f.number = ERR_COMMAND;
        f.description = QStringLiteral("Invalid column name '%1'.").arg(m.captured(1).trimmed());
    } else if ((m = nearSyntax.match(text)).hasMatch()) {
        f.number = ERR_COMMAND;
        f.description = QStringLiteral("Incorrect syntax near '%1'.").arg(m.captured(1));
    } else if ((m = noFunction.match(text)).hasMatch()) {
        f.number = ERR_COMMAND;
        f.description = QStringLiteral("'%1' is not a recognized built-in function name.").arg(m.captured(1).trimmed());
    } else if ((m = ambiguous.match(text)).hasMatch()) {
        f.number = ERR_COMMAND;
        f.description = QStringLiteral("Ambiguous column name '%1'.").arg(m.captured(1).trimmed());
    } else if (primary == SQLITE_ERROR_) {
        f.number = ERR_COMMAND; // every other error in the text of the statement
    } else {
        f.number = HuntERR::ERR_GENERAL;
    }
    if (f.description != text)
        f.messages.first() = f.description;
    return f;
}

} // namespace repo
