// The export engine against the demo repository: signed in and ticked as the window does it,
// then compared file by file with the repository read directly through SQLite.

#include "errors/hunterr.h"
#include "export/exporter.h"
#include "exportrun.h"
#include "exportcheck.h"
#include "scopes.h"
#include "testsupport.h"

using names::RemoveSpChr;
using names::cleanDocumentTitle;
using names::pathSeparator;
using names::titleCanBeFileName;
using exporting::ExportObserver;
using exporting::exportLogNameFor;
using exporting::fileDateFromRepositoryText;
using exporting::fxnGetMyFolderLocation;

namespace {

// Everything the observer hears, in order, as text; the content of each file as just written.
struct Recorder : ExportObserver {
    QStringList events;
    QHash<QString, QByteArray> lastWritten;
    void directoryRemoved(const QString &path) override { events << QStringLiteral("removed ") + path; }
    void directoryCreated(const QString &path) override { events << QStringLiteral("created ") + path; }
    void documentWritten(const QString &filePath, qint64 bytes) override
    {
        events << QStringLiteral("file %1 %2").arg(filePath).arg(bytes);
        QFile f(filePath);
        if (f.open(QIODevice::ReadOnly)) // nothing to read in a dry run
            lastWritten[filePath] = f.readAll();
    }
    void failureLogged(const QString &line) override { events << QStringLiteral("failure ") + line; }
};

QString native(const QString &path)
{
    return QDir::toNativeSeparators(path);
}

} // namespace

class TestExport : public QObject {
    Q_OBJECT

    DemoFixture m_fx;
    ErrorTrailScope m_trail; // what the error trail would have put in front of the person
    QStringList m_serverBefore;
    int m_runs = 0;

    QString freshDestination()
    {
        const QString dir = m_fx.filePath(QStringLiteral("dest%1").arg(++m_runs));
        QDir().mkpath(dir);
        return dir;
    }

    // An exporter to dest, with its log (if any) in a folder of its own.
    std::unique_ptr<ExportRun> exporterTo(DemoSession &d, const QString &dest, ExportObserver *observer = nullptr)
    {
        d.s.signin.DestinationPath = native(dest);
        auto run = std::make_unique<ExportRun>(d.s.signin, d.s.procs);
        run->options.logFolder = m_fx.filePath(QStringLiteral("logs%1").arg(++m_runs));
        run->options.observer = observer;
        return run;
    }

private slots:
    void initTestCase()
    {
        // A zone with daylight saving, so "today's offset" and the document's own can differ.
        qputenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
        // The documents folder is the test's own.
        QVERIFY2(m_fx.setUp(), qPrintable(m_fx.error));
        m_serverBefore = treeSnapshot(m_fx.demo, {});
    }

    void init() { m_trail.shown.clear(); }

    void cleanupTestCase()
    {
        // The tool only reads: the repository files are untouched by every run above.
        QCOMPARE(treeSnapshot(m_fx.demo, {}), m_serverBefore);
    }

