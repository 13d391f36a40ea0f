// The export engine against the demo repository: signed in and ticked as the window does it,
// then compared file by file with the repository read directly through SQLite.

#include "demo/demorepository.h"
#include "errors/hunterr.h"
#include "export/exporter.h"
#include "repository/signin.h"
#include "exportcheck.h"
#include "testsupport.h"
#include "tree/foldertree.h"
#include "tree/treeprocs.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QSqlDatabase>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

namespace {

QStringList g_shown; // what the error trail would have put in front of the person

// Sign-in state, tree and procedures, driven through the same calls as the window.
struct Session {
    PlainFormPort port;
    SignIn signIn{port};
    FolderTree tree;
    TreeProcs procs{signIn, tree};

    bool open(const QString &server, const QString &database)
    {
        port.server = server;
        port.user = QStringLiteral("demo");
        port.password.clear();
        if (!HuntERR::handler(QStringLiteral("FrmSendtofolder.cboDBName_GotFocus"),
                              [&] { signIn.refreshDatabaseList(); }))
            return false;
        port.database = database;
        if (!HuntERR::handler(QStringLiteral("FrmSendtofolder.cboDBName_Click"), [&] { signIn.cboDBName_Click(); }))
            return false;
        bool proceed = false;
        QString focus;
        const bool ok = HuntERR::handler(QStringLiteral("FrmSendtofolder.cmdlogin_Click"), [&] {
            proceed = signIn.validateAndPrepare(&focus);
            if (proceed)
                procs.Load_Trees();
        });
        return ok && proceed && !signIn.blnInvalidDb && tree.count() == 1 && port.messages.isEmpty();
    }

    FolderTree::Node *node(int id) const { return tree.find(QStringLiteral("Fold%1").arg(id)); }

    bool click(int id)
    {
        FolderTree::Node *n = node(id);
        return n && procs.tvDefaultRoot_NodeClick(n);
    }

    // The box changes in the view, then the tree reports the check and the click.
    bool tick(int id, bool on = true)
    {
        FolderTree::Node *n = node(id);
        if (!n)
            return false;
        tree.setChecked(n, on);
        return procs.tvDefaultRoot_NodeCheck(n) && procs.tvDefaultRoot_Click();
    }

    void tickAllUnderRoot()
    {
        QVERIFY(click(1));
        const std::vector<FolderTree::Node *> children = node(1)->children;
        QVERIFY(!children.empty());
        for (FolderTree::Node *child : children)
            QVERIFY(tick(int(folderIdOfKey(child->key))));
    }
};

// Everything the observer hears, in order, as text; the content of each file as just written.
struct Recorder : ExportObserver {
    QStringList events;
    QHash<QString, QByteArray> lastWritten;
    bool readBack = false;
    void folderStarted(const QString &path) override { events << QStringLiteral("folder ") + path; }
    void directoryRemoved(const QString &path) override { events << QStringLiteral("removed ") + path; }
    void directoryCreated(const QString &path) override { events << QStringLiteral("created ") + path; }
    void documentWritten(const QString &filePath, qint64 bytes) override
    {
        events << QStringLiteral("file %1 %2").arg(filePath).arg(bytes);
        if (readBack) {
            QFile f(filePath);
            lastWritten[filePath] = f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<unreadable>");
        }
    }
    void failureLogged(const QString &line) override { events << QStringLiteral("failure ") + line; }
};

QString readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? QString::fromLocal8Bit(f.readAll()) : QString();
}

bool odbcDriverRegistered(const QString &name)
{
#ifdef Q_OS_WIN
    QSettings reg(QStringLiteral("HKEY_LOCAL_MACHINE\\SOFTWARE\\ODBC\\ODBCINST.INI\\ODBC Drivers"), QSettings::NativeFormat);
    return reg.contains(name);
#else
    if (!QSqlDatabase::isDriverAvailable(QStringLiteral("QODBC")))
        return false;
    for (const QString &ini : {QStringLiteral("/etc/odbcinst.ini"), QStringLiteral("/usr/local/etc/odbcinst.ini")}) {
        if (QSettings(ini, QSettings::IniFormat).childGroups().contains(name))
            return true;
    }
    return false;
#endif
}

} // namespace

