// Writes a large embedded repository for timing the tree and the export: by default 20,000
// documents of about 1 GiB in all, in a few hundred folders several levels deep, one folder with
// 10,000 child folders, and an archive database holding a share of the documents. The same
// arguments always give the same files (own pseudo-random generator, fixed seed).
//
//   gen_large_repository DIR [--documents N] [--total-mib M] [--largest-mib L] [--folders F]
//                            [--depth D] [--wide W] [--archive-percent P] [--seed S]

#include "demo/schema.h"
#include "gen_large_parts.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QTextStream>

#include <algorithm>
#include <vector>

namespace {

using namespace genlarge;

const QString kCatalogue = QStringLiteral("zar_Master");
const QString kLive = QStringLiteral("BigCorp");
const QString kArchive = QStringLiteral("BigCorpArchive");
constexpr qint64 kRootId = 1;
constexpr qint64 kWideId = 4;

QTextStream &out()
{
    static QTextStream s(stdout);
    return s;
}

struct FolderInfo {
    qint64 id;
    int depth;
    bool archived;
};

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

const QStringList &words()
{
    static const QStringList w = {
        QStringLiteral("Contracts"), QStringLiteral("Invoices"), QStringLiteral("Minutes"),
        QStringLiteral("Plans"),     QStringLiteral("Reports"),  QStringLiteral("Drawings"),
        QStringLiteral("Permits"),   QStringLiteral("Letters"),  QStringLiteral("Budgets"),
        QStringLiteral("Surveys"),   QStringLiteral("Photos"),   QStringLiteral("Claims"),
    };
    return w;
}

// Folder ids are handed out in writing order, and later folders are placed by those ids, so
// every folder goes through one counter.
struct FolderWriter {
    demo::CompanyWriter &writer;
    Random &rnd;
    Totals &t;
    QString *error;
    qint64 nextId = 1;

