#include "tlslink.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

namespace standin {

namespace {

QString opensslError(const char *what)
{
    char text[256] = {};
    ERR_error_string_n(ERR_get_error(), text, sizeof text);
    return QStringLiteral("%1: %2").arg(QLatin1String(what), QLatin1String(text));
}

// A fresh key and a certificate for it, signed by itself.
bool selfSigned(SSL_CTX *context, QString *error)
{
    EVP_PKEY *key = EVP_EC_gen("P-256");
    X509 *cert = X509_new();
    bool ok = key && cert;
    if (ok) {
        ASN1_INTEGER_set(X509_get_serialNumber(cert), 1);
        X509_gmtime_adj(X509_getm_notBefore(cert), -3600);
        X509_gmtime_adj(X509_getm_notAfter(cert), 86400);
        X509_NAME *name = X509_get_subject_name(cert);
        X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char *>("localhost"),
                                   -1, -1, 0);
        X509_set_issuer_name(cert, name);
        ok = X509_set_pubkey(cert, key) == 1 && X509_sign(cert, key, EVP_sha256()) > 0
             && SSL_CTX_use_certificate(context, cert) == 1 && SSL_CTX_use_PrivateKey(context, key) == 1;
    }
    if (!ok)
        *error = opensslError("certificate");
    X509_free(cert);
    EVP_PKEY_free(key);
    return ok;
}

} // namespace

std::shared_ptr<SSL_CTX> makeTlsContext(QString *error)
{
    std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
    if (!context) {
        *error = opensslError("context");
        return {};
    }
    // The handshake must end inside pre-login: no TLS 1.3 tickets after it.
    SSL_CTX_set_max_proto_version(context.get(), TLS1_2_VERSION);
    SSL_CTX_set_options(context.get(), SSL_OP_NO_TICKET);
    if (!selfSigned(context.get(), error))
        return {};
    return context;
}

TlsLink::TlsLink(SSL_CTX *context)
    : m_ssl(SSL_new(context)), m_in(BIO_new(BIO_s_mem())), m_out(BIO_new(BIO_s_mem()))
{
    SSL_set_bio(m_ssl, m_in, m_out); // the SSL owns both from here
    SSL_set_accept_state(m_ssl);
}

TlsLink::~TlsLink()
{
    SSL_free(m_ssl);
}

QByteArray TlsLink::drain()
{
    QByteArray out;
    char buffer[16384];
    int n = 0;
    while ((n = BIO_read(m_out, buffer, sizeof buffer)) > 0)
        out.append(buffer, n);
    return out;
}

TlsLink::Step TlsLink::handshake(const QByteArray &records, QByteArray &reply)
{
    BIO_write(m_in, records.constData(), int(records.size()));
    const int r = SSL_do_handshake(m_ssl);
    reply = drain();
    if (r == 1)
        return Step::Done;
    const int e = SSL_get_error(m_ssl, r);
    return e == SSL_ERROR_WANT_READ || e == SSL_ERROR_WANT_WRITE ? Step::More : Step::Failed;
}

bool TlsLink::decrypt(const QByteArray &records, QByteArray &plain)
{
    if (!records.isEmpty())
        BIO_write(m_in, records.constData(), int(records.size()));
    char buffer[16384];
    for (;;) {
        const int n = SSL_read(m_ssl, buffer, sizeof buffer);
        if (n > 0) {
            plain.append(buffer, n);
            continue;
        }
        return SSL_get_error(m_ssl, n) == SSL_ERROR_WANT_READ;
    }
}

QByteArray TlsLink::encrypt(const char *data, qint64 size)
{
    QByteArray out;
    for (qint64 at = 0; at < size; at += 16384) {
        if (SSL_write(m_ssl, data + at, int(qMin<qint64>(16384, size - at))) <= 0)
            return {};
        out += drain();
    }
    return out;
}

} // namespace standin