class TestExport : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_tmp;
    QString m_server;
    QByteArray m_serverHash;
    int m_destinations = 0;

    QString freshDestination()
    {
        const QString dir = m_tmp.filePath(QStringLiteral("dest%1").arg(++m_destinations));
        QDir().mkpath(dir);
        return dir;
    }
    QString freshLogFolder()
    {
        return m_tmp.filePath(QStringLiteral("logs%1").arg(++m_destinations));
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_tmp.isValid());
        // A zone with daylight saving, so "today's offset" and the document's own can differ.
        qputenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
        // The documents folder must be the test's own.
        const QString home = m_tmp.filePath(QStringLiteral("home"));
        QDir().mkpath(home);
        qputenv("HOME", QFile::encodeName(home));
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(home + QStringLiteral("/.config")));
        qunsetenv("XDG_DOCUMENTS_DIR");
        HuntERR::reset();
        HuntERR::setShower([](const QString &message) { g_shown << message; });

        QString error;
        m_server = writeDemo(m_tmp.path(), &error);
        QVERIFY2(!m_server.isEmpty(), qPrintable(error));
        m_serverHash = sha256OfTree(m_server);
    }

    void init() { g_shown.clear(); }

    void cleanupTestCase()
    {
        // The tool only reads: the repository files are untouched by every run above.
        QCOMPARE(sha256OfTree(m_server), m_serverHash);
    }

    void namesAndTexts()
    {
        QString folder = QStringLiteral(" Q1: Plans/Drafts ");
        QCOMPARE(RemoveSpChr(folder), QStringLiteral("Q1  Plans Drafts"));
        QCOMPARE(folder, QStringLiteral(" Q1  Plans Drafts ")); // the caller keeps the untrimmed form
        QString all = QStringLiteral("\\/:*?\"<>|");
        QCOMPARE(RemoveSpChr(all), QString());
        QCOMPARE(all, QString(9, QLatin1Char(' ')));
        QString tabbed = QStringLiteral("\tName\t");
        QCOMPARE(RemoveSpChr(tabbed), QStringLiteral("\tName\t")); // only blanks are trimmed

        QCOMPARE(cleanDocumentTitle(QStringLiteral("  Agenda: Kick-off  ")), QStringLiteral("  Agenda  Kick-off  "));
        QCOMPARE(GetFileExtension(QStringLiteral("report.final.docx ")), QStringLiteral(".docx"));
        QCOMPARE(GetFileExtension(QStringLiteral("README")), QString());
        QCOMPARE(GetFileExtension(QStringLiteral("Photo.JPG")), QStringLiteral(".JPG"));
        QCOMPARE(GetFileExtension(QStringLiteral("  archive.tar.gz  ")), QStringLiteral(".gz"));
        QCOMPARE(GetFileExtension(QString()), QString());

        QVERIFY(titleCanBeFileName(QStringLiteral("  Padded title  "), QStringLiteral(".txt")));
        QVERIFY(titleCanBeFileName(QStringLiteral("Résumé Müller"), QStringLiteral(".txt")));
        QVERIFY(!titleCanBeFileName(QString(), QStringLiteral(".txt")));
        QVERIFY(!titleCanBeFileName(QStringLiteral("   "), QString()));
        QVERIFY(!titleCanBeFileName(QStringLiteral("."), QString()));
        QVERIFY(!titleCanBeFileName(QStringLiteral(".."), QStringLiteral(".txt")));
        QVERIFY(titleCanBeFileName(QString(251, QLatin1Char('x')), QStringLiteral(".txt")));  // 255 bytes
        QVERIFY(!titleCanBeFileName(QString(252, QLatin1Char('x')), QStringLiteral(".txt"))); // 256 bytes
        // The limit is in bytes of the local encoding, not in characters.
        QVERIFY(!titleCanBeFileName(QString(128, QChar(0x00FC)), QString()));

        QCOMPARE(exportLogNameFor(QDateTime(QDate(2021, 3, 3), QTime(9, 5))),
                 QString(pathSeparator()) + QStringLiteral("zarnivo Parcelwise Log 20213395.txt"));
        QCOMPARE(exportLogNameFor(QDateTime(QDate(2021, 12, 5), QTime(12, 30, 59))),
                 QString(pathSeparator()) + QStringLiteral("zarnivo Parcelwise Log 20211251230.txt"));

        // The documents folder: created when missing, no trailing separator.
        const QString documents = fxnGetMyFolderLocation();
        QCOMPARE(QDir::fromNativeSeparators(documents), m_tmp.filePath(QStringLiteral("home/Documents")));
        QVERIFY(QFileInfo(documents).isDir());
    }

    void dateTexts()
    {
        const int offset = QDateTime::currentDateTime().offsetFromUtc();
        QCOMPARE(offset % 3600, 0);
        QVERIFY(offset != 0); // the zone set above is in force
        // Milliseconds dropped, the wall time taken with today's offset.
        QCOMPARE(fileDateFromRepositoryText(QStringLiteral("20160305 140709.250")),
                 QDateTime(QDate(2016, 3, 5), QTime(14, 7, 9), Qt::UTC).addSecs(-offset));
        QCOMPARE(fileDateFromRepositoryText(QStringLiteral("20151231 235959.00")),
                 QDateTime(QDate(2015, 12, 31), QTime(23, 59, 59), Qt::UTC).addSecs(-offset));
        // A summer date converted with a winter offset (or the other way round) is an hour off
        // its true instant; that is how exported files have always been dated.
        const QDateTime summer = fileDateFromRepositoryText(QStringLiteral("20160715 120000.000"));
        const QDateTime trueInstant(QDate(2016, 7, 15), QTime(12, 0), Qt::LocalTime);
        QCOMPARE(summer.secsTo(trueInstant), qint64(offset - trueInstant.offsetFromUtc()));

        for (const QString &bad : {QStringLiteral(""), QStringLiteral("20160305"), QStringLiteral("2016-03-05 14:07:09"),
                                   QStringLiteral("20161305 140709.000"), QStringLiteral("2016030x 140709.000")}) {
            bool raised = false;
            try {
                fileDateFromRepositoryText(bad);
            } catch (const HuntERR::Error &) {
                raised = true;
            }
            QVERIFY2(raised, qPrintable(bad));
        }
    }

    void liveExportMatchesRepository()
    {
        Session s;
        QVERIFY(s.open(m_server, QStringLiteral("Acme")));
        QVERIFY(!s.signIn.blnArchive);
        s.tickAllUnderRoot();
        QVERIFY(g_shown.isEmpty());

        const QString dest = freshDestination();
        s.signIn.DestinationPath = QDir::toNativeSeparators(dest);
        Exporter exporter(s.signIn, s.procs);
        exporter.logFolderOverride = freshLogFolder();
        Recorder recorder;
        recorder.readBack = true;
        exporter.observer = &recorder;
        const QDateTime start = QDateTime::currentDateTime();
        QVERIFY(!exporter.run());

        // Nothing failed: no log, nothing opened, nothing shown.
        QVERIFY(!exporter.LogWritten);
        QVERIFY(s.port.openedLog.isEmpty());
        QVERIFY(!QFileInfo::exists(exporter.logFolderOverride + exporter.ExportLogName));
        QCOMPARE(exporter.stats.failures, 0);
        QVERIFY(g_shown.isEmpty());

        RepositoryReader reader(m_server, QStringLiteral("Acme"));
        QVERIFY(reader.ok());
        ExpectedTree expected;
        for (const auto &child : reader.children(1)) {
            reader.addSubtree(child.first, expectedDirectoryName(child.second), expected);
        }
        compareWithRepository(dest, expected, start, &recorder.lastWritten);
        QCOMPARE(exporter.stats.documents, qint64(recorder.events.filter(QStringLiteral("file ")).size()));
        QCOMPARE(exporter.stats.folders, qint64(recorder.events.filter(QStringLiteral("created ")).size()));

        // The cases by name, so a wrong shared rule in the reading above cannot hide them.
        const QString docs = dest + QStringLiteral("/Docs/");
        QVERIFY(QFileInfo::exists(docs + QStringLiteral("Minutes 12 03 2015.txt")));
        QVERIFY(QFileInfo::exists(docs + QStringLiteral("Agenda  Kick-off.txt")));
        QVERIFY(QFileInfo::exists(docs + QStringLiteral("Quote  Alpha .txt")));
        QVERIFY(QFileInfo::exists(docs + QStringLiteral("C  Temp notes.txt")));
        QVERIFY(QFileInfo::exists(docs + QStringLiteral("All marks") + QString(19, QLatin1Char(' '))
                                  + QStringLiteral("here.txt")));
        QVERIFY(QFileInfo::exists(docs + QStringLiteral("  Padded title  .txt")));
        QVERIFY(QFileInfo::exists(docs + QStringLiteral("[1019].txt"))); // too long
        QVERIFY(QFileInfo::exists(docs + QStringLiteral("[1020].txt"))); // empty title
        QVERIFY(QFileInfo::exists(docs + QStringLiteral("[1021]")));     // blanks, no extension
        QVERIFY(QFileInfo::exists(docs + QStringLiteral("[1022]")));
        QVERIFY(QFileInfo::exists(docs + QStringLiteral("Plain notes")));
        QVERIFY(QFileInfo::exists(docs + QStringLiteral("Final report.docx")));
        QVERIFY(QFileInfo::exists(dest + QStringLiteral("/Templates/Résumé Müller.txt")));
        QVERIFY(QFileInfo::exists(dest + QStringLiteral("/Q1  Plans Drafts/Draft 1.txt")));
        QVERIFY(QFileInfo::exists(dest + QStringLiteral("/Projects/Plans/2016/Reports/Q4 report.pdf")));
        const QString dup = readAll(docs + QStringLiteral("Duplicate title.txt"));
        QVERIFY(dup.contains(QLatin1String("1017")) != dup.contains(QLatin1String("1018")));
        // "A/B" then "A:B": both clean to "A B", and the second replaced the first.
        QCOMPARE(QDir(dest + QStringLiteral("/A B")).entryList(QDir::Files), QStringList{QStringLiteral("Colon folder note.txt")});
        QVERIFY(QDir(dest + QStringLiteral("/Empty Folder")).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot));

        // Dates: the document's own, else the upload date, else the moment of writing.
        const int offset = QDateTime::currentDateTime().offsetFromUtc();
        QCOMPARE(QFileInfo(docs + QStringLiteral("Minutes 12 03 2015.txt")).lastModified().toSecsSinceEpoch(),
                 QDateTime(QDate(2016, 3, 5), QTime(14, 7, 9), Qt::UTC).addSecs(-offset).toSecsSinceEpoch());
        QCOMPARE(QFileInfo(docs + QStringLiteral("Agenda  Kick-off.txt")).lastModified().toSecsSinceEpoch(),
                 QDateTime(QDate(2015, 12, 31), QTime(23, 59, 59), Qt::UTC).addSecs(-offset).toSecsSinceEpoch());
        QVERIFY(QFileInfo(docs + QStringLiteral("What is new .txt")).lastModified() >= start.addSecs(-2));
        // Both dates null: the file keeps its times and the answer is false; a dated document's
        // file takes its date whatever it had before.
        const QString undated = docs + QStringLiteral("What is new .txt");
        const QDateTime earlier(QDate(2001, 2, 3), QTime(4, 5, 6), Qt::UTC);
        for (const QString &path : {undated, docs + QStringLiteral("Minutes 12 03 2015.txt")}) {
            QFile f(path);
            QVERIFY(f.open(QIODevice::ReadWrite));
            QVERIFY(f.setFileTime(earlier, QFileDevice::FileModificationTime));
        }
        QVERIFY(!exporter.fxnSetFileDate(s.signIn.cnDb(), 1009, undated));
        QCOMPARE(QFileInfo(undated).lastModified().toSecsSinceEpoch(), earlier.toSecsSinceEpoch());
        QVERIFY(exporter.fxnSetFileDate(s.signIn.cnDb(), 1007, docs + QStringLiteral("Minutes 12 03 2015.txt")));
        QCOMPARE(QFileInfo(docs + QStringLiteral("Minutes 12 03 2015.txt")).lastModified().toSecsSinceEpoch(),
                 QDateTime(QDate(2016, 3, 5), QTime(14, 7, 9), Qt::UTC).addSecs(-offset).toSecsSinceEpoch());
        QVERIFY(!exporter.fxnSetFileDate(s.signIn.cnDb(), 999999, undated)); // no such document

        // The status line names the last document after it was written.
        QCOMPARE(s.port.status, QStringLiteral(" Copying File: ") + QDir::toNativeSeparators(dest + QStringLiteral("/Unsorted/"))
                                    + QStringLiteral("Miscellaneous"));
    }

    void loadedChildrenPlacementAndReplacement()
    {
        Session s;
        QVERIFY(s.open(m_server, QStringLiteral("Acme")));
        QVERIFY(s.click(1));
        QVERIFY(s.click(14)); // Projects: Plans is now a node of its own
        QVERIFY(s.tick(14));
        QVERIFY(s.node(25)->checked); // ticked with its parent
        QVERIFY(s.click(11));         // Head Office > Filing Room, then tick only the grandchild
        QVERIFY(s.click(21));
        QVERIFY(s.tick(22));
        QVERIFY(g_shown.isEmpty());

        RepositoryReader reader(m_server, QStringLiteral("Acme"));
        ExpectedTree expected;
        expected.replace(QStringLiteral("Projects"));
        reader.addDocuments(14, QStringLiteral("Projects"), expected);
        reader.addSubtree(25, QStringLiteral("Projects/Plans"), expected);
        reader.addSubtree(22, QStringLiteral("Invoices"), expected); // no unticked folder in its path

        for (const QString &ending : {QString(), QString(pathSeparator())}) {
            const QString dest = freshDestination();
            // What an earlier run left behind is replaced, stray files included.
            QDir().mkpath(dest + QStringLiteral("/Projects/Old"));
            QFile stray(dest + QStringLiteral("/Projects/Old/stray.txt"));
            QVERIFY(stray.open(QIODevice::WriteOnly));
            stray.write("left over");
            stray.close();
            QVERIFY(stray.setPermissions(QFile::ReadOwner)); // read-only goes too

            s.signIn.DestinationPath = QDir::toNativeSeparators(dest) + ending;
            Exporter exporter(s.signIn, s.procs);
            exporter.logFolderOverride = freshLogFolder();
            Recorder recorder;
            exporter.observer = &recorder;
            const QDateTime start = QDateTime::currentDateTime();
            QVERIFY2(!exporter.run(), qPrintable(recorder.events.filter(QStringLiteral("failure")).join('\n')));
            compareWithRepository(dest, expected, start);
            const QString native = QDir::toNativeSeparators(dest) + pathSeparator();
            QVERIFY(recorder.events.contains(QStringLiteral("removed ") + native + QStringLiteral("Projects")));
            QVERIFY(recorder.events.contains(QStringLiteral("created ") + native + QStringLiteral("Projects")));
            QVERIFY(recorder.events.contains(QStringLiteral("created ") + native + QStringLiteral("Projects")
                                             + pathSeparator() + QStringLiteral("Plans")));
        }
    }

    void archiveExportMatchesRepository()
    {
        Session s;
        QVERIFY(s.open(m_server, QStringLiteral("AcmeArchive")));
        QVERIFY(s.signIn.blnArchive);
        s.tickAllUnderRoot();
        QVERIFY(g_shown.isEmpty());
        QCOMPARE(s.node(1)->children.size(), size_t(4));

        const QString dest = freshDestination();
        s.signIn.DestinationPath = QDir::toNativeSeparators(dest);
        Exporter exporter(s.signIn, s.procs);
        exporter.logFolderOverride = freshLogFolder();
        Recorder recorder;
        recorder.readBack = true;
        exporter.observer = &recorder;
        const QDateTime start = QDateTime::currentDateTime();
        QVERIFY(!exporter.run());
        QCOMPARE(exporter.stats.failures, 0);
        QVERIFY(g_shown.isEmpty());

        RepositoryReader reader(m_server, QStringLiteral("Acme"), QStringLiteral("AcmeArchive"));
        QVERIFY(reader.ok());
        ExpectedTree expected;
        for (const auto &child : reader.children(1)) {
            reader.addSubtree(child.first, expectedDirectoryName(child.second), expected);
        }
        compareWithRepository(dest, expected, start, &recorder.lastWritten);

        // Archived documents only; folders without any below them get no directory; the
        // document whose bytes are missing from the archive store is not written.
        QVERIFY(QFileInfo::exists(dest + QStringLiteral("/Finance/Ledgers 2009/Ledger 2009.csv")));
        QVERIFY(!QFileInfo::exists(dest + QStringLiteral("/Finance/Ledgers 2009/Ledger index.txt")));
        QVERIFY(!QFileInfo::exists(dest + QStringLiteral("/Finance/Budgets")));
        QVERIFY(!QFileInfo::exists(dest + QStringLiteral("/Archive 2010/Empty Archived")));
        QVERIFY(!QFileInfo::exists(dest + QStringLiteral("/Archive 2010/Board Minutes/Lost minutes.txt")));
        QVERIFY(QFileInfo::exists(dest + QStringLiteral("/Archive 2010/Old Projects/Phase 1/Closeout/Site photo.png")));
        QVERIFY(QFileInfo::exists(dest + QStringLiteral("/Legal/Shared Cases/Settlement.rtf")));
    }

    void failuresAreLoggedAndTheWalkGoesOn()
    {
        Session s;
        QVERIFY(s.open(m_server, QStringLiteral("Acme")));
        QVERIFY(s.click(1));
        QVERIFY(s.tick(14)); // Projects, never opened: its subtree comes from the repository
        QVERIFY(s.tick(17)); // Templates
        QVERIFY(s.tick(18)); // Training

        const QString dest = freshDestination();
        // A file stands where the Projects and Templates directories must be created.
        for (const QString &blocker : {QStringLiteral("/Projects"), QStringLiteral("/Templates")}) {
            QFile f(dest + blocker);
            QVERIFY(f.open(QIODevice::WriteOnly));
        }
        s.signIn.DestinationPath = QDir::toNativeSeparators(dest);
        const QChar sep = pathSeparator();
        auto rel = [&](QString p) { return p.replace(QLatin1Char('/'), sep); };
        const QStringList expectedLines = {
            QStringLiteral("Folder ID: 14 , Folder Name: Projects , Folder Location: Projects"),
            QStringLiteral("Folder ID: 25 , Folder Name: Plans , Folder Location: ") + rel("Projects/Plans"),
            QStringLiteral("File ID: 1039 , File Name: Master plan , File Location: ") + rel("Projects/Plans"),
            QStringLiteral("Folder ID: 26 , Folder Name: 2016 , Folder Location: ") + rel("Projects/Plans/2016"),
            QStringLiteral("File ID: 1040 , File Name: Timeline 2016 , File Location: ") + rel("Projects/Plans/2016"),
            QStringLiteral("Folder ID: 27 , Folder Name: Reports , Folder Location: ") + rel("Projects/Plans/2016/Reports"),
            QStringLiteral("File ID: 1042 , File Name: Figures , File Location: ") + rel("Projects/Plans/2016/Reports"),
            QStringLiteral("File ID: 1041 , File Name: Q4 report , File Location: ") + rel("Projects/Plans/2016/Reports"),
            QStringLiteral("File ID: 1038 , File Name: Project charter , File Location: Projects"),
            QStringLiteral("Folder ID: 17 , Folder Name: Templates , Folder Location: Templates"),
            QStringLiteral("File ID: 1045 , File Name: Letter template , File Location: Templates"),
            QStringLiteral("File ID: 1046 , File Name: Résumé Müller , File Location: Templates"),
        };

        // The log lives in the documents folder; two runs in one minute share it.
        QString logPath;
        QString firstName;
        for (int attempt = 0; attempt < 3; ++attempt) {
            const QString documents = fxnGetMyFolderLocation();
            QDir(documents).removeRecursively();
            s.port.openedLog.clear();
            Exporter first(s.signIn, s.procs);
            Exporter second(s.signIn, s.procs);
            QVERIFY(first.run());
            QVERIFY(!first.LogWritten); // reset once the log was shown
            QCOMPARE(first.stats.failures, qint64(expectedLines.size()));
            QCOMPARE(first.ExportLogFolder, documents);
            QCOMPARE(s.port.openedLog, documents + QStringLiteral("/") + first.ExportLogName.mid(1));
            QVERIFY(second.run());
            if (second.ExportLogName != first.ExportLogName)
                continue; // the minute turned between the runs
            firstName = first.ExportLogName;
            logPath = documents + first.ExportLogName;
            break;
        }
        QVERIFY(!logPath.isEmpty());
        QVERIFY(g_shown.isEmpty()); // the export never shows a single failure
        // Yet each failure went through the error trail; the last one was Résumé Müller's.
        QVERIFY2(HuntERR::reportText().contains(QLatin1String("fxnSaveDocument")), qPrintable(HuntERR::reportText()));
        QVERIFY2(HuntERR::reportText().contains(QLatin1String("Templates")), qPrintable(HuntERR::reportText()));

        QFile log(logPath);
        QVERIFY(log.open(QIODevice::ReadOnly));
        const QByteArray expectedBytes = (expectedLines.join(QStringLiteral("\r\n")) + QStringLiteral("\r\n")).toLocal8Bit();
        QCOMPARE(log.readAll(), expectedBytes + expectedBytes);

        // The walk went on: Training was exported in full after the failures above it.
        RepositoryReader reader(m_server, QStringLiteral("Acme"));
        ExpectedTree training;
        reader.addSubtree(18, QStringLiteral("Training"), training);
        QSet<QString> dirs;
        QStringList files;
        listTree(dest, &dirs, &files);
        QCOMPARE(dirs, training.dirs);
        QStringList expectedFiles = training.files.keys();
        expectedFiles << QStringLiteral("Projects") << QStringLiteral("Templates");
        expectedFiles.sort();
        files.sort();
        QCOMPARE(files, expectedFiles);
        QCOMPARE(QFileInfo(dest + QStringLiteral("/Projects")).size(), qint64(0)); // never overwritten

        // A destination ending in a separator no longer matches the location: the full path is logged.
        Exporter third(s.signIn, s.procs);
        third.logFolderOverride = freshLogFolder();
        s.signIn.DestinationPath = QDir::toNativeSeparators(dest) + sep;
        QVERIFY(third.run());
        QVERIFY(readAll(third.ExportLogPath)
                    .startsWith(QStringLiteral("Folder ID: 14 , Folder Name: Projects , Folder Location: ")
                                + QDir::toNativeSeparators(dest) + sep + QStringLiteral("Projects\r\n")));

        // No destination: refused before anything is named or written.
        s.signIn.DestinationPath.clear();
        Exporter fourth(s.signIn, s.procs);
        fourth.logFolderOverride = freshLogFolder();
        bool refused = false;
        try {
            fourth.run();
        } catch (const HuntERR::Error &e) {
            refused = e.number() == HuntERR::ERR_PATH_NOT_FOUND;
        }
        QVERIFY(refused);
        QVERIFY(fourth.ExportLogName.isEmpty());
        QVERIFY(!QFileInfo::exists(QStringLiteral("/Projects")));
    }

    void dryRunListsWhatARealRunWrites()
    {
        Session s;
        QVERIFY(s.open(m_server, QStringLiteral("Acme")));
        s.tickAllUnderRoot();

        const QString dest = freshDestination();
        QDir().mkpath(dest + QStringLiteral("/Docs/Old"));       // replaced: heard as removed
        QFile(dest + QStringLiteral("/Docs/Old/stray.txt")).open(QIODevice::WriteOnly);
        QFile(dest + QStringLiteral("/Unsorted")).open(QIODevice::WriteOnly); // blocks a directory
        s.signIn.DestinationPath = QDir::toNativeSeparators(dest);
        const QByteArray before = sha256OfTree(dest);

        Exporter dry(s.signIn, s.procs);
        dry.dryRun = true;
        dry.logFolderOverride = freshLogFolder();
        Recorder planned;
        dry.observer = &planned;
        QVERIFY(dry.run()); // failures would be logged
        QVERIFY(s.port.openedLog.isEmpty());
        QVERIFY(!dry.LogWritten);
        QVERIFY(!QFileInfo::exists(dry.logFolderOverride)); // not even the log's folder
        QCOMPARE(sha256OfTree(dest), before);
        QVERIFY(QFileInfo::exists(dest + QStringLiteral("/Docs/Old/stray.txt")));
        QVERIFY(!QFileInfo::exists(dest + QStringLiteral("/Docs/Minutes 12 03 2015.txt")));

        Exporter real(s.signIn, s.procs);
        real.logFolderOverride = freshLogFolder();
        Recorder done;
        real.observer = &done;
        QVERIFY(real.run());
        QCOMPARE(planned.events, done.events);
        QCOMPARE(dry.stats.folders, real.stats.folders);
        QCOMPARE(dry.stats.documents, real.stats.documents);
        QCOMPARE(dry.stats.bytes, real.stats.bytes);
        QCOMPARE(dry.stats.failures, real.stats.failures);
        QVERIFY(planned.events.contains(QStringLiteral("removed ") + QDir::toNativeSeparators(dest + QStringLiteral("/Docs"))));
        QVERIFY(planned.events.contains(QStringLiteral("failure Folder ID: 19 , Folder Name: Unsorted , Folder Location: Unsorted")));
        QVERIFY(planned.events.contains(QStringLiteral("failure File ID: 1048 , File Name: Miscellaneous , File Location: Unsorted")));
        QVERIFY(planned.events.contains(QStringLiteral("file %1 %2")
                                            .arg(QDir::toNativeSeparators(dest + QStringLiteral("/Docs/[1019].txt")))
                                            .arg(QFileInfo(dest + QStringLiteral("/Docs/[1019].txt")).size())));
        // Every file the real run heard about is on disk with the size it announced, except the
        // one whose directory the second "A B" folder replaced.
        QMap<QString, qint64> announced; // the last write of a path is what stays
        for (const QString &event : std::as_const(done.events)) {
            if (!event.startsWith(QLatin1String("file ")))
                continue;
            const qsizetype cut = event.lastIndexOf(QLatin1Char(' '));
            announced[event.mid(5, cut - 5)] = event.mid(cut + 1).toLongLong();
        }
        QStringList gone;
        for (auto it = announced.cbegin(); it != announced.cend(); ++it) {
            if (!QFileInfo::exists(it.key()))
                gone << QDir::fromNativeSeparators(it.key());
            else
                QCOMPARE(QFileInfo(it.key()).size(), it.value());
        }
        QCOMPARE(gone, QStringList{dest + QStringLiteral("/A B/Slash folder note.txt")});
        QVERIFY(g_shown.isEmpty());
    }

    void odbcDriverExportsTheSame()
    {
        if (!odbcDriverRegistered(QStringLiteral("SQLite3")))
            QSKIP("the SQLite3 ODBC driver is not registered");
        QByteArray hashes[2];
        const QString drivers[2] = {QStringLiteral("QSQLITE"), QStringLiteral("SQLite3")};
        const QString previous = repo::embeddedDriver();
        for (int i = 0; i < 2; ++i) {
            repo::setEmbeddedDriver(drivers[i]);
            for (const QString &database : {QStringLiteral("Acme"), QStringLiteral("AcmeArchive")}) {
                Session s;
                QVERIFY2(s.open(m_server, database), qPrintable(drivers[i] + QLatin1Char(' ') + database));
                s.tickAllUnderRoot();
                const QString dest = freshDestination();
                s.signIn.DestinationPath = QDir::toNativeSeparators(dest);
                Exporter exporter(s.signIn, s.procs);
                exporter.logFolderOverride = freshLogFolder();
                const QDateTime start = QDateTime::currentDateTime();
                QVERIFY(!exporter.run());
                QVERIFY(exporter.stats.documents > 10);
                QSet<QString> dirs;
                QStringList files;
                listTree(dest, &dirs, &files);
                QStringList listing = dirs.values();
                for (const QString &f : std::as_const(files)) {
                    // Dates from the repository must agree; an undated file carries its write time.
                    const qint64 mtime = QFileInfo(dest + QLatin1Char('/') + f).lastModified().toSecsSinceEpoch();
                    listing << f + QLatin1Char(' ')
                                   + (mtime < start.toSecsSinceEpoch() - 60 ? QString::number(mtime) : QStringLiteral("now"));
                }
                listing.sort();
                hashes[i] += sha256OfTree(dest).toHex() + '\n' + listing.join(QLatin1Char('\n')).toUtf8() + '\n';
            }
        }
        repo::setEmbeddedDriver(previous);
        QCOMPARE(hashes[1], hashes[0]);
        QVERIFY(g_shown.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestExport)
#include "test_export.moc"