    bool add(qint64 parent, const QString &name, const QString &type, int icon, bool archived)
    {
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
    }
};

// Fills holders with the folders that receive documents, in the order they were written.
bool writeFolderTree(const Options &o, FolderWriter &w, std::vector<FolderInfo> &holders)
{
    Random &rnd = w.rnd;
    if (!w.add(0, QStringLiteral("BigCorp Holdings"), QStringLiteral("ROOT"), 1, false)
        || !w.add(kRootId, QStringLiteral("Admin"), QStringLiteral("ADMIN"), 0, false)
        || !w.add(kRootId, QStringLiteral("Recycle Bin"), QStringLiteral("RECYCLE"), 0, false)
        || !w.add(kRootId, QStringLiteral("Wide"), QStringLiteral("FOLDER"), 1, false))
        return false;
    holders.push_back({2, 1, false});
    holders.push_back({3, 1, false});

    // Sites under the root, cabinets under the sites, then ordinary folders anywhere above
    // the depth limit, often below a recent folder so that chains grow deep.
    std::vector<FolderInfo> parents{{kRootId, 0, false}};
    const int sites = std::max(1, o.folders / 60);
    const int cabinets = std::max(1, o.folders / 30);
    for (int i = 0; i < sites; ++i) {
        parents.push_back({w.nextId, 1, false});
        if (!w.add(kRootId, QStringLiteral("Site %1").arg(i + 1, 2, 10, QLatin1Char('0')), QStringLiteral("SITE"),
                   0, false))
            return false;
        holders.push_back(parents.back());
    }
    for (int i = 0; i < cabinets; ++i) {
        const qint64 site = kWideId + 1 + rnd.below(sites); // sites follow the fixed first-level folders
        parents.push_back({w.nextId, 2, false});
        if (!w.add(site, QStringLiteral("Cabinet %1").arg(i + 1, 2, 10, QLatin1Char('0')),
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
        const FolderInfo me{w.nextId, parent.depth + 1, archived};
        if (!w.add(parent.id, words()[int(rnd.below(words().size()))] + QStringLiteral(" %1").arg(w.nextId),
                   QStringLiteral("FOLDER"), icon, archived))
            return false;
        parents.push_back(me);
        holders.push_back(me);
    }
    return true;
}

bool writeWideChildren(const Options &o, FolderWriter &w, std::vector<qint64> &wideChildren)
{
    for (int i = 0; i < o.wide; ++i) {
        wideChildren.push_back(w.nextId);
        if (!w.add(kWideId, QStringLiteral("Item %1").arg(i + 1, 5, 10, QLatin1Char('0')), QStringLiteral("FOLDER"),
                   i % 11 + 1, false))
            return false;
    }
    return true;
}

// Where each document goes: a few to the wide folder's children, the rest favouring the later
// (deeper) folders.
std::vector<FolderInfo> placeDocuments(const Options &o, Random &rnd, const std::vector<FolderInfo> &holders,
                                       const std::vector<qint64> &wideChildren, qint64 *forcedArchived)
{
    std::vector<FolderInfo> documentHolder(static_cast<size_t>(o.documents));
    for (FolderInfo &holder : documentHolder) {
        if (!wideChildren.empty() && rnd.chance(0.02)) {
            holder = {wideChildren[size_t(rnd.below(qint64(wideChildren.size())))], 2, false};
        } else {
            const double u = rnd.unit();
            holder = holders[holders.size() - 1 - size_t(double(holders.size()) * u * u)];
        }
        *forcedArchived += holder.archived ? 1 : 0;
    }
    return documentHolder;
}

void count(Totals &t, const demo::Document &d, qint64 size)
{
    if (d.lifecycle == demo::Lifecycle::Archived) {
        ++t.archivedDocuments;
        t.archivedBytes += size;
    }
    ++t.documents;
    t.bytes += size;
    t.largest = std::max(t.largest, size);
    const int bucket = size < 10 * kKiB ? 0 : size < 100 * kKiB ? 1 : size < kMiB ? 2 : size < 10 * kMiB ? 3 : 4;
    ++t.buckets[bucket];
}

// The random numbers are drawn in a fixed order (sizes, then placement, then each document's
// fields): a change of order would change every repository generated from the same arguments.
bool writeDocuments(const Options &o, Random &rnd, demo::CompanyWriter &writer, demo::SqliteFile &archive,
                    const std::vector<FolderInfo> &holders, const std::vector<qint64> &wideChildren, Totals &t,
                    QString *error)
{
    qint64 largestIndex = 0;
    const std::vector<qint64> sizes = documentSizes(o, rnd, &largestIndex);
    const ByteSource source(o.seed);
    demo::ArchiveWriter archiveWriter(archive);
    const QStringList extensions = {QStringLiteral(".pdf"), QStringLiteral(".docx"), QStringLiteral(".xlsx"),
                                    QStringLiteral(".txt"), QStringLiteral(".png"),  QStringLiteral(".msg"),
                                    QStringLiteral(".csv")};
    qint64 forcedArchived = 0;
    const std::vector<FolderInfo> documentHolder = placeDocuments(o, rnd, holders, wideChildren, &forcedArchived);
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
        d.description = words()[int(rnd.below(words().size()))] + QStringLiteral(" %1").arg(d.recId);
        const int dates = int(rnd.below(100));
        d.actualDate = dates < 4 ? QString() : dateText(rnd);
        d.uploadedDate = dates < 1 ? QString() : dateText(rnd);
        const qint64 size = sizes[size_t(i)];
        d.data = source.bytes(d.recId, d.description, size);
        if (!writer.addDocument(d, error))
            return false;
        if (d.lifecycle == demo::Lifecycle::Archived && !archiveWriter.addBytes(d.recId, d.data, error))
            return false;
        count(t, d, size);
        if ((i + 1) % step == 0 || i + 1 == o.documents) {
            out() << QStringLiteral("  %1/%2 documents, %3\n").arg(i + 1).arg(o.documents).arg(mib(t.bytes));
            out().flush();
        }
    }
    return true;
}

bool generate(const Options &o, Totals &t, QString *error)
{
    Random rnd(o.seed);
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

    {
        // The writers' prepared statements are finished with before the matrix, the indexes and
        // the commit.
        demo::CompanyWriter writer(live);
        FolderWriter folders{writer, rnd, t, error};
        std::vector<FolderInfo> holders; // folders that receive documents
        std::vector<qint64> wideChildren;
        if (!writeFolderTree(o, folders, holders) || !writeWideChildren(o, folders, wideChildren)
            || !writeDocuments(o, rnd, writer, archive, holders, wideChildren, t, error))
            return false;
    }
    return demo::buildFolderMatrix(live, error) && demo::createCompanyIndexes(live, error) && live.commit(error)
        && archive.commit(error);
}

void printSummary(const Options &o, const Totals &t)
{
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

    printSummary(o, t);
    out() << QStringLiteral("Sign in with user \"demo\" and an empty password. Took %1 s.\n")
                 .arg(double(timer.elapsed()) / 1000.0, 0, 'f', 1);
    return 0;
}
