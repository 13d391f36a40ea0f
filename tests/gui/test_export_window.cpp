// The export end to end through the real window, offscreen: signed in with the keyboard, folders
// opened and ticked with the mouse in the tree view, the destination chosen through the picker,
// the question confirmed; the written tree is then compared with the repository, and the log of
// the failures is shown through the shell, or in the error window when it cannot be written.

#include "exportcheck.h"
#include "export/exporter.h"
#include "testsupport.h"
#include "windowharness.h"

using exporting::exportLogNameFor;
using exporting::fxnGetMyFolderLocation;
namespace Dialogs = app::Dialogs;
using app::FolderTreeView;

using Dialogs::Answer;

class TestExportWindow : public QObject {
    Q_OBJECT

    DemoFixture m_fx;
    std::unique_ptr<MainWindowHarness> h;

    FolderTree::Node *node(int id) const { return h->node(id); }

    // A person's click on the node's label (which reloads its children), or in its tick box.
    void click(int id, bool onTheBox)
    {
        QVERIFY(node(id));
        onTheBox ? h->clickTick(node(id)) : h->clickLabel(node(id));
        QVERIFY2(onTheBox ? node(id)->checked : node(id)->expanded, qPrintable(node(id)->text));
    }

    // The destination through the picker, then "Start &Copy" and OK to the question; the texts
    // of the boxes shown once the copy (on its own thread) is over.
    QStringList copyTo(const QString &dest, bool wait = true)
    {
        QDir().mkpath(dest);
        Dialogs::setNextAnswers({Answer::path(dest)});
        QTest::mouseClick(h->child<QPushButton>("cmdDestination"), Qt::LeftButton);
        Dialogs::clearRecords();
        Dialogs::setNextAnswers({Answer::button(QMessageBox::Ok)});
        QTest::mouseClick(h->child<QPushButton>("cmdStart"), Qt::LeftButton);
        (void)QTest::qWaitFor([&] { return !wait || !h->w->isCopying(); }, 60000); // the checks after tell
        return Dialogs::shownTexts();
    }

    // A copy cut short leaves whole documents only: no temporary file, nothing torn.
    static void onlyWholeFiles(const QString &dest, const ExpectedTree &expected)
    {
        QSet<QString> dirs;
        QStringList files;
        listTree(dest, &dirs, &files);
        for (const QString &file : std::as_const(files)) {
            const QByteArray bytes = fileBytes(dest + u'/' + file);
            const auto &candidates = expected.files.value(file);
            QVERIFY2(std::any_of(candidates.cbegin(), candidates.cend(), [&](const auto &c) { return c.bytes == bytes; }),
                     qPrintable(file));
        }
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(m_fx.setUp(), qPrintable(m_fx.error));
        h = std::make_unique<MainWindowHarness>();
        QVERIFY(h->open(QSize(640, 720)));
    }

    void cleanupTestCase() { h.reset(); }

    void liveWithFailuresThenArchive()
    {
        QVERIFY(h->signInTo(m_fx.demo, QStringLiteral("Acme")));

        click(1, false);
        click(14, false); // Projects: Plans becomes a node of its own
        click(14, true);
        QVERIFY(node(25)->checked); // the tick went down to the loaded child
        for (int id : {7, 15, 9, 17}) // Docs, Q1: Plans/Drafts, Empty Folder, Templates
            click(id, true);
        QVERIFY(!node(8)->checked); // Docs 2006 is not below Docs

        // A file stands where the Templates directory must go: its folder fails (one line for
        // the folder and what it holds), the rest is written all the same.
        const QString dest = m_fx.filePath(QStringLiteral("live"));
        const QDateTime start = QDateTime::currentDateTime();
        QDir().mkpath(dest);
        QVERIFY(QFile(dest + QStringLiteral("/Templates")).open(QIODevice::WriteOnly));
        const QStringList shown = copyTo(dest);
        QCOMPARE(shown, (QStringList{QStringLiteral("You have selected \"") + h->w->signIn().DestinationPath
                                         + QStringLiteral("\" as destination folder, do you want to continue?..."),
                                     QStringLiteral("Process completed successfully")}));
        QVERIFY(h->errors.shown.isEmpty()); // a failed document is never a message of its own
        QVERIFY(h->child<QWidget>("FrameButton")->isEnabled()); // the buttons are back
        QCOMPARE(h->child<QLineEdit>("txtProg")->text(), QString());

        const QString logPath = m_fx.filePath(QStringLiteral("home/Documents/")) + h->w->exporter().lastResult().logName;
        QCOMPARE(Dialogs::openedLogs(), QStringList{QDir::toNativeSeparators(logPath)});
        QFile log(logPath);
        QVERIFY(log.open(QIODevice::ReadOnly));
        QCOMPARE(QString::fromLocal8Bit(log.readAll()),
                 QStringLiteral("Folder ID: 17 , Folder Name: Templates , Folder Location: Templates\r\n"));

        ExpectedTree expected;
        const RepositoryReader live(m_fx.demo, QStringLiteral("Acme"));
        expected.replace(QStringLiteral("Projects"));
        live.addDocuments(14, QStringLiteral("Projects"), expected);
        live.addSubtree(25, QStringLiteral("Projects/Plans"), expected);
        live.addSubtree(7, QStringLiteral("Docs"), expected);
        live.addSubtree(15, QStringLiteral("Q1  Plans Drafts"), expected);
        live.addSubtree(9, QStringLiteral("Empty Folder"), expected);
        expected.files[QStringLiteral("Templates")] << ExpectedTree::Candidate{}; // the blocker, untouched
        compareWithRepository(dest, expected, start);
        if (QTest::currentTestFailed())
            return;

        QVERIFY(h->errors.shown.isEmpty());
    }

