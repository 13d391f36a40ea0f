#pragma once
// A value reader that hashes what passes through it: the report's digest is of the very bytes
// that went to the file, taken on their way there, never by reading the file again.
//
// Threads: one reader belongs to the one thread that streams a document through it.

#include "repository/valuereader.h"

#include "export/sha256.h"

namespace exporting {

class HashingReader final : public repo::ValueReader {
public:
    explicit HashingReader(repo::ValueReader &inner) : m_inner(inner) {}
    qint64 read(char *buffer, qint64 max) override
    {
        const qint64 got = m_inner.read(buffer, max);
        if (got > 0) {
            m_hash.addData(buffer, got);
            m_bytes += got;
        }
        return got;
    }
    qint64 size() const override { return m_inner.size(); }
    qint64 bytes() const { return m_bytes; }
    // Lower-case hex of SHA-256 over everything read; call once, at the end.
    QString sha256() { return m_hash.hexResult(); }

private:
    repo::ValueReader &m_inner;
    Sha256 m_hash;
    qint64 m_bytes = 0;
};

} // namespace exporting
