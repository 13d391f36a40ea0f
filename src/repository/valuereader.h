#pragma once
// A value read forwards in chunks, so that a document's bytes never have to be held whole on
// their way from the repository to a file.
//
// Threads: a reader is read on one thread at a time, the one whose connection it reads from.

#include <QByteArray>

namespace repo {

class ValueReader {
public:
    virtual ~ValueReader() = default;
    // Up to max bytes into buffer; 0 at the end. Raises HuntERR::Error when the read fails.
    virtual qint64 read(char *buffer, qint64 max) = 0;
    // The whole value's length when it is known before reading it; -1 otherwise.
    virtual qint64 size() const { return -1; }
};

// A value that is in memory already.
class BytesReader final : public ValueReader {
public:
    explicit BytesReader(QByteArray bytes) : m_bytes(std::move(bytes)) {}
    qint64 read(char *buffer, qint64 max) override
    {
        const qint64 n = qMin<qint64>(max, m_bytes.size() - m_pos);
        if (n > 0)
            memcpy(buffer, m_bytes.constData() + m_pos, size_t(n));
        m_pos += n;
        return n;
    }
    qint64 size() const override { return m_bytes.size(); }

private:
    QByteArray m_bytes;
    qint64 m_pos = 0;
};

} // namespace repo