    void namesDatesAndLogNames()
    {
        // A file name holds 255 bytes of the local encoding, not characters; ".." is no name.
        QVERIFY(titleCanBeFileName(QString(251, QLatin1Char('x')), QStringLiteral(".txt")));
        QVERIFY(!titleCanBeFileName(QString(252, QLatin1Char('x')), QStringLiteral(".txt")));
        QVERIFY(!titleCanBeFileName(QString(128, QChar(0x00FC)), QString()));
        QVERIFY(!titleCanBeFileName(QStringLiteral(".."), QStringLiteral(".txt")));

        // Log names carry the run's minute, unpadded; the log lives in the documents folder,
        // made when missing.
        QCOMPARE(exportLogNameFor(QDateTime(QDate(2021, 3, 3), QTime(9, 5))),
                 QString(pathSeparator()) + QStringLiteral("zarnivo Parcelwise Log 20213395.txt"));
        QCOMPARE(exportLogNameFor(QDateTime(QDate(2021, 12, 5), QTime(12, 30, 59))),
                 QString(pathSeparator()) + QStringLiteral("zarnivo Parcelwise Log 20211251230.txt"));
        const QString documents = fxnGetMyFolderLocation();
        QCOMPARE(QDir::fromNativeSeparators(documents), m_fx.filePath(QStringLiteral("home/Documents")));
        QVERIFY(QFileInfo(documents).isDir());

        // A date text that does not fit the layout is an error, never a date.
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

    void wholeDatabaseMatchesRepository_data()
    {
        // Once through Qt's own SQLite driver, once through the SQLite3 ODBC driver.
        QTest::addColumn<QString>("driver");
        QTest::addColumn<QString>("database");
        QTest::addColumn<QString>("archive");
        for (const char *driver : {"QSQLITE", "SQLite3"}) {
            QTest::addRow("%s live", driver) << driver << QStringLiteral("Acme") << QString();
            QTest::addRow("%s archive", driver) << driver << QStringLiteral("AcmeArchive") << QStringLiteral("AcmeArchive");
        }
    }

    void wholeDatabaseMatchesRepository()
    {
        QFETCH(QString, driver);
        QFETCH(QString, database);
        QFETCH(QString, archive);
        if (driver != QLatin1String("QSQLITE") && !odbcDriverRegistered(driver))
            QSKIP("the SQLite3 ODBC driver is not registered");
        const EmbeddedDriverScope embedded(driver);
        DemoSession d(m_fx.demo, database);
        QCOMPARE(d.opened, Opened::Yes);
        QVERIFY(d.tickEverything());
        const QString dest = freshDestination();
        Recorder recorder;
        const auto exporter = exporterTo(d, dest, &recorder);
        const QDateTime start = QDateTime::currentDateTime();
        QVERIFY2(!exporter->run(), qPrintable(recorder.events.filter(QStringLiteral("failure")).join('\n') + HuntERR::reportText()));

        // Nothing failed: no log, nothing opened, nothing shown.
        QVERIFY(!QFileInfo::exists(QDir(exporter->options.logFolder).filePath(exporter->result.logName)));
        QVERIFY(d.port.openedLog.isEmpty());
        QVERIFY(m_trail.shown.isEmpty());

        RepositoryReader reader(m_fx.demo, QStringLiteral("Acme"), archive);
        QVERIFY(reader.ok());
        ExpectedTree expected;
        reader.addEverything(expected);
        compareWithRepository(dest, expected, start, &recorder.lastWritten);

        if (!archive.isEmpty()) {
            // Archived documents only; folders without any below them get no directory; the
            // document whose bytes are missing from the archive store is not written.
            QVERIFY(QFileInfo::exists(dest + QStringLiteral("/Finance/Ledgers 2009/Ledger 2009.csv")));
            QVERIFY(!QFileInfo::exists(dest + QStringLiteral("/Finance/Ledgers 2009/Ledger index.txt")));
            QVERIFY(!QFileInfo::exists(dest + QStringLiteral("/Finance/Budgets")));
            QVERIFY(!QFileInfo::exists(dest + QStringLiteral("/Archive 2010/Empty Archived")));
            QVERIFY(!QFileInfo::exists(dest + QStringLiteral("/Archive 2010/Board Minutes/Lost minutes.txt")));
            QVERIFY(QFileInfo::exists(dest + QStringLiteral("/Legal/Shared Cases/Settlement.rtf")));
            return;
        }

        // The cases by name, so a rule shared with the reading above cannot hide them: each of the
        // nine forbidden characters as a blank, outer blanks of a title kept, titles too long or
        // blank as "[id].ext".
        const QString docs = dest + QStringLiteral("/Docs/");
        for (const QString &name : QStringList{"Minutes 12 03 2015.txt", "Agenda  Kick-off.txt", "C  Temp notes.txt",
                                               "All marks" + QString(19, QLatin1Char(' ')) + "here.txt",
                                               "  Padded title  .txt", "[1019].txt", "[1020].txt", "[1021]", "[1022]",
                                               "Plain notes", "Final report.docx"})
            QVERIFY2(QFileInfo::exists(docs + name), qPrintable(name));
        QVERIFY(QFileInfo::exists(dest + QStringLiteral("/Q1  Plans Drafts/Draft 1.txt")));
        // Equal titles: the second keeps its id beside the title (compared above).
        QCOMPARE(recorder.events.filter(QStringLiteral("Duplicate title")).size(), 2);
        // "A/B" and "A:B" both clean to "A B": the second keeps its id beside the name.
        QCOMPARE(QDir(dest + QStringLiteral("/A B")).entryList(QDir::Files).size(), 1);
        QCOMPARE(QDir(dest + QStringLiteral("/A B [3]")).entryList(QDir::Files).size(), 1);
        QVERIFY(QDir(dest + QStringLiteral("/Empty Folder")).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot));

        // The status line names the last document after it was written.
        QCOMPARE(d.port.status, QStringLiteral(" Copying File: ") + native(dest + QStringLiteral("/Unsorted/"))
                                    + QStringLiteral("Miscellaneous"));
    }

