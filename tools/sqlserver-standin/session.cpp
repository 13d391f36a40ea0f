#include "session.h"

#include "batch.h"
#include "dialect.h"
#include "ordering.h"
#include "resultset.h"

#include "errors/hunterr.h"
#include "repository/drivers.h"

#include <QRegularExpression>
#include <QTcpSocket>
#include <QThread>
#include <QtEndian>

#include <cstdio>

namespace standin {

namespace {

constexpr quint16 kSelectCommand = 0xC1;

struct ServerError {
    qint32 number;
    quint8 severity;
    QString text;
};

// A failure of the embedded server as SQL Server words and numbers it.
ServerError serverError(const HuntERR::Error &e)
{
    const QString d = e.description();
    static const QRegularExpression object(QStringLiteral(R"(^(Invalid object name '.*?'\.))"));
    const QRegularExpressionMatch m = object.match(d);
    if (m.hasMatch())
        return {208, 16, m.captured(1)};
    if (d.startsWith(u"Incorrect syntax near"))
        return {102, 15, d};
    if (d.startsWith(u"Invalid column name"))
        return {207, 16, d};
    if (d.startsWith(u"Ambiguous column name"))
        return {209, 16, d};
    if (d.contains(u"is not a recognized built-in function name"))
        return {195, 15, d};
    if (e.number() == repo::ERR_COMMAND)
        return {102, 15, d};
    return {50000, 16, d};
}

QString utf16(const QByteArray &payload, int offset, int chars)
{
    if (offset < 0 || chars <= 0 || offset + 2 * chars > payload.size())
        return {};
    QString s(chars, Qt::Uninitialized);
    for (int i = 0; i < chars; ++i)
        s[i] = QChar(qFromLittleEndian<quint16>(payload.constData() + offset + 2 * i));
    return s;
}

// Login7's offset/length pair number index, as text; the password is unscrambled.
QString loginField(const QByteArray &payload, int index, bool password = false)
{
    const int at = 36 + 4 * index;
    if (payload.size() < at + 4)
        return {};
    const int offset = qFromLittleEndian<quint16>(payload.constData() + at);
    const int chars = qFromLittleEndian<quint16>(payload.constData() + at + 2);
    if (!password)
        return utf16(payload, offset, chars);
    QByteArray clear = payload.mid(offset, 2 * chars);
    for (char &c : clear) {
        const quint8 x = quint8(c) ^ 0xA5;
        c = char(quint8((x << 4) | (x >> 4)));
    }
    return utf16(clear, 0, chars);
}

// An ADO-style value that may hold ";" or quotes.
QString quoted(const QString &value)
{
    QString v = value;
    v.replace(u'"', QStringLiteral("\"\""));
    return u'"' + v + u'"';
}

} // namespace

bool Session::openDatabase(repo::Connection &db, const QString &database)
{
    try {
        db.open(QStringLiteral("Data Source=%1;User ID=%2;Password=%3;Initial Catalog=%4")
                    .arg(quoted(m_options.folder), quoted(m_user), quoted(m_password), quoted(database)));
        return true;
    } catch (const HuntERR::Error &) {
        return false;
    }
}

bool Session::login(const QByteArray &payload, TokenWriter &out)
{
    m_user = loginField(payload, 1);
    m_password = loginField(payload, 2, true);
    const QString requested = loginField(payload, 8);
    const quint32 packetSize = payload.size() >= 12 ? qFromLittleEndian<quint32>(payload.constData() + 8) : 0;
    if (packetSize >= 512 && packetSize <= 32767)
        m_packetSize = int(packetSize);
    log(QStringLiteral("login user=%1 database=%2 packet=%3").arg(m_user, requested).arg(m_packetSize));

    const QString database = requested.isEmpty() ? QStringLiteral("master") : requested;
    const QString failed = QStringLiteral("Login failed for user '%1'.").arg(m_user);
    // The password first, as SQL Server does: the master catalogue always opens.
    auto probe = std::make_unique<repo::Connection>();
    if (!openDatabase(*probe, QStringLiteral("master"))) {
        out.message(true, 18456, 1, 14, failed);
        out.done(kDoneError, 0, 0);
        return false;
    }
    m_db = std::make_unique<repo::Connection>();
    if (!openDatabase(*m_db, database)) {
        out.message(true, 4060, 1, 11,
                    QStringLiteral("Cannot open database \"%1\" requested by the login. The login failed.").arg(database));
        out.message(true, 18456, 1, 14, failed);
        out.done(kDoneError, 0, 0);
        return false;
    }
    m_database = database;
    out.envChange(1, database, QStringLiteral("master"));
    out.message(false, 5701, 2, 0, QStringLiteral("Changed database context to '%1'.").arg(database));
    out.envChange(2, QStringLiteral("us_english"), QString());
    out.message(false, 5703, 1, 0, QStringLiteral("Changed language setting to us_english."));
    out.collationChange();
    out.loginAck();
    out.envChange(4, QString::number(m_packetSize), QStringLiteral("4096"));
    out.done(kDoneFinal, 0, 0);
    return true;
}

void Session::run()
{
    quint8 type = 0;
    QByteArray payload;
    bool loginOnly = false;
    if (!readMessage(type, payload) || type != kPreLogin || !preLogin(payload, loginOnly))
        return;
    if (!readMessage(type, payload) || type != kLogin7)
        return;
    if (loginOnly) // the login's packet was the one encrypted; the rest goes in the clear
        m_tls.reset();
    // The client's TDS version, 7.1 to 7.4 (older ones are answered as 7.1, newer as 7.4).
    if (payload.size() >= 8)
        m_tds = quint8(qBound(0x71, int(quint8(payload.at(7))), 0x74));
    TokenWriter loginReply;
    loginReply.tds = m_tds;
    const bool in = login(payload, loginReply);
    if (!reply(loginReply.data) || !in)
        return;
    while (readMessage(type, payload)) {
        TokenWriter out;
        out.tds = m_tds;
        if (type == kSqlBatch) {
            // From 7.2 on, ALL_HEADERS comes first, led by its own length.
            const quint32 headers =
                payload.size() >= 4 && m_tds >= 0x72 ? qFromLittleEndian<quint32>(payload.constData()) : 0;
            const qsizetype skip = headers <= quint32(payload.size()) ? headers : 0;
            const QString text = utf16(payload, int(skip), int((payload.size() - skip) / 2));
            log(QStringLiteral("batch: %1").arg(QString(text).replace(u'\n', u' ')));
            if (!m_options.stallOn.isEmpty() && text.contains(m_options.stallOn)) {
                log(QStringLiteral("batch left unanswered: %1").arg(text));
                continue;
            }
            batch(text, out);
        } else if (type == kAttention) {
            log(QStringLiteral("attention"));
            out.done(kDoneAttention, 0, 0);
        } else if (type == kRpc) {
            rpc(payload, out);
        } else {
            log(QStringLiteral("request of type %1 refused").arg(type));
            out.message(true, 2812, 62, 16, QStringLiteral("Could not find stored procedure ''."));
            out.done(kDoneError, 0, 0);
        }
        if (!reply(out.data))
            return;
    }
}

void Session::batch(const QString &text, TokenWriter &out)
{
    log(QStringLiteral("batch: %1").arg(text));
    const QStringList statements = splitBatch(text);
    if (statements.isEmpty())
        out.done(kDoneFinal, 0, 0);
    // One DONE each, "more" on all but the last; a failure ends the batch.
    for (qsizetype i = 0; i < statements.size(); ++i) {
        const bool last = i + 1 == statements.size();
        if (!sessionStatement(statements.at(i), last, &out) && !repositoryStatement(statements.at(i), last, out))
            return;
    }
}

void Session::useDatabase(const QString &name, bool last, TokenWriter &out)
{
    const quint16 more = last ? kDoneFinal : kDoneMore;
    auto db = std::make_unique<repo::Connection>();
    if (!repo::embeddedDatabaseFile(m_options.folder, name).isEmpty()
        || name.compare(u"master", Qt::CaseInsensitive) == 0) {
        if (openDatabase(*db, name)) {
            out.envChange(1, name, m_database);
            out.message(false, 5701, 1, 0, QStringLiteral("Changed database context to '%1'.").arg(name));
            out.done(more, 0, 0);
            m_db = std::move(db);
            m_database = name;
            return;
        }
    }
    out.message(true, 911, 1, 16,
                QStringLiteral("Database '%1' does not exist. Make sure that the name is entered correctly.").arg(name));
    out.done(more | kDoneError, 0, 0);
}

bool Session::sessionStatement(const QString &text, bool last, TokenWriter *out)
{
    using RE = QRegularExpression;
    static const RE textSize(QStringLiteral(R"(^SET\s+TEXTSIZE\s+(-?\d+)\s*;?$)"), RE::CaseInsensitiveOption);
    static const RE set(QStringLiteral(R"(^SET\s+\w+(\s+[\w\-+]+)*\s*;?$)"), RE::CaseInsensitiveOption);
    static const RE use(QStringLiteral(R"(^USE\s+(?:\[(.+)\]|(\S+))\s*;?$)"), RE::CaseInsensitiveOption);
    static const RE variable(QStringLiteral(R"(^SELECT\s+@@(spid|version|servername|textsize)(?:\s+(?:AS\s+)?(\w+))?\s*;?$)"),
                             RE::CaseInsensitiveOption);
    // Whether the session is encrypted throughout ("TRUE"; the login only, or not at all: "FALSE").
    static const RE encrypted(QStringLiteral(R"(^SELECT\s+encrypt_option\s+FROM\s+sys\.dm_exec_connections\s+WHERE\s+)"
                                             R"(session_id\s*=\s*@@SPID\s*;?$)"),
                              RE::CaseInsensitiveOption);
    if (encrypted.match(text).hasMatch()) {
        if (out) {
            const QVariant value = m_tls ? QStringLiteral("TRUE") : QStringLiteral("FALSE");
            const QList<ResultColumn> columns = typeColumns({QStringLiteral("encrypt_option")}, {QVariantList{value}});
            writeColumns(*out, columns);
            writeRow(*out, columns, {value}, m_textSize);
            out->done((last ? kDoneFinal : kDoneMore) | kDoneCount, kSelectCommand, 1);
        }
        return true;
    }
    const QRegularExpressionMatch size = textSize.match(text);
    const QRegularExpressionMatch database = use.match(text);
    const QRegularExpressionMatch probe = variable.match(text);
    if (!size.hasMatch() && !set.match(text).hasMatch() && !database.hasMatch() && !probe.hasMatch())
        return false;
    if (!out)
        return true;
    const quint16 more = last ? kDoneFinal : kDoneMore;
    if (size.hasMatch()) {
        const qint64 n = size.captured(1).toLongLong();
        // 0 brings back the default; SQL Server takes at most 2147483647.
        m_textSize = n <= 0 ? 4096 : qMin<qint64>(n, 2147483647);
        out->done(more, 0, 0);
    } else if (database.hasMatch()) {
        useDatabase(database.captured(1).isEmpty() ? database.captured(2) : database.captured(1), last, *out);
    } else if (probe.hasMatch()) {
        const QString name = probe.captured(1).toLower();
        QVariant value;
        if (name == u"spid")
            value = int(m_spid);
        else if (name == u"textsize")
            value = int(m_textSize);
        else if (name == u"servername")
            value = serverName();
        else
            value = QStringLiteral("Microsoft SQL Server 2022 (RTM) - 16.0.1000.6 (X64) (Parcelwise stand-in)");
        const QList<ResultColumn> columns = typeColumns({probe.captured(2)}, {QVariantList{value}});
        writeColumns(*out, columns);
        writeRow(*out, columns, {value}, m_textSize);
        out->done(more | kDoneCount, kSelectCommand, 1);
    } else {
        out->done(more, 0, 0); // other SET options change nothing the repository's statements see
    }
    return true;
}

bool Session::repositoryStatement(const QString &text, bool last, TokenWriter &out)
{
    const Refusal refused = sqliteOnlySyntax(text);
    if (refused.number != 0) {
        log(QStringLiteral("error %1: %2").arg(refused.number).arg(refused.text));
        out.message(true, refused.number, 1, 15, refused.text);
        out.done(kDoneError, 0, 0);
        return false;
    }
    try {
        repo::RecordSet rs = m_db->execute(text);
        const quint16 more = last ? kDoneFinal : kDoneMore;
        if (!rs.isOpen()) {
            out.done(more, 0, 0);
            return true;
        }
        const QStringList names = rs.fieldNames();
        QList<QVariantList> rows;
        rows.reserve(rs.recordCount());
        for (; !rs.eof(); rs.moveNext()) {
            QVariantList row;
            for (int c = 0; c < names.size(); ++c)
                row << rs.valueAt(c);
            rows << row;
        }
        orderAsServer(text, names, rows, m_options.shuffleSeed);
        TypeFailure misfit;
        const QList<ResultColumn> columns = typeColumns(names, rows, sourceColumns(text, names), &misfit);
        if (misfit.number != 0) { // as the server would have refused to store it
            log(QStringLiteral("error %1: %2").arg(misfit.number).arg(misfit.text));
            out.message(true, misfit.number, 1, 16, misfit.text);
            out.done(kDoneError, 0, 0);
            return false;
        }
        writeColumns(out, columns);
        for (const QVariantList &row : std::as_const(rows))
            writeRow(out, columns, row, m_textSize);
        out.done(more | kDoneCount, kSelectCommand, quint64(rows.size()));
        return true;
    } catch (const HuntERR::Error &e) {
        const ServerError error = serverError(e);
        log(QStringLiteral("error %1: %2").arg(error.number).arg(error.text));
        out.message(true, error.number, 1, error.severity, error.text);
        out.done(kDoneError, 0, 0);
        return false;
    }
}

} // namespace standin
