#pragma once
// SHA-256 as fast as the machine allows: OpenSSL's libcrypto where the build found it (it uses
// the processor's SHA instructions, so a digest costs less than the disk it is taken beside),
// else QCryptographicHash, about half as fast. Both give the same digest.
//
// Threads: a Sha256 belongs to one thread at a time; separate digests may run at once.

#include <QCryptographicHash>
#include <QString>

#include <memory>

namespace exporting {

class Sha256 {
public:
    Sha256();
    ~Sha256();
    Sha256(const Sha256 &) = delete;
    Sha256 &operator=(const Sha256 &) = delete;

    void addData(const char *data, qint64 length);
    // Lower-case hex; the object is finished after it.
    QString hexResult();

private:
    struct Native;
    std::unique_ptr<Native> m_native;
    QCryptographicHash m_portable{QCryptographicHash::Sha256};
};

} // namespace exporting
