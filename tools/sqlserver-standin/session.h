#pragma once
// One client of the stand-in: pre-login, Login7 and then SQL batches until the client goes away,
// each batch run on the embedded server folder through the project's own connection (and so its
// T-SQL adaptation) and answered as SQL Server answers it. Runs blocking in its own thread.

#include "tdstokens.h"
#include "tlslink.h"

#include "repository/connection.h"

#include <QString>
#include <memory>
#include <optional>

class QTcpSocket;

namespace standin {

struct Options {
    QString folder;     // the embedded server folder
    int latencyMs = 0;  // delay before every reply
    bool log = false;   // every request on stderr
    // Tests: a reply longer than this many bytes is sent only this far, then the connection is
    // dropped, as a server that goes away in the middle of a document (0: never).
    qint64 cutRepliesOver = 0;
    // Tests: a batch holding this text gets no answer (a server gone quiet) until the client
    // cancels it with an attention, which is answered as SQL Server does ("": none).
    QString stallOn;
    // The server's certificate: encryption offered at pre-login (null: not offered).
    std::shared_ptr<SSL_CTX> tls;
    // Rows that tie on the ORDER BY, and results without one, in an order this seed chooses.
    std::optional<quint32> shuffleSeed;
};

class Session {
public:
    Session(qintptr socketDescriptor, const Options &options, quint16 spid);
    ~Session();
    void run();

private:
    bool readMessage(quint8 &type, QByteArray &payload);
    bool reply(const QByteArray &tokens, quint8 type = kReply);
    // The connection's bytes, through TLS once it is on.
    bool readExact(char *to, qint64 size);
    void send(const char *data, qint64 size);
    // Pre-login: the client's request answered and, when encryption was agreed, the handshake.
    // false: the connection ends.
    bool preLogin(const QByteArray &payload, bool &loginOnly);
    bool tlsHandshake();
    // false: the login was refused and the connection ends.
    bool login(const QByteArray &payload, TokenWriter &out);
    void batch(const QString &text, TokenWriter &out);
    void rpc(const QByteArray &payload, TokenWriter &out);
    // A statement FreeTDS, the ODBC layer or a person's session sends that the repository does not
    // hold (SET, USE, @@ probes); false when text is none of them. out null: only tell.
    bool sessionStatement(const QString &text, bool last, TokenWriter *out);
    void useDatabase(const QString &name, bool last, TokenWriter &out);
    // false: it failed (the error is written).
    bool repositoryStatement(const QString &text, bool last, TokenWriter &out);
    bool openDatabase(repo::Connection &db, const QString &database);
    void log(const QString &what) const;

    Options m_options;
    quint16 m_spid;
    std::unique_ptr<QTcpSocket> m_socket;
    std::unique_ptr<repo::Connection> m_db;
    std::unique_ptr<TlsLink> m_tls;
    QByteArray m_plain; // decrypted, not yet read
    QString m_user;
    QString m_password;
    QString m_database;
    qint64 m_textSize = 4096; // a new session's TEXTSIZE
    int m_packetSize = 4096;
    quint8 m_tds = 0x74; // the TDS version agreed at login (TokenWriter::tds)
};

} // namespace standin
