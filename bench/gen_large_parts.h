// The benchmark generator's building blocks that do not touch a database: its options, its
// pseudo-random numbers, document sizes and bytes. Kept apart so the generator's main file stays
// about the repository's shape.
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <vector>

namespace genlarge {

constexpr qint64 kKiB = 1024;
constexpr qint64 kMiB = 1024 * 1024;

// xorshift64*: small, fast, and the same sequence on every platform.
class Random {
public:
    explicit Random(quint64 seed)
        : m_state(seed ? seed : 0x9E3779B97F4A7C15ull)
    {
    }
    quint64 next()
    {
        m_state ^= m_state >> 12;
        m_state ^= m_state << 25;
        m_state ^= m_state >> 27;
        return m_state * 0x2545F4914F6CDD1Dull;
    }
    // Uniform in [0, 1).
    double unit() { return double(next() >> 11) * (1.0 / 9007199254740992.0); }
    // Uniform in [0, n).
    qint64 below(qint64 n) { return n <= 1 ? 0 : qint64(next() % quint64(n)); }
    bool chance(double p) { return unit() < p; }

private:
    quint64 m_state;
};

struct Options {
    QString dir;
    qint64 documents = 20000;
    qint64 totalBytes = 1024 * kMiB;
    qint64 largestBytes = 50 * kMiB;
    int folders = 300;
    int depth = 6;
    int wide = 10000;
    int archivePercent = 25;
    quint64 seed = 20160305;
};

// --help and unknown options end the program with a message; other mistakes come back in error.
bool parse(const QStringList &arguments, Options &o, QString *error);

// One size per document; *largestIndex is the one document of the largest size.
std::vector<qint64> documentSizes(const Options &o, Random &rnd, qint64 *largestIndex);

// Document bytes: slices of one pseudo-random block, each document and each MiB of it stamped
// with its own text so no two documents and no two pages of one document are alike.
class ByteSource {
public:
    explicit ByteSource(quint64 seed);
    QByteArray bytes(qint64 id, const QString &title, qint64 size) const;

private:
    QByteArray m_block;
};

QString dateText(Random &rnd);
QString mib(qint64 bytes);

} // namespace genlarge
