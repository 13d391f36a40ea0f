// The benchmark generator's options, document sizes and bytes (see gen_large_parts.h).

#include "gen_large_parts.h"

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QDate>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace genlarge {

// Sizes spread over the decades as in a real repository: log-normal (sigma 2, so the middle 95%
// span about three decades), clipped to 1 KiB .. half the largest document, which stays the
// only one of its size. The median is found by bisection so that the sizes add up to the target.
std::vector<qint64> documentSizes(const Options &o, Random &rnd, qint64 *largestIndex)
{
    const qint64 n = o.documents;
    std::vector<qint64> sizes(static_cast<size_t>(n), kKiB);
    *largestIndex = rnd.below(n);
    sizes[size_t(*largestIndex)] = o.largestBytes;
    if (n == 1)
        return sizes;
    const double lowest = double(kKiB);
    const double highest = std::max(lowest, double(o.largestBytes / 2));
    constexpr double sigma = 2.0;
    std::vector<double> z(static_cast<size_t>(n));
    for (double &v : z) {
        // Box-Muller; 1 - unit() is never 0.
        const double u1 = 1.0 - rnd.unit();
        const double u2 = rnd.unit();
        v = std::sqrt(-2.0 * std::log(u1)) * std::cos(6.283185307179586 * u2);
    }
    const auto sizeFor = [&](double mu, qint64 i) {
        return qint64(std::floor(std::clamp(std::exp(mu + sigma * z[size_t(i)]), lowest, highest)));
    };
    const double target = double(o.totalBytes - o.largestBytes);
    double lo = std::log(lowest) - 10 * sigma, hi = std::log(highest) + 10 * sigma;
    for (int step = 0; step < 100; ++step) {
        const double mid = (lo + hi) / 2;
        double sum = 0;
        for (qint64 i = 0; i < n; ++i) {
            if (i != *largestIndex)
                sum += double(sizeFor(mid, i));
        }
        (sum > target ? hi : lo) = mid;
    }
    for (qint64 i = 0; i < n; ++i) {
        if (i != *largestIndex)
            sizes[size_t(i)] = sizeFor(lo, i);
    }
    return sizes;
}

ByteSource::ByteSource(quint64 seed)
    : m_block(int(kMiB), Qt::Uninitialized)
{
    Random rnd(seed ^ 0xB10Cull);
    for (qsizetype i = 0; i + 8 <= m_block.size(); i += 8) {
        const quint64 v = rnd.next();
        std::memcpy(m_block.data() + i, &v, 8);
    }
}

QByteArray ByteSource::bytes(qint64 id, const QString &title, qint64 size) const
{
    QByteArray data(size, Qt::Uninitialized);
    const qsizetype blockSize = m_block.size();
    qsizetype from = qsizetype((quint64(id) * 7919u) % quint64(blockSize));
    for (qsizetype pos = 0; pos < size;) {
        const qsizetype n = std::min<qsizetype>(blockSize - from, size - pos);
        std::memcpy(data.data() + pos, m_block.constData() + from, size_t(n));
        pos += n;
        from = (from + n) % blockSize;
    }
    for (qint64 mib = 0; mib * kMiB < size; ++mib) {
        const QByteArray stamp = mib == 0 ? ("Document " + QByteArray::number(id) + ": " + title.toUtf8() + "\r\n")
                                          : ("[document " + QByteArray::number(id) + ", MiB "
                                             + QByteArray::number(mib) + "]");
        std::memcpy(data.data() + mib * kMiB, stamp.constData(),
                    size_t(std::min<qint64>(stamp.size(), size - mib * kMiB)));
    }
    return data;
}

QString dateText(Random &rnd)
{
    const QDate day = QDate(2005, 1, 1).addDays(rnd.below(5800));
    return QStringLiteral("%1 %2:%3:%4.%5")
        .arg(day.toString(QStringLiteral("yyyy-MM-dd")))
        .arg(rnd.below(24), 2, 10, QLatin1Char('0'))
        .arg(rnd.below(60), 2, 10, QLatin1Char('0'))
        .arg(rnd.below(60), 2, 10, QLatin1Char('0'))
        .arg(rnd.below(1000), 3, 10, QLatin1Char('0'));
}

QString mib(qint64 bytes)
{
    return QString::number(double(bytes) / double(kMiB), 'f', 1) + QStringLiteral(" MiB");
}

bool parse(const QStringList &arguments, Options &o, QString *error)
{
    QCommandLineParser p;
    p.setApplicationDescription(QStringLiteral("Writes a large embedded repository for timing the tool."));
    p.addHelpOption();
    p.addPositionalArgument(QStringLiteral("DIR"), QStringLiteral("Server folder to write (created if missing)."));
    const QCommandLineOption documents(QStringLiteral("documents"), QStringLiteral("Number of documents."),
                                       QStringLiteral("N"), QString::number(o.documents));
    const QCommandLineOption total(QStringLiteral("total-mib"), QStringLiteral("Approximate total of document bytes."),
                                   QStringLiteral("MiB"), QString::number(o.totalBytes / kMiB));
    const QCommandLineOption largest(QStringLiteral("largest-mib"), QStringLiteral("Size of the one largest document."),
                                     QStringLiteral("MiB"), QString::number(o.largestBytes / kMiB));
    const QCommandLineOption folders(QStringLiteral("folders"), QStringLiteral("Folders that hold documents."),
                                     QStringLiteral("N"), QString::number(o.folders));
    const QCommandLineOption depth(QStringLiteral("depth"), QStringLiteral("Deepest folder level."),
                                   QStringLiteral("N"), QString::number(o.depth));
    const QCommandLineOption wide(QStringLiteral("wide"), QStringLiteral("Child folders of the folder \"Wide\"."),
                                  QStringLiteral("N"), QString::number(o.wide));
    const QCommandLineOption archived(QStringLiteral("archive-percent"),
                                      QStringLiteral("Share of documents kept in the archive database."),
                                      QStringLiteral("P"), QString::number(o.archivePercent));
    const QCommandLineOption seed(QStringLiteral("seed"), QStringLiteral("Seed of the pseudo-random generator."),
                                  QStringLiteral("S"), QString::number(o.seed));
    p.addOptions({documents, total, largest, folders, depth, wide, archived, seed});
    p.process(arguments); // --help and unknown options end the program with a message

    const auto number = [&](const QCommandLineOption &opt, qint64 lowest, qint64 highest, qint64 *value) {
        bool ok = false;
        const qint64 v = p.value(opt).toLongLong(&ok);
        if (!ok || v < lowest || v > highest) {
            *error = QStringLiteral("--%1 must be a whole number from %2 to %3")
                         .arg(opt.names().first())
                         .arg(lowest)
                         .arg(highest);
            return false;
        }
        *value = v;
        return true;
    };
    if (p.positionalArguments().size() != 1) {
        *error = QStringLiteral("give exactly one server folder (see --help)");
        return false;
    }
    o.dir = p.positionalArguments().first();
    qint64 v = 0;
    if (!number(documents, 1, 10000000, &o.documents))
        return false;
    if (!number(total, 1, 1024 * 1024, &v))
        return false;
    o.totalBytes = v * kMiB;
    if (!number(largest, 1, 1024, &v))
        return false;
    o.largestBytes = v * kMiB;
    if (!number(folders, 1, 1000000, &v))
        return false;
    o.folders = int(v);
    if (!number(depth, 2, 100, &v))
        return false;
    o.depth = int(v);
    if (!number(wide, 0, 1000000, &v))
        return false;
    o.wide = int(v);
    if (!number(archived, 0, 100, &v))
        return false;
    o.archivePercent = int(v);
    bool ok = false;
    o.seed = p.value(seed).toULongLong(&ok);
    if (!ok) {
        *error = QStringLiteral("--seed must be a whole number");
        return false;
    }
    if (o.totalBytes < o.largestBytes + (o.documents - 1) * kKiB) {
        *error = QStringLiteral("--total-mib is too small for the largest document plus 1 KiB per other document");
        return false;
    }
    return true;
}

} // namespace genlarge
