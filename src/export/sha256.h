#pragma once
// SHA-256 as fast as the processor allows: with the x86 SHA instructions where the processor has
// them (several times faster than a portable implementation, so a digest costs less than the disk
// it is taken beside), else QCryptographicHash. Both give the same digest.

#include <QByteArray>
#include <QCryptographicHash>
#include <QString>

#include <array>
#include <cstdint>

class Sha256 {
public:
    Sha256();
    void addData(const char *data, qint64 length);
    // Lower-case hex; the object is finished after it.
    QString hexResult();
    // True when the processor's SHA instructions are used.
    static bool accelerated();

private:
    bool m_fast;
    QCryptographicHash m_portable{QCryptographicHash::Sha256};
    std::array<std::uint32_t, 8> m_state;
    std::array<unsigned char, 64> m_block;
    qint64 m_blockUsed = 0;
    quint64 m_total = 0;
};
