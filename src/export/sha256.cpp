#include "export/sha256.h"

#ifdef PARCELWISE_HAVE_OPENSSL
#include <openssl/evp.h>
#endif

namespace exporting {

#ifdef PARCELWISE_HAVE_OPENSSL

struct Sha256::Native {
    EVP_MD_CTX *context = EVP_MD_CTX_new();
    ~Native() { EVP_MD_CTX_free(context); }
};

Sha256::Sha256()
{
    auto native = std::make_unique<Native>();
    if (native->context && EVP_DigestInit_ex(native->context, EVP_sha256(), nullptr) == 1)
        m_native = std::move(native);
}

Sha256::~Sha256() = default;

void Sha256::addData(const char *data, qint64 length)
{
    if (m_native)
        EVP_DigestUpdate(m_native->context, data, size_t(length));
    else
        m_portable.addData(QByteArrayView(data, length));
}

QString Sha256::hexResult()
{
    if (!m_native)
        return QString::fromLatin1(m_portable.result().toHex());
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    EVP_DigestFinal_ex(m_native->context, digest, &size);
    return QString::fromLatin1(QByteArray(reinterpret_cast<const char *>(digest), int(size)).toHex());
}

#else

struct Sha256::Native {};

Sha256::Sha256() = default;
Sha256::~Sha256() = default;

void Sha256::addData(const char *data, qint64 length)
{
    m_portable.addData(QByteArrayView(data, length));
}

QString Sha256::hexResult()
{
    return QString::fromLatin1(m_portable.result().toHex());
}

#endif

} // namespace exporting