    // Names that clean alike, stored and listed in the order opposite to their ids: the lowest id
    // keeps the name, documents and sibling folders alike, for any number of jobs.
    void lowestIdKeepsTheName()
    {
        const QString server = m_fx.filePath(QStringLiteral("ties"));
        QVERIFY(copyFolder(m_fx.demo, server));
        QString error;
        {
            demo::SqliteFile acme(demo::databaseFile(server, QStringLiteral("Acme")));
            QVERIFY2(acme.open(&error), qPrintable(error));
            demo::CompanyWriter writer(acme);
            // ":" sorts before "?", "*" before ":": each pair is listed higher id first.
            const std::pair<int, const char *> rows[] = {{4002, "Memo:1"}, {4001, "Memo?1"}, {4102, "Pair*1"}, {4101, "Pair:1"}};
            for (const auto &[id, name] : rows) {
                demo::Document doc;
                doc.recId = id;
                doc.folder = 7;
                doc.fileName = QStringLiteral("t.txt");
                doc.description = QLatin1String(name);
                doc.data = QByteArray::number(id);
                demo::Folder folder;
                folder.recId = id;
                folder.parent = 7;
                folder.name = QLatin1String(name);
                folder.type = QStringLiteral("FOLDER");
                QVERIFY2(id < 4100 ? writer.addDocument(doc, &error) : writer.addFolder(folder, &error), qPrintable(error));
            }
        }
        DemoSession d(server, QStringLiteral("Acme"));
        QVERIFY(d.click(1) && d.tick(7));
        for (const int jobs : {1, 3}) {
            const QString dest = freshDestination();
            const auto exporter = exporterTo(d, dest);
            exporter->options.jobs = jobs;
            QVERIFY(!exporter->run());
            QCOMPARE(fileBytes(dest + QStringLiteral("/Docs/Memo 1.txt")), QByteArray("4001"));
            QCOMPARE(fileBytes(dest + QStringLiteral("/Docs/Memo 1 [4002].txt")), QByteArray("4002"));
            QVERIFY(QFileInfo(dest + QStringLiteral("/Docs/Pair 1")).isDir());
            QVERIFY(QFileInfo(dest + QStringLiteral("/Docs/Pair 1 [4102]")).isDir());
        }
    }

    void loadedChildrenPlacementAndReplacement()
    {
        DemoSession d(m_fx.demo, QStringLiteral("Acme"));
        QVERIFY(d.click(1));
        QVERIFY(d.click(14)); // Projects: Plans is now a node of its own
        QVERIFY(d.tick(14));
        QVERIFY(d.click(11)); // Head Office > Filing Room, then tick only the grandchild
        QVERIFY(d.click(21));
        QVERIFY(d.tick(22));

        RepositoryReader reader(m_fx.demo, QStringLiteral("Acme"));
        ExpectedTree expected;
        expected.replace(QStringLiteral("Projects"));
        reader.addDocuments(14, QStringLiteral("Projects"), expected);
        reader.addSubtree(25, QStringLiteral("Projects/Plans"), expected);
        reader.addSubtree(22, QStringLiteral("Invoices"), expected); // no unticked folder in its path

        for (const QString &ending : {QString(), QString(pathSeparator())}) {
            const QString dest = freshDestination();
            // What an earlier run left behind is replaced, read-only stray files included.
            QDir().mkpath(dest + QStringLiteral("/Projects/Old"));
            QFile stray(dest + QStringLiteral("/Projects/Old/stray.txt"));
            QVERIFY(stray.open(QIODevice::WriteOnly) && stray.write("left over") == 9);
            stray.close();
            QVERIFY(stray.setPermissions(QFile::ReadOwner));

            Recorder recorder;
            const auto exporter = exporterTo(d, dest, &recorder);
            d.s.signin.DestinationPath += ending;
            const QDateTime start = QDateTime::currentDateTime();
            QVERIFY2(!exporter->run(), qPrintable(recorder.events.filter(QStringLiteral("failure")).join('\n') + HuntERR::reportText()));
            compareWithRepository(dest, expected, start);
        }
        QVERIFY(m_trail.shown.isEmpty());
    }

