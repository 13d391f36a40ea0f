// Writes a large embedded repository for timing the tree and the export: by default 20,000
// documents of about 1 GiB in all, in a few hundred folders several levels deep, one folder with
// 10,000 child folders, and an archive database holding a share of the documents. The same
// arguments always give the same files (own pseudo-random generator, fixed seed).
//
//   gen_large_repository DIR [--documents N] [--total-mib M] [--largest-mib L] [--folders F]
//                            [--depth D] [--wide W] [--archive-percent P] [--seed S]

#include "demo/schema.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDate>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QTextStream>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace {

const QString kCatalogue = QStringLiteral("zar_Master");
const QString kLive = QStringLiteral("BigCorp");
const QString kArchive = QStringLiteral("BigCorpArchive");
constexpr qint64 kKiB = 1024;
constexpr qint64 kMiB = 1024 * 1024;
constexpr qint64 kRootId = 1;
constexpr qint64 kWideId = 4;

QTextStream &out()
{
    static QTextStream s(stdout);
    return s;
}

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

struct FolderInfo {
    qint64 id;
    int depth;
    bool archived;
};

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

// Document bytes: slices of one pseudo-random block, each document and each MiB of it stamped
// with its own text so no two documents and no two pages of one document are alike.
class ByteSource {
public:
    explicit ByteSource(quint64 seed)
        : m_block(int(kMiB), Qt::Uninitialized)
    {
        Random rnd(seed ^ 0xB10Cull);
        for (qsizetype i = 0; i + 8 <= m_block.size(); i += 8) {
            const quint64 v = rnd.next();
            std::memcpy(m_block.data() + i, &v, 8);
        }
    }
    QByteArray bytes(qint64 id, const QString &title, qint64 size) const
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

private:
    QByteArray m_block;
};

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

bool removeOwnFiles(const QString &dir, QString *error)
{
    QStringList names{QStringLiteral("server.ini")};
    for (const QString &db : {kCatalogue, kLive, kArchive}) {
        const QString file = db + QStringLiteral(".sqlite");
        names << file << file + QStringLiteral("-journal") << file + QStringLiteral("-wal")
              << file + QStringLiteral("-shm");
    }
    for (const QString &name : std::as_const(names)) {
        const QString path = QDir(dir).filePath(name);
        if (QFileInfo::exists(path) && !QFile::remove(path)) {
            *error = QStringLiteral("cannot replace %1").arg(QDir::toNativeSeparators(path));
            return false;
        }
    }
    return true;
}

struct Totals {
    qint64 folders = 0, archivedFolders = 0;
    qint64 documents = 0, archivedDocuments = 0;
    qint64 bytes = 0, archivedBytes = 0;
    qint64 smallest = 0, largest = 0;
    qint64 buckets[5] = {}; // < 10 KiB, < 100 KiB, < 1 MiB, < 10 MiB, larger
};

