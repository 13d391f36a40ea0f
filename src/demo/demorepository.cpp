#include "demo/demorepository.h"

#include "demo/samplefiles.h"
#include "demo/schema.h"

#include <QDate>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QList>
#include <QSettings>

#include <functional>

namespace demo {

namespace {

const QString kCatalogue = QStringLiteral("zar_Master");
const QString kAcme = QStringLiteral("Acme");
const QString kAcmeArchive = QStringLiteral("AcmeArchive");
const QString kGlobex = QStringLiteral("Globex");
const QString kInitech = QStringLiteral("Initech");
const QString kScratch = QStringLiteral("Scratch");
const QString kVandelayArchive = QStringLiteral("VandelayArchive");
const QString kTwofold = QStringLiteral("Twofold");
const QString kTwofoldArchive = QStringLiteral("TwofoldArchive");
const QString kServerIni = QStringLiteral("server.ini");

enum class Kind { Text, Pdf, Png, Csv, Rtf, Docx };

constexpr auto L = Lifecycle::Live;
constexpr auto A = Lifecycle::Archived;
constexpr auto LA = Lifecycle::Both;

struct FolderSpec {
    qint64 id;
    qint64 parent;
    const char *name;
    const char *type;
    int icon;
    Lifecycle lifecycle;
};

struct DocumentRow {
    qint64 id;
    qint64 folder;
    const char *fileName;
    const char *description; // UTF-8
    Kind kind;
    Lifecycle lifecycle;
};

// Written in Rec_ID order so the files come out the same whatever the container does.
const FolderSpec kAcmeFolders[] = {
    {1, 0, "Acme Corporation", "ROOT", 1, L},
    {2, 1, "A/B", "FOLDER", 5, L},
    {3, 1, "A:B", "FOLDER", 6, L},
    {4, 1, "Admin", "ADMIN", 0, L},
    {5, 1, "Branch Office", "SITE", 0, L},
    {6, 1, "Contracts", "CABINET", 0, L},
    {7, 1, "Docs", "FOLDER", 2, L},
    {8, 1, "Docs 2006", "FOLDER", 0, L},
    {9, 1, "Empty Folder", "FOLDER", 3, L},
    {10, 1, "Finance", "FOLDER", 4, L},
    {11, 1, "Head Office", "SITE", 0, L},
    {12, 1, "Legal", "FOLDER", 99, L},
    {13, 1, "Marketing", "FOLDER", 7, L},
    {14, 1, "Projects", "FOLDER", 8, L},
    {15, 1, "Q1: Plans/Drafts", "FOLDER", 9, L},
    {16, 1, "Recycle Bin", "RECYCLE", 0, L},
    {17, 1, "Templates", "FOLDER", 10, L},
    {18, 1, "Training", "FOLDER", 11, L},
    {19, 1, "Unsorted", "FOLDER", 12, L},
    {20, 1, "Archive 2010", "FOLDER", 1, A},
    {21, 11, "Filing Room", "CABINET", 0, L},
    {22, 21, "Invoices", "FOLDER", 4, L},
    {23, 5, "Reception", "FOLDER", 1, L},
    {24, 6, "Suppliers", "FOLDER", 2, L},
    {25, 14, "Plans", "FOLDER", 3, L},
    {26, 25, "2016", "FOLDER", 4, L},
    {27, 26, "Reports", "FOLDER", 5, L},
    {28, 10, "Ledgers 2009", "FOLDER", 6, L},
    {29, 10, "Budgets", "FOLDER", 7, L},
    {30, 12, "Shared Cases", "FOLDER", 7, L},
    {31, 12, "Current Cases", "FOLDER", 8, L},
    {32, 20, "Board Minutes", "FOLDER", 2, A},
    {33, 20, "Old Projects", "FOLDER", 3, A},
    {34, 33, "Phase 1", "FOLDER", 4, A},
    {35, 34, "Closeout", "FOLDER", 12, A},
    {36, 20, "Closed Accounts", "CABINET", 0, A},
    {37, 20, "Empty Archived", "FOLDER", 5, A},
    {38, 1, "Old Branch", "SITE", 0, A},
};

const DocumentRow kAcmeDocuments[] = {
    {1001, 2, "ab-slash.txt", "Slash folder note", Kind::Text, L},
    {1002, 3, "ab-colon.txt", "Colon folder note", Kind::Text, L},
    {1003, 4, "policy.pdf", "Admin policy", Kind::Pdf, L},
    {1004, 23, "visitors.csv", "Visitor log", Kind::Csv, L},
    {1005, 6, "master-agreement.pdf", "Master agreement", Kind::Pdf, L},
    {1006, 24, "suppliers.csv", "Supplier list", Kind::Csv, L},
    {1007, 7, "minutes.txt", "Minutes 12/03/2015", Kind::Text, L},
    {1008, 7, "agenda.txt", "Agenda: Kick-off", Kind::Text, L},
    {1009, 7, "faq.txt", "What is new?", Kind::Text, L},
    {1010, 7, "specs.txt", "Specs *draft*", Kind::Text, L},
    {1011, 7, "quote.txt", "Quote \"Alpha\"", Kind::Text, L},
    {1012, 7, "internal.txt", "<Internal> memo", Kind::Text, L},
    {1013, 7, "survey.csv", "Yes|No survey", Kind::Csv, L},
    {1014, 7, "paths.txt", "C:\\Temp notes", Kind::Text, L},
    {1015, 7, "all-marks.txt", "All marks \\ / : * ? \" < > | here", Kind::Text, L},
    {1016, 7, "padded.txt", "  Padded title  ", Kind::Text, L},
    {1017, 7, "dup-first.txt", "Duplicate title", Kind::Text, L},
    {1018, 7, "dup-second.txt", "Duplicate title", Kind::Text, L},
    {1019, 7, "long.txt", nullptr, Kind::Text, L}, // title built below
    {1020, 7, "blank.txt", "", Kind::Text, L},
    {1021, 7, "spaces", "   ", Kind::Text, L},
    {1022, 7, "nothing", "", Kind::Text, L},
    {1023, 7, "README", "Plain notes", Kind::Text, L},
    {1024, 7, "report.final.docx ", "Final report", Kind::Docx, L},
    {1025, 8, "summary-2006.txt", "Summary 2006", Kind::Text, L},
    {1026, 10, "q1.csv", "Q1 figures", Kind::Csv, L},
    {1027, 10, "chart.png", "Revenue chart", Kind::Png, L},
    {1028, 28, "ledger-index.txt", "Ledger index", Kind::Text, L},
    {1029, 29, "budget-2017.csv", "Budget 2017", Kind::Csv, L},
    {1030, 22, "inv-001.pdf", "Invoice 001", Kind::Pdf, L},
    {1031, 22, "inv-002.pdf", "Invoice 002", Kind::Pdf, L},
    {1032, 11, "welcome.rtf", "Welcome letter", Kind::Rtf, L},
    {1033, 12, "nda.rtf", "NDA template", Kind::Rtf, L},
    {1034, 30, "case-list.txt", "Case list", Kind::Text, L},
    {1035, 31, "case-2017.pdf", "Case 2017-01", Kind::Pdf, L},
    {1036, 13, "logo.png", "Logo", Kind::Png, L},
    {1037, 13, "brochure.pdf", "Brochure", Kind::Pdf, L},
    {1038, 14, "charter.docx", "Project charter", Kind::Docx, L},
    {1039, 25, "plan.txt", "Master plan", Kind::Text, L},
    {1040, 26, "timeline.csv", "Timeline 2016", Kind::Csv, L},
    {1041, 27, "report-q4.pdf", "Q4 report", Kind::Pdf, L},
    {1042, 27, "figures.png", "Figures", Kind::Png, L},
    {1043, 15, "draft.txt", "Draft 1", Kind::Text, L},
    {1044, 16, "old-memo.txt", "Old memo", Kind::Text, L},
    {1045, 17, "letter.rtf", "Letter template", Kind::Rtf, L},
    {1046, 17, "cv.txt", "R\xC3\xA9sum\xC3\xA9 M\xC3\xBCller", Kind::Text, L},
    {1047, 18, "course.pdf", "Course outline", Kind::Pdf, L},
    {1048, 19, "misc", "Miscellaneous", Kind::Text, L},
    {1101, 28, "ledger-2009.csv", "Ledger 2009", Kind::Csv, A},
    {1102, 28, "audit.pdf", "Audit 2009", Kind::Pdf, A},
    {1110, 30, "case-2008.pdf", "Case 2008-04", Kind::Pdf, A},
    {1111, 30, "settlement.rtf", "Settlement", Kind::Rtf, A},
    {1120, 32, "minutes-2009.txt", "Minutes 2009", Kind::Text, A},
    {1121, 32, "minutes-2010.txt", "Minutes 2010", Kind::Text, A},
    {1122, 32, "lost.txt", "Lost minutes", Kind::Text, A},
    {1130, 35, "closeout.pdf", "Closeout report", Kind::Pdf, A},
    {1131, 35, "photo.png", "Site photo", Kind::Png, A},
    {1140, 36, "accounts.csv", "Closed accounts", Kind::Csv, A},
    {1150, 38, "branch-history.txt", "Branch history", Kind::Text, A},
    {1160, 20, "index.txt", "Archive index", Kind::Text, A},
};

// Archived in the repository, but its bytes never reached the archive database.
constexpr qint64 kMissingBytes = 1122;

const FolderSpec kGlobexFolders[] = {
    {1, 0, "Globex Inc", "ROOT", 1, L},
    {2, 1, "Sales", "FOLDER", 1, L},
    {3, 1, "Support", "FOLDER", 2, L},
    {4, 3, "Tickets", "FOLDER", 3, L},
};

const DocumentRow kGlobexDocuments[] = {
    {1001, 2, "pitch.pdf", "Sales pitch", Kind::Pdf, L},
    {1002, 3, "faq.txt", "Support FAQ", Kind::Text, L},
    {1003, 4, "tickets.csv", "Open tickets", Kind::Csv, L},
};

// A repository inconsistency kept apart from Acme, so that Acme's archive opens at every depth:
// "Shared Cases" is in both folder lists.
const FolderSpec kTwofoldFolders[] = {
    {1, 0, "Twofold Ltd", "ROOT", 1, L},
    {2, 1, "Current Cases", "FOLDER", 8, L},
    {3, 1, "Shared Cases", "FOLDER", 7, LA},
};

const DocumentRow kTwofoldDocuments[] = {
    {2001, 2, "case-2019.pdf", "Case 2019-02", Kind::Pdf, L},
    {2002, 3, "case-list.txt", "Case list", Kind::Text, L},
    {2003, 3, "case-2008.pdf", "Case 2008-04", Kind::Pdf, A},
};

QString longTitle()
{
    QString title = QStringLiteral("Long title");
    const QString words[] = {QStringLiteral("quarterly"), QStringLiteral("operations"), QStringLiteral("review"),
                             QStringLiteral("and"), QStringLiteral("forecast")};
    for (int i = 0; title.size() < 300; ++i)
        title += QLatin1Char(' ') + words[i % 5];
    return title.left(300);
}

QString dateText(const QDate &date, int h, int m, int s, int ms)
{
    return QStringLiteral("%1 %2:%3:%4.%5")
        .arg(date.toString(QStringLiteral("yyyy-MM-dd")))
        .arg(h, 2, 10, QLatin1Char('0'))
        .arg(m, 2, 10, QLatin1Char('0'))
        .arg(s, 2, 10, QLatin1Char('0'))
        .arg(ms, 3, 10, QLatin1Char('0'));
}

QByteArray contentOf(const QString &company, qint64 id, const QString &title, const QString &fileName, Kind kind)
{
    const QString heading = QStringLiteral("Document %1: %2").arg(id).arg(title);
    switch (kind) {
    case Kind::Text:
        return textFile(heading, QStringLiteral("%1 document repository.\r\nStored as \"%2\".\r\n")
                                     .arg(company, fileName));
    case Kind::Pdf:
        return pdfFile(heading);
    case Kind::Png:
        return pngFile(24, 16, quint32(id) * 2654435761u, heading);
    case Kind::Csv:
        return csvFile(heading, int(id % 7) + 3);
    case Kind::Rtf:
        return rtfFile(heading);
    case Kind::Docx:
        return docxFile(heading);
    }
    return {};
}

Document makeDocument(const QString &company, const DocumentRow &row)
{
    Document d;
    d.recId = row.id;
    d.folder = row.folder;
    d.fileName = QString::fromUtf8(row.fileName);
    // A plain "" would read back as a null QString, which the driver stores as NULL.
    d.description = row.description ? QString::fromUtf8(row.description) : longTitle();
    if (d.description.isNull())
        d.description = QLatin1String("");
    d.lifecycle = row.lifecycle;
    d.data = contentOf(company, row.id, d.description, d.fileName, row.kind);

    // Ordinary documents carry both dates, spread over a few years; the cases below override them.
    const QDate actual = QDate(2013, 1, 7).addDays((row.id * 37) % 1400);
    d.actualDate = dateText(actual, 9 + row.id % 8, (row.id * 7) % 60, (row.id * 13) % 60, 0);
    d.uploadedDate = dateText(actual.addDays(1 + row.id % 5), 10, 15, 30, 0);
    switch (row.id) {
    case 1007:
        d.actualDate = QStringLiteral("2016-03-05 14:07:09.250");
        d.uploadedDate = QStringLiteral("2016-03-06 08:00:00.000");
        break;
    case 1008:
        d.actualDate.clear();
        d.uploadedDate = QStringLiteral("2015-12-31 23:59:59.000");
        break;
    case 1009:
        d.actualDate.clear();
        d.uploadedDate.clear();
        break;
    case 1010:
        d.actualDate = QStringLiteral("2014-07-01 08:30:00.005");
        d.uploadedDate = QStringLiteral("2014-07-02 09:00:00.000");
        break;
    case 1011:
        d.actualDate = QStringLiteral("2016-07-15 12:00:00.000");
        d.uploadedDate = QStringLiteral("2016-07-16 12:00:00.000");
        break;
    default:
        break;
    }
    return d;
}

Folder makeFolder(const FolderSpec &row)
{
    Folder f;
    f.recId = row.id;
    f.parent = row.parent;
    f.name = QString::fromUtf8(row.name);
    f.type = QString::fromLatin1(row.type);
    f.icon = row.icon;
    f.isAdmin = f.type == QLatin1String("ADMIN");
    f.lifecycle = row.lifecycle;
    f.timeStamp = dateText(QDate(2017, 1, 2).addDays(row.id), 6, int(row.id % 60), 0, 0);
    return f;
}

using Filler = std::function<bool(SqliteFile &, QString *)>;

// Creates one database file and fills it inside a single transaction.
bool writeDatabase(const QString &dir, const QString &name, const Filler &fill, QString *error)
{
    SqliteFile db(databaseFile(dir, name));
    if (!db.open(error) || !db.begin(error))
        return false;
    if (!fill(db, error))
        return false;
    if (!db.commit(error))
        return false;
    db.close();
    return true;
}

template <size_t NF, size_t ND>
bool fillCompany(SqliteFile &db, const QString &company, const FolderSpec (&folders)[NF],
                 const DocumentRow (&documents)[ND], QString *error)
{
    if (!createCompanyTables(db, error))
        return false;
    {
        CompanyWriter writer(db);
        for (const FolderSpec &row : folders) {
            if (!writer.addFolder(makeFolder(row), error))
                return false;
        }
        for (const DocumentRow &row : documents) {
            if (!writer.addDocument(makeDocument(company, row), error))
                return false;
        }
    }
    return buildFolderMatrix(db, error) && createCompanyIndexes(db, error);
}

template <size_t ND>
bool fillArchive(SqliteFile &db, const QString &company, const DocumentRow (&documents)[ND], QString *error)
{
    if (!createArchiveTables(db, error))
        return false;
    ArchiveWriter writer(db);
    for (const DocumentRow &row : documents) {
        if (row.lifecycle != A || row.id == kMissingBytes)
            continue;
        if (!writer.addBytes(row.id, makeDocument(company, row).data, error))
            return false;
    }
    return true;
}

bool fillCatalogue(SqliteFile &db, QString *error)
{
    return createCatalogueTables(db, error) && addCompany(db, 1, kAcme, QStringLiteral("L"), 0, error)
        && addCompany(db, 2, kAcmeArchive, QStringLiteral("A"), 1, error)
        && addCompany(db, 3, kGlobex, QStringLiteral("l"), 0, error)
        && addCompany(db, 4, kInitech, QStringLiteral("L"), 0, error)
        && addCompany(db, 5, kScratch, QStringLiteral("L"), 0, error)
        && addCompany(db, 6, kVandelayArchive, QStringLiteral("a"), 99, error)
        && addCompany(db, 7, kTwofold, QStringLiteral("L"), 0, error)
        && addCompany(db, 8, kTwofoldArchive, QStringLiteral("A"), 7, error);
}

bool fillScratch(SqliteFile &db, QString *error)
{
    return db.exec(QStringLiteral("CREATE TABLE notes (id INTEGER NOT NULL PRIMARY KEY, body TEXT COLLATE NOCASE)"),
                   error)
        && db.exec(QStringLiteral("INSERT INTO notes (id, body) VALUES (1, 'Shopping list'), "
                                  "(2, 'Not a document repository')"),
                   error);
}

bool writeServerIni(const QString &dir, QString *error)
{
    const QString path = QDir(dir).filePath(kServerIni);
    {
        QSettings ini(path, QSettings::IniFormat);
        ini.beginGroup(QStringLiteral("logins"));
        ini.setValue(QStringLiteral("demo"), QString(QLatin1String("")));
        ini.endGroup();
        ini.sync();
        if (ini.status() == QSettings::NoError)
            return true;
    }
    if (error)
        *error = QStringLiteral("Cannot write %1").arg(QDir::toNativeSeparators(path));
    return false;
}

// Removes the demo's own files (and any journal a crashed writer left behind).
bool removeDemoFiles(const QString &dir, QString *error)
{
    QDir d(dir);
    QStringList names = demoFileNames();
    names << kInitech + QStringLiteral(".sqlite"); // must stay absent: the catalogue lists it without a file
    for (const QString &name : std::as_const(names)) {
        QStringList variants{name};
        if (name.endsWith(QLatin1String(".sqlite")))
            variants << name + QStringLiteral("-journal") << name + QStringLiteral("-wal")
                     << name + QStringLiteral("-shm");
        for (const QString &variant : std::as_const(variants)) {
            const QString path = d.filePath(variant);
            if (QFileInfo(path).isDir()) {
                if (error)
                    *error = QStringLiteral("%1 is a folder; the demo needs that name for a file")
                                 .arg(QDir::toNativeSeparators(path));
                return false;
            }
            if (QFileInfo::exists(path) && !QFile::remove(path)) {
                if (error)
                    *error = QStringLiteral("Cannot replace %1").arg(QDir::toNativeSeparators(path));
                return false;
            }
        }
    }
    return true;
}

bool writeAll(const QString &dir, QString *error)
{
    return writeDatabase(dir, kCatalogue, fillCatalogue, error)
        && writeDatabase(
               dir, kAcme,
               [](SqliteFile &db, QString *e) { return fillCompany(db, kAcme, kAcmeFolders, kAcmeDocuments, e); },
               error)
        && writeDatabase(
               dir, kAcmeArchive, [](SqliteFile &db, QString *e) { return fillArchive(db, kAcme, kAcmeDocuments, e); },
               error)
        && writeDatabase(
               dir, kGlobex,
               [](SqliteFile &db, QString *e) {
                   return fillCompany(db, kGlobex, kGlobexFolders, kGlobexDocuments, e);
               },
               error)
        && writeDatabase(
               dir, kTwofold,
               [](SqliteFile &db, QString *e) {
                   return fillCompany(db, kTwofold, kTwofoldFolders, kTwofoldDocuments, e);
               },
               error)
        && writeDatabase(
               dir, kTwofoldArchive,
               [](SqliteFile &db, QString *e) { return fillArchive(db, kTwofold, kTwofoldDocuments, e); }, error)
        && writeDatabase(dir, kScratch, fillScratch, error)
        && writeDatabase(dir, kVandelayArchive, createArchiveTables, error) && writeServerIni(dir, error);
}

} // namespace

QStringList demoFileNames()
{
    QStringList names;
    for (const QString &db :
         {kCatalogue, kAcme, kAcmeArchive, kGlobex, kTwofold, kTwofoldArchive, kScratch, kVandelayArchive})
        names << db + QStringLiteral(".sqlite");
    names << kServerIni;
    return names;
}

bool writeDemoRepository(const QString &dir, QString *error)
{
    QString localError;
    QString *err = error ? error : &localError;
    if (dir.trimmed().isEmpty()) {
        *err = QStringLiteral("No folder given for the demo repository");
        return false;
    }
    const QFileInfo info(dir);
    if (info.exists() && !info.isDir()) {
        *err = QStringLiteral("%1 exists and is not a folder").arg(QDir::toNativeSeparators(dir));
        return false;
    }
    if (!QDir().mkpath(dir)) {
        *err = QStringLiteral("Cannot create the folder %1").arg(QDir::toNativeSeparators(dir));
        return false;
    }
    if (!removeDemoFiles(dir, err))
        return false;
    if (writeAll(dir, err))
        return true;
    // Half a demo would fail in puzzling ways later; leave none at all.
    QString ignored;
    removeDemoFiles(dir, &ignored);
    return false;
}

} // namespace demo