    // A log on a full disk: the failure the log could not take is shown in the error window
    // instead of vanishing, and no log is opened.
    void unloggedFailureShown()
    {
        click(1, false);
        click(17, true); // Templates, blocked below
        const QString dest = m_fx.filePath(QStringLiteral("full-disk"));
        QDir().mkpath(dest);
        QVERIFY(QFile(dest + QStringLiteral("/Templates")).open(QIODevice::WriteOnly));
        const QString documents = fxnGetMyFolderLocation();
        const QDateTime now = QDateTime::currentDateTime();
        for (const QDateTime &when : {now, now.addSecs(60)}) {
            QFile::remove(documents + exportLogNameFor(when)); // the first test's log
            QVERIFY(QFile::link(QStringLiteral("/dev/full"), documents + exportLogNameFor(when)));
        }
        h->errors.shown.clear();

        QCOMPARE(copyTo(dest).value(1), QStringLiteral("Process completed successfully"));
        QCOMPARE(h->errors.shown.size(), 1);
        QVERIFY2(h->errors.shown[0].contains(QStringLiteral("Folder ID: 17 , Folder Name: Templates , Folder Location: Templates")),
                 qPrintable(h->errors.shown[0]));
        QVERIFY(Dialogs::openedLogs().isEmpty());
        QVERIFY(h->child<QWidget>("FrameButton")->isEnabled());
    }

    // Through the SQL Server stand-in with every reply delayed, one document at a time: the event
    // loop keeps running during the copy, Cancel stops it with only whole files left, and the
    // closing message and the log name the ticked folders not finished. Destroyed during a copy,
    // the window stops the run and waits for it.
    void copyOffTheEventLoop()
    {
        if (!odbcDriverRegistered(QStringLiteral("FreeTDS")))
            QSKIP("FreeTDS's ODBC driver is not registered (scripts/setup.sh installs tdsodbc)");
        StandinProcess standin;
        QVERIFY(standin.start(m_fx.demo, {QStringLiteral("--latency-ms"), QStringLiteral("40")}));
        QSettings().setValue(QStringLiteral("export/jobs"), 1);
        QDir(fxnGetMyFolderLocation()).removeRecursively(); // the log on a full disk above
        QTest::mouseClick(h->child<QPushButton>("cmdBack"), Qt::LeftButton);
        h->fillSignIn(standin.server, QStringLiteral("demo"));
        h->enterList();
        QVERIFY(h->choose(QStringLiteral("Acme")));
        h->pressOk();
        click(1, false);
        for (FolderTree::Node *top : node(1)->children)
            h->clickTick(top);
        ExpectedTree expected;
        RepositoryReader(m_fx.demo, QStringLiteral("Acme")).addEverything(expected);

        QElapsedTimer clock;
        qint64 last = 0, longest = 0;
        QTimer ticks;
        connect(&ticks, &QTimer::timeout, this, [&] { longest = qMax(longest, clock.elapsed() - std::exchange(last, clock.elapsed())); });
        clock.start();
        ticks.start(10);
        const QString dest = m_fx.filePath(QStringLiteral("wire"));
        copyTo(dest, false);
        QVERIFY(h->w->isCopying() && h->child("prgCopy")->isVisible() && !h->child("tvDefaultRoot")->isEnabled());
        QTest::qWait(2000);
        QTest::mouseClick(h->child<QPushButton>("cmdCancelCopy"), Qt::LeftButton);
        QVERIFY(QTest::qWaitFor([this] { return !h->w->isCopying(); }, 60000));
        QVERIFY2(clock.elapsed() > 2000 && longest < 1000, qPrintable(QString::number(longest)));

        const exporting::ExportResult &result = h->w->exporter().lastResult();
        QVERIFY(result.stopped && result.documents > 0 && !result.unfinished.isEmpty());
        const QString line = exporting::cancellationLine(result.unfinished);
        QCOMPARE(Dialogs::shownTexts().value(1), line);
        QVERIFY(fileBytes(result.logPath).endsWith((line + QStringLiteral("\r\n")).toLocal8Bit()));
        QVERIFY(!h->child("prgCopy")->isVisible() && h->child("FrameButton")->isEnabled());
        onlyWholeFiles(dest, expected);

        const QString again = m_fx.filePath(QStringLiteral("wire-closed"));
        copyTo(again, false);
        QTest::qWait(500);
        QVERIFY(!h->w->close() && h->w->isVisible()); // closes once the run has stopped
        h->w.reset();
        onlyWholeFiles(again, expected);
    }
};

QTEST_MAIN(TestExportWindow)
#include "test_export_window.moc"