bool generate(const Options &o, Totals &t, QString *error)
{
    Random rnd(o.seed);
    const QStringList words = {
        QStringLiteral("Contracts"), QStringLiteral("Invoices"), QStringLiteral("Minutes"),
        QStringLiteral("Plans"),     QStringLiteral("Reports"),  QStringLiteral("Drawings"),
        QStringLiteral("Permits"),   QStringLiteral("Letters"),  QStringLiteral("Budgets"),
        QStringLiteral("Surveys"),   QStringLiteral("Photos"),   QStringLiteral("Claims"),
    };

    demo::SqliteFile catalogue(demo::databaseFile(o.dir, kCatalogue));
    if (!catalogue.open(error) || !demo::createCatalogueTables(catalogue, error)
        || !demo::addCompany(catalogue, 1, kLive, QStringLiteral("L"), 0, error)
        || !demo::addCompany(catalogue, 2, kArchive, QStringLiteral("A"), 1, error))
        return false;
    catalogue.close();

    demo::SqliteFile live(demo::databaseFile(o.dir, kLive));
    demo::SqliteFile archive(demo::databaseFile(o.dir, kArchive));
    if (!live.open(error) || !archive.open(error) || !live.exec(QStringLiteral("PRAGMA cache_size = -65536"), error)
        || !demo::createCompanyTables(live, error) || !demo::createArchiveTables(archive, error)
        || !live.begin(error) || !archive.begin(error))
        return false;

    std::vector<FolderInfo> holders; // folders that receive documents
    std::vector<qint64> wideChildren;
    {
        demo::CompanyWriter writer(live);
        qint64 nextId = 1;
        const auto add = [&](qint64 parent, const QString &name, const QString &type, int icon,
                             bool archived) -> bool {
            demo::Folder f;
            f.recId = nextId++;
            f.parent = parent;
            f.name = name;
            f.type = type;
            f.icon = icon;
            f.isAdmin = type == QLatin1String("ADMIN");
            f.lifecycle = archived ? demo::Lifecycle::Archived : demo::Lifecycle::Live;
            f.timeStamp = dateText(rnd);
            ++t.folders;
            t.archivedFolders += archived ? 1 : 0;
            return writer.addFolder(f, error);
        };
        if (!add(0, QStringLiteral("BigCorp Holdings"), QStringLiteral("ROOT"), 1, false)
            || !add(kRootId, QStringLiteral("Admin"), QStringLiteral("ADMIN"), 0, false)
            || !add(kRootId, QStringLiteral("Recycle Bin"), QStringLiteral("RECYCLE"), 0, false)
            || !add(kRootId, QStringLiteral("Wide"), QStringLiteral("FOLDER"), 1, false))
            return false;
        holders.push_back({2, 1, false});
        holders.push_back({3, 1, false});

        // Sites under the root, cabinets under the sites, then ordinary folders anywhere above
        // the depth limit, often below a recent folder so that chains grow deep.
        std::vector<FolderInfo> parents{{kRootId, 0, false}};
        const int sites = std::max(1, o.folders / 60);
        const int cabinets = std::max(1, o.folders / 30);
        for (int i = 0; i < sites; ++i) {
            parents.push_back({nextId, 1, false});
            if (!add(kRootId, QStringLiteral("Site %1").arg(i + 1, 2, 10, QLatin1Char('0')), QStringLiteral("SITE"),
                     0, false))
                return false;
            holders.push_back(parents.back());
        }
        for (int i = 0; i < cabinets; ++i) {
            const qint64 site = kWideId + 1 + rnd.below(sites); // sites follow the fixed first-level folders
            parents.push_back({nextId, 2, false});
            if (!add(site, QStringLiteral("Cabinet %1").arg(i + 1, 2, 10, QLatin1Char('0')),
                     QStringLiteral("CABINET"), 0, false))
                return false;
            holders.push_back(parents.back());
        }
        // A few whole subtrees are archived; most archived documents lie in live folders.
        const double archivedShare = o.archivePercent / 1000.0;
        for (int i = sites + cabinets; i < o.folders; ++i) {
            const size_t recent = std::min<size_t>(parents.size(), 20);
            FolderInfo parent = rnd.chance(0.5) ? parents[parents.size() - 1 - size_t(rnd.below(qint64(recent)))]
                                                : parents[size_t(rnd.below(qint64(parents.size())))];
            if (parent.depth >= o.depth)
                parent = parents.front();
            // A subtree below an archived folder stays archived.
            const bool archived = parent.archived || rnd.chance(archivedShare);
            const int iconRoll = int(rnd.below(14));
            const int icon = iconRoll < 11 ? iconRoll + 1 : (iconRoll == 11 ? 0 : (iconRoll == 12 ? 12 : 99));
            const FolderInfo me{nextId, parent.depth + 1, archived};
            if (!add(parent.id, words[int(rnd.below(words.size()))] + QStringLiteral(" %1").arg(nextId), QStringLiteral("FOLDER"),
                     icon, archived))
                return false;
            parents.push_back(me);
            holders.push_back(me);
        }
        for (int i = 0; i < o.wide; ++i) {
            wideChildren.push_back(nextId);
            if (!add(kWideId, QStringLiteral("Item %1").arg(i + 1, 5, 10, QLatin1Char('0')), QStringLiteral("FOLDER"),
                     i % 11 + 1, false))
                return false;
        }

        qint64 largestIndex = 0;
        const std::vector<qint64> sizes = documentSizes(o, rnd, &largestIndex);
        const ByteSource source(o.seed);
        demo::ArchiveWriter archiveWriter(archive);
        const QStringList extensions = {QStringLiteral(".pdf"), QStringLiteral(".docx"), QStringLiteral(".xlsx"),
                                        QStringLiteral(".txt"), QStringLiteral(".png"),  QStringLiteral(".msg"),
                                        QStringLiteral(".csv")};
        // Where each document goes: a few to the wide folder's children, the rest favouring the
        // later (deeper) folders.
        std::vector<FolderInfo> documentHolder(static_cast<size_t>(o.documents));
        qint64 forcedArchived = 0;
        for (FolderInfo &holder : documentHolder) {
            if (!wideChildren.empty() && rnd.chance(0.02)) {
                holder = {wideChildren[size_t(rnd.below(qint64(wideChildren.size())))], 2, false};
            } else {
                const double u = rnd.unit();
                holder = holders[holders.size() - 1 - size_t(double(holders.size()) * u * u)];
            }
            forcedArchived += holder.archived ? 1 : 0;
        }
        // Documents of archived folders are archived; enough others join them to reach the share.
        const double wanted = double(o.documents) * o.archivePercent / 100.0 - double(forcedArchived);
        const double archivedDocShare =
            o.documents > forcedArchived ? std::max(0.0, wanted / double(o.documents - forcedArchived)) : 0.0;
        t.smallest = sizes.empty() ? 0 : *std::min_element(sizes.begin(), sizes.end());
        const qint64 step = std::max<qint64>(1, o.documents / 10);
        for (qint64 i = 0; i < o.documents; ++i) {
            demo::Document d;
            d.recId = 100001 + i;
            const FolderInfo &holder = documentHolder[size_t(i)];
            d.folder = holder.id;
            d.lifecycle = holder.archived || rnd.chance(archivedDocShare) ? demo::Lifecycle::Archived
                                                                          : demo::Lifecycle::Live;
            if (i == largestIndex) // the largest document is exported from the live database if it can be
                d.lifecycle = holder.archived ? demo::Lifecycle::Archived : demo::Lifecycle::Live;
            const QString ext = extensions[int(rnd.below(extensions.size()))];
            d.fileName = QStringLiteral("doc%1%2").arg(d.recId).arg(ext);
            d.description = words[int(rnd.below(words.size()))] + QStringLiteral(" %1").arg(d.recId);
            const int dates = int(rnd.below(100));
            d.actualDate = dates < 4 ? QString() : dateText(rnd);
            d.uploadedDate = dates < 1 ? QString() : dateText(rnd);
            const qint64 size = sizes[size_t(i)];
            d.data = source.bytes(d.recId, d.description, size);
            if (!writer.addDocument(d, error))
                return false;
            if (d.lifecycle == demo::Lifecycle::Archived) {
                if (!archiveWriter.addBytes(d.recId, d.data, error))
                    return false;
                ++t.archivedDocuments;
                t.archivedBytes += size;
            }
            ++t.documents;
            t.bytes += size;
            t.largest = std::max(t.largest, size);
            const int bucket = size < 10 * kKiB ? 0 : size < 100 * kKiB ? 1 : size < kMiB ? 2 : size < 10 * kMiB ? 3 : 4;
            ++t.buckets[bucket];
            if ((i + 1) % step == 0 || i + 1 == o.documents) {
                out() << QStringLiteral("  %1/%2 documents, %3\n").arg(i + 1).arg(o.documents).arg(mib(t.bytes));
                out().flush();
            }
        }
    }
    return demo::buildFolderMatrix(live, error) && demo::createCompanyIndexes(live, error) && live.commit(error)
        && archive.commit(error);
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

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("gen_large_repository"));
    QTextStream err(stderr);
    Options o;
    QString error;
    if (!parse(app.arguments(), o, &error)) {
        err << "gen_large_repository: " << error << "\n";
        return 2;
    }
    if (QFileInfo(o.dir).exists() && !QFileInfo(o.dir).isDir()) {
        err << "gen_large_repository: " << o.dir << " exists and is not a folder\n";
        return 1;
    }
    if (!QDir().mkpath(o.dir) || !removeOwnFiles(o.dir, &error)) {
        err << "gen_large_repository: " << (error.isEmpty() ? QStringLiteral("cannot create ") + o.dir : error) << "\n";
        return 1;
    }

    QElapsedTimer timer;
    timer.start();
    out() << QStringLiteral("Writing %1 documents (about %2) into %3\n")
                 .arg(o.documents)
                 .arg(mib(o.totalBytes))
                 .arg(QDir::toNativeSeparators(QDir(o.dir).absolutePath()));
    out().flush();
    Totals t;
    bool ok = generate(o, t, &error);
    if (ok) {
        QSettings ini(QDir(o.dir).filePath(QStringLiteral("server.ini")), QSettings::IniFormat);
        ini.setValue(QStringLiteral("logins/demo"), QString(QLatin1String("")));
        ini.sync();
        ok = ini.status() == QSettings::NoError;
        if (!ok)
            error = QStringLiteral("cannot write server.ini");
    }
    if (!ok) {
        err << "gen_large_repository: " << error << "\n";
        QString ignored;
        removeOwnFiles(o.dir, &ignored);
        return 1;
    }

    out() << QStringLiteral("Catalogue %1: %2 (live, com_id 1), %3 (archive of %2, com_id 2)\n")
                 .arg(kCatalogue, kLive, kArchive);
    out() << QStringLiteral("Folders: %1 (%2 archived), depth up to %3; \"Wide\" (Rec_ID %4) has %5 children\n")
                 .arg(t.folders)
                 .arg(t.archivedFolders)
                 .arg(o.depth)
                 .arg(kWideId)
                 .arg(o.wide);
    out() << QStringLiteral("Documents: %1, %2 in all; %3 archived (%4)\n")
                 .arg(t.documents)
                 .arg(mib(t.bytes))
                 .arg(t.archivedDocuments)
                 .arg(mib(t.archivedBytes));
    out() << QStringLiteral("Sizes: smallest %1 bytes, largest %2; <10 KiB %3, <100 KiB %4, <1 MiB %5, "
                            "<10 MiB %6, larger %7\n")
                 .arg(t.smallest)
                 .arg(mib(t.largest))
                 .arg(t.buckets[0])
                 .arg(t.buckets[1])
                 .arg(t.buckets[2])
                 .arg(t.buckets[3])
                 .arg(t.buckets[4]);
    for (const QString &db : {kCatalogue, kLive, kArchive}) {
        const QString file = demo::databaseFile(o.dir, db);
        out() << QStringLiteral("  %1  %2\n").arg(QDir::toNativeSeparators(file)).arg(mib(QFileInfo(file).size()));
    }
    out() << QStringLiteral("Sign in with user \"demo\" and an empty password. Took %1 s.\n")
                 .arg(double(timer.elapsed()) / 1000.0, 0, 'f', 1);
    return 0;
}
