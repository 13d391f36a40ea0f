#pragma once
// TLS as a TDS server speaks it: a self-signed certificate made when the stand-in starts, the
// handshake's records carried in pre-login packets, then records straight on the connection (for
// the login packet only, or for the whole session, as pre-login agreed). OpenSSL through memory
// buffers: the session moves the bytes itself.

#include <QByteArray>
#include <QString>

#include <memory>

typedef struct ssl_ctx_st SSL_CTX;
typedef struct ssl_st SSL;
typedef struct bio_st BIO;

namespace standin {

// The server's certificate and key (CN=localhost, valid a day), TLS 1.2 at most as SQL Server
// offers it inside TDS 7.x. Null, with error set, when OpenSSL cannot make them.
std::shared_ptr<SSL_CTX> makeTlsContext(QString *error);

class TlsLink {
public:
    explicit TlsLink(SSL_CTX *context);
    ~TlsLink();
    TlsLink(const TlsLink &) = delete;
    TlsLink &operator=(const TlsLink &) = delete;

    enum class Step { More, Done, Failed };
    // Takes the client's handshake records, puts the answer (possibly none) in reply.
    Step handshake(const QByteArray &records, QByteArray &reply);
    // Records from the client in; whatever they decrypt to appended to plain. false: broken.
    bool decrypt(const QByteArray &records, QByteArray &plain);
    // Plain bytes out as records.
    QByteArray encrypt(const char *data, qint64 size);

private:
    QByteArray drain();
    SSL *m_ssl = nullptr;
    BIO *m_in = nullptr;  // records from the client
    BIO *m_out = nullptr; // records to the client
};

} // namespace standin