    void failuresAreLoggedAndTheWalkGoesOn()
    {
        DemoSession d(m_fx.demo, QStringLiteral("Acme"));
        QVERIFY(d.click(1));
        QVERIFY(d.click(14));
        QVERIFY(d.tick(14)); // Projects, with Plans loaded and ticked below it
        QVERIFY(d.tick(17)); // Templates
        QVERIFY(d.tick(18)); // Training

        const QString dest = freshDestination();
        // A file stands where the Projects and Templates directories must be created.
        for (const QString &blocker : {QStringLiteral("/Projects"), QStringLiteral("/Templates")}) {
            QFile f(dest + blocker);
            QVERIFY(f.open(QIODevice::WriteOnly));
        }
        d.s.signin.DestinationPath = native(dest);
        const QChar sep = pathSeparator();
        // A folder whose directory cannot be made is one line: its documents and subfolders had
        // nowhere to go. A ticked folder below it is a line of its own, at its place below the
        // destination.
        const QStringList expectedLines = {
            QStringLiteral("Folder ID: 14 , Folder Name: Projects , Folder Location: Projects"),
            QStringLiteral("Folder ID: 17 , Folder Name: Templates , Folder Location: Templates"),
            QStringLiteral("Folder ID: 25 , Folder Name: Plans , Folder Location: Projects") + sep + "Plans",
        };

        // The log lives in the documents folder and is opened; two runs in one minute share it.
        QString logPath;
        for (int attempt = 0; attempt < 3 && logPath.isEmpty(); ++attempt) {
            const QString documents = fxnGetMyFolderLocation();
            QDir(documents).removeRecursively();
            d.port.openedLog.clear();
            ExportRun first(d.s.signin, d.s.procs);
            ExportRun second(d.s.signin, d.s.procs);
            QVERIFY(first.run());
            QCOMPARE(first.result.failures, qint64(expectedLines.size()));
            QCOMPARE(d.port.openedLog, documents + QStringLiteral("/") + first.result.logName);
            QVERIFY(second.run());
            if (second.result.logName == first.result.logName) // else the minute turned between the runs
                logPath = first.result.logPath;
        }
        QVERIFY(!logPath.isEmpty());
        QVERIFY(m_trail.shown.isEmpty()); // the export never shows a single failure
        // Yet each failure went through the error trail; the last one was the Templates directory.
        QVERIFY2(HuntERR::reportText().contains(QLatin1String("Templates")), qPrintable(HuntERR::reportText()));

        QFile log(logPath);
        QVERIFY(log.open(QIODevice::ReadOnly));
        const QByteArray expectedBytes = (expectedLines.join(QStringLiteral("\r\n")) + QStringLiteral("\r\n")).toLocal8Bit();
        QCOMPARE(log.readAll(), expectedBytes + expectedBytes);

        // The walk went on past them: Training was written (in full: the hostile export's test).
        QVERIFY(QFileInfo(dest + QStringLiteral("/Training")).isDir());

        // A destination ending in a separator no longer matches the location: the full path is logged.
        const auto third = exporterTo(d, dest);
        d.s.signin.DestinationPath += sep;
        QVERIFY(third->run());
        QFile thirdLog(third->result.logPath);
        QVERIFY(thirdLog.open(QIODevice::ReadOnly));
        QVERIFY(QString::fromLocal8Bit(thirdLog.readLine()).startsWith(
            QStringLiteral("Folder ID: 14 , Folder Name: Projects , Folder Location: ") + native(dest) + sep + "Projects"));

        // No destination: refused before anything is named or written.
        const auto fourth = exporterTo(d, QString());
        bool refused = false;
        try {
            fourth->run();
        } catch (const HuntERR::Error &e) {
            refused = e.number() == HuntERR::ERR_PATH_NOT_FOUND;
        }
        QVERIFY(refused);
        QVERIFY(fourth->result.logName.isEmpty());
        QVERIFY(!QFileInfo::exists(QStringLiteral("/Projects")));
    }

    // --update over a complete export: each folder's size listing gives its documents' sizes and
    // dates, so an unchanged file costs no bytes (and no statement of its own), on one connection
    // or on several. A file with another date or size is written again, whole and dated.
    void updateReadsNoBytesOfUnchangedDocuments()
    {
        struct Counter : ExportObserver {
            qint64 streamed = 0;
            QStringList kept, written;
            void documentBytes(qint64 inFlight) override { streamed = qMax(streamed, inFlight); }
            void documentKept(const QString &filePath, qint64) override { kept << filePath; }
            void documentWritten(const QString &filePath, qint64) override { written << filePath; }
        };
        DemoSession d(m_fx.demo, QStringLiteral("Acme"));
        QVERIFY(d.tickEverything());
        const QString dest = freshDestination();
        Counter first;
        const auto fresh = exporterTo(d, dest, &first);
        fresh->run();
        QVERIFY(fresh->result.documents > 2);
        QVERIFY(first.streamed > 0); // the counter does hear the bytes
        const QStringList exported = treeSnapshot(dest, {});

        // An undated document cannot be told from an older copy of the same size: only it is
        // read and written again.
        const QString undated = native(dest + QStringLiteral("/Docs/What is new .txt"));
        for (const int jobs : {1, 4}) {
            Counter again;
            const auto update = exporterTo(d, dest, &again);
            update->options.update = true;
            update->options.jobs = jobs;
            update->run();
            QCOMPARE(again.written, QStringList{undated});
            QCOMPARE(update->result.kept, fresh->result.documents - 1);
            QCOMPARE(again.kept.size(), first.written.size() - 1);
            if (jobs == 1) // with workers the bytes are told only while the walk waits
                QCOMPARE(again.streamed, QFileInfo(undated).size());
            QCOMPARE(treeSnapshot(dest, {}), exported);
        }

        // One file dated a minute apart on the same day (same size), one cut short with its date
        // kept: each rule alone has its file written again.
        first.written.removeAll(undated);
        const QString redated = first.written.at(0);
        const QString cut = first.written.at(1);
        const QDateTime dated = QFileInfo(redated).lastModified();
        {
            QFile f(redated);
            QVERIFY(f.open(QIODevice::ReadWrite)
                    && f.setFileTime(dated.addSecs(dated.time().hour() < 12 ? 60 : -60), QFileDevice::FileModificationTime));
            QFile g(cut);
            const QDateTime cutDate = QFileInfo(cut).lastModified();
            QVERIFY(g.size() > 0 && g.open(QIODevice::ReadWrite) && g.resize(g.size() - 1)
                    && g.setFileTime(cutDate, QFileDevice::FileModificationTime));
        }
        Counter repair;
        const auto update = exporterTo(d, dest, &repair);
        update->options.update = true;
        update->options.jobs = 4;
        update->run();
        QCOMPARE(repair.written, QStringList({redated, cut, undated}));
        QCOMPARE(update->result.kept, fresh->result.documents - 3);
        QCOMPARE(QFileInfo(redated).lastModified(), dated);
        QCOMPARE(treeSnapshot(dest, {}), exported);
    }

    // A report line gives back the names no demo document has, as they were written.
    void reportLinesReadBack()
    {
        for (const QString &name : {QStringLiteral("q\"b\\s/\b\f\n\r\t\x01\x1f\x7f"), QStringLiteral("é€\U0001F600"),
                                    QString(QChar(0xd83d)) + QStringLiteral("x") + QChar(0xde00)}) {
            const auto r = exporting::ExportRecord::of(exporting::ExportRecord::Kind::Document, 1, name);
            QCOMPARE(QJsonDocument::fromJson(exporting::toJsonLine(r)).object().value(QStringLiteral("name")).toString(), name);
        }
    }
};

QTEST_GUILESS_MAIN(TestExport)
#include "test_export.moc"
