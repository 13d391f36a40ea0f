// The main window driven as a person would, offscreen, on the demo repository: the tool password,
// the sign-in screen with its messages and focus, the database list, the two kinds of database,
// the screen flow, the way to "Start &Copy", and closing. Every control is found by name. What
// the sign-in answers (messages, refusals, types) is the sign-in's own test; here, where it lands.

#include "repository/connection.h"
#include "testsupport.h"
#include "windowharness.h"

#include <QLabel>

namespace Dialogs = app::Dialogs;

using Dialogs::Answer;

class TestWindow : public QObject {
    Q_OBJECT

    DemoFixture m_fx;
    std::unique_ptr<MainWindowHarness> h;

    // The database type as shown: its caption and its colour.
    QString typeShown() const
    {
        auto *type = h->child<QLabel>("lblDbTypeValue");
        return type->text() + QLatin1Char(' ') + type->palette().color(QPalette::WindowText).name();
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(m_fx.setUp(), qPrintable(m_fx.error));
        QDir().mkpath(m_fx.filePath(QStringLiteral("home/Documents")));
    }

    void init()
    {
        h = std::make_unique<MainWindowHarness>();
        QVERIFY(h->open());
    }

    void cleanup() { h.reset(); }

    void passwordGateAndClosingBeforeSignIn()
    {
        QCOMPARE(h->w->windowTitle(), QStringLiteral("zarnivo - Parcelwise Ver 6.0"));
        QCOMPARE(h->screen(), h->child("FramePassword"));
        auto *password = h->child<QLineEdit>("TxtLoginPsw");

        // Blanks count, so a trailing one is refused like a wrong word; the focus stays for a retry.
        for (const QString &typed : {QStringLiteral("brimex "), QStringLiteral("secret")}) {
            password->setText(typed);
            Dialogs::clearRecords();
            QTest::mouseClick(h->child<QPushButton>("cmdUserLogin"), Qt::LeftButton);
            QCOMPARE(h->screen(), h->child("FramePassword"));
            QCOMPARE(h->focused(), password);
            QCOMPARE(Dialogs::shownTexts(), QStringList{QStringLiteral("Invalid user password")});
        }
        const Dialogs::ShownMessage m = Dialogs::shownMessages().first();
        QVERIFY(m.icon == QMessageBox::Warning && m.buttons == QMessageBox::Ok && m.title == QStringLiteral("zarnivo - Parcelwise"));

        // Letter case does not matter; typed and confirmed with Enter, the sign-in screen takes
        // over with the focus in the server box.
        Dialogs::clearRecords();
        password->clear();
        QTest::keyClicks(password, QStringLiteral("BriMex"));
        QTest::keyClick(password, Qt::Key_Return);
        QCOMPARE(h->screen(), h->child("frameConnectDb"));
        QVERIFY(Dialogs::shownMessages().isEmpty());
        QCOMPARE(h->focused(), h->child("txServerName"));

        // Closing before signing in has no connection to close and nothing to report.
        QVERIFY(h->w->close());
        QVERIFY(h->errors.shown.isEmpty());
    }

    void statusHints()
    {
        // Each control's hint while it has the focus; leaving clears it, except from "&OK" on the
        // sign-in screen, whose hint stays until another replaces it.
        const QList<QList<QPair<const char *, QString>>> screens{
            {{"TxtLoginPsw", QStringLiteral(" Enter user password")}, {"cmdUserLogin", QStringLiteral(" Click OK to login")}},
            {{"txServerName", QStringLiteral(" Enter server name")},
             {"txtUserName", QStringLiteral(" Enter user name")},
             {"txtPassword", QStringLiteral(" Enter password (If any)")},
             {"cboDBName", QStringLiteral(" Select database")},
             {"cmdlogin", QStringLiteral(" Click OK to proceed")}},
            {{"cmdBack", QStringLiteral(" Click Back for previous window")},
             {"cmdDestination", QStringLiteral(" Click select destination for destination folder path")},
             {"cmdStart", QStringLiteral(" Click start copy to copy folder(s)/File(s)")}},
        };
        for (int i = 0; i < screens.size(); ++i) {
            if (i == 1) {
                QVERIFY(h->unlock());
                h->fillSignIn(m_fx.demo, QStringLiteral("demo"));
            } else if (i == 2) {
                h->pressOk();
                QCOMPARE(h->screen(), h->child("frameSelectFolder"));
            }
            for (const auto &[name, hint] : screens[i]) {
                h->child(name)->setFocus(Qt::TabFocusReason);
                QCOMPARE(h->status(), hint);
                h->child("cmdexit")->setFocus(Qt::TabFocusReason);
                QCOMPARE(h->status(), qstrcmp(name, "cmdlogin") == 0 ? hint : QString());
            }
        }
        QVERIFY(h->errors.shown.isEmpty());
    }

    void signInValidation()
    {
        QVERIFY(h->unlock());
        QWidget *server = h->child("txServerName");

        // A blank box counts as empty. "&OK" and entering the database list both check it and send
        // the focus to the box (which box for which message is the sign-in's rule, in test_signin).
        h->fillSignIn(QStringLiteral("   "), QStringLiteral("demo"));
        for (const bool ok : {true, false}) {
            Dialogs::clearRecords();
            ok ? h->pressOk() : h->enterList();
            QCOMPARE(Dialogs::shownTexts(), QStringList{QStringLiteral("Please enter server name")});
            QCOMPARE(h->focused(), server);
            QCOMPARE(h->screen(), h->child("frameConnectDb"));
            QCOMPARE(h->list()->count(), 0);
        }

        // Server and user given, the list never filled: no database is chosen.
        h->fillSignIn(m_fx.demo, QStringLiteral("demo"));
        Dialogs::clearRecords();
        h->pressOk();
        QCOMPARE(Dialogs::shownTexts(), QStringList{QStringLiteral("Please select database name")});
        QCOMPARE(h->screen(), h->child("frameConnectDb"));

        // Clicking the filled list open after the server was cleared: told, sent to the server
        // box, and the list does not drop down behind the message.
        h->enterList();
        QCOMPARE(h->list()->count(), 8);
        h->child("cmdexit")->setFocus(Qt::MouseFocusReason);
        h->fillSignIn(QString(), QStringLiteral("demo"));
        Dialogs::clearRecords();
        QTest::mouseClick(h->list(), Qt::LeftButton);
        QCOMPARE(Dialogs::shownTexts(), QStringList{QStringLiteral("Please enter server name")});
        QCOMPARE(h->focused(), server);
        QVERIFY(!QApplication::activePopupWidget());

        QVERIFY(h->errors.shown.isEmpty());
    }

    void databaseList()
    {
        auto listed = [this] {
            QStringList all;
            for (int i = 0; i < h->list()->count(); ++i)
                all << h->list()->itemText(i);
            return all;
        };
        const QStringList names{QStringLiteral("Acme"),    QStringLiteral("AcmeArchive"), QStringLiteral("Globex"),
                                QStringLiteral("Initech"), QStringLiteral("Scratch"),     QStringLiteral("Twofold"),
                                QStringLiteral("TwofoldArchive"), QStringLiteral("VandelayArchive")};
        const QString live = QStringLiteral("Live #000000"), archive = QStringLiteral("Archive #ff0000");

        QVERIFY(h->unlock());
        h->fillSignIn(m_fx.demo, QStringLiteral("demo"));
        h->enterList();
        QCOMPARE(listed(), names);
        QCOMPARE(h->list()->currentIndex(), 0);
        QCOMPARE(typeShown(), live);

        // Choosing shows the type (the letter case of its code is the sign-in's rule, in test_signin).
        QVERIFY(h->choose(QStringLiteral("AcmeArchive")));
        QCOMPARE(typeShown(), archive);
        QCOMPARE(h->w->signIn().blnArchive, true);

        // Entered with the mouse, the list is read afresh and then drops down.
        QVERIFY(h->choose(QStringLiteral("AcmeArchive")));
        h->child("cmdexit")->setFocus(Qt::MouseFocusReason);
        QTest::mouseClick(h->list(), Qt::LeftButton);
        QCOMPARE(h->list()->currentText(), QStringLiteral("Acme"));
        QVERIFY(QApplication::activePopupWidget());
        QTest::keyClick(QApplication::activePopupWidget(), Qt::Key_Escape);
        QVERIFY(h->errors.shown.isEmpty());
        QVERIFY(Dialogs::shownMessages().isEmpty());
    }

    void liveAndArchiveTreesThenExit()
    {
        FolderTree &tree = h->w->folderTree();
        QVERIFY(h->signInTo(m_fx.demo, QStringLiteral("Acme")));
        QCOMPARE(h->status(), QString());
        QCOMPARE(tree.count(), 1);
        QCOMPARE(tree.node(1)->text, QStringLiteral("Acme Corporation [Acme <Live> ]"));

        // Back closes the company connection only; the boxes keep what was typed.
        QTest::mouseClick(h->child<QPushButton>("cmdBack"), Qt::LeftButton);
        QCOMPARE(h->screen(), h->child("frameConnectDb"));
        QCOMPARE(h->w->signIn().cnDb().state(), repo::adStateClosed);
        QCOMPARE(h->w->signIn().cnMaster().state(), repo::adStateOpen);
        QCOMPARE(h->child<QLineEdit>("txServerName")->text(), m_fx.demo);
        QCOMPARE(h->list()->currentText(), QStringLiteral("Acme"));

        // The archive database shows the live database's root under its own name.
        h->list()->setFocus(Qt::MouseFocusReason);
        QVERIFY(h->choose(QStringLiteral("AcmeArchive")));
        h->pressOk();
        QCOMPARE(h->screen(), h->child("frameSelectFolder"));
        QCOMPARE(tree.count(), 1);
        QCOMPARE(tree.node(1)->text, QStringLiteral("Acme Corporation [AcmeArchive <Archive> ]"));

        // Children loaded, then back and "&OK" again: a fresh tree, the root alone.
        QVERIFY(h->w->treeProcs().tvDefaultRoot_NodeClick(tree.node(1)));
        QVERIFY(tree.count() > 1);
        QTest::mouseClick(h->child<QPushButton>("cmdBack"), Qt::LeftButton);
        h->pressOk();
        QCOMPARE(h->screen(), h->child("frameSelectFolder"));
        QCOMPARE(tree.count(), 1);
        QCOMPARE(tree.node(1)->text, QStringLiteral("Acme Corporation [AcmeArchive <Archive> ]"));

        // E&xit closes both connections, reporting nothing.
        QTest::mouseClick(h->child<QPushButton>("cmdexit"), Qt::LeftButton);
        QVERIFY(!h->w->isVisible());
        QCOMPARE(h->w->signIn().cnDb().state(), repo::adStateClosed);
        QCOMPARE(h->w->signIn().cnMaster().state(), repo::adStateClosed);
        QVERIFY(h->errors.shown.isEmpty());
        QVERIFY(Dialogs::shownMessages().isEmpty());
    }

    void failedTreeBuildLeavesOnlyOk()
    {
        // A Globex whose first level holds a site row that sorts before the root: it is added
        // under a parent that never exists, and the tree build fails.
        QString error;
        const QString broken = writeDemo(m_fx.filePath(QStringLiteral("broken")), &error);
        QVERIFY2(!broken.isEmpty(), qPrintable(error));
        {
            QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("break-globex"));
            db.setDatabaseName(QDir(broken).filePath(QStringLiteral("Globex.sqlite")));
            QVERIFY(db.open());
            QSqlQuery q(db);
            QVERIFY(q.exec(QStringLiteral("INSERT INTO zar_Folder VALUES (90, 0, 'Aardvark Site', 0, 0, 'SITE')")));
            QVERIFY(q.exec(QStringLiteral("INSERT INTO zar_FolderLive VALUES (90)")));
        }
        QSqlDatabase::removeDatabase(QStringLiteral("break-globex"));

        QVERIFY(!h->signInTo(broken, QStringLiteral("Globex")));
        QVERIFY(Dialogs::shownMessages().isEmpty());
        QCOMPARE(h->errors.shown.size(), 1);
        QVERIFY2(h->errors.shown.first().contains(QStringLiteral("FrmSendtofolder.cmdlogin_Click")), qPrintable(h->errors.shown.first()));
        QCOMPARE(h->screen(), h->child("frameConnectDb"));
        QCOMPARE(h->status(), QStringLiteral(" Processing... Please Wait"));
        QVERIFY(h->child("cmdlogin")->isEnabled());
        for (const char *name : {"txServerName", "txtUserName", "txtPassword", "cboDBName"})
            QVERIFY2(!h->child(name)->isEnabled(), name);
        QVERIFY(!QApplication::overrideCursor());

        // "&OK" retries the whole sign-in (and fails the same way).
        h->pressOk();
        QCOMPARE(h->errors.shown.size(), 2);
        QVERIFY(h->child("cmdlogin")->isEnabled());
    }

    void startCopyAsksFirst()
    {
        QVERIFY(h->signInTo(m_fx.demo, QStringLiteral("Acme")));
        FolderTree &tree = h->w->folderTree();
        QVERIFY(h->w->treeProcs().tvDefaultRoot_NodeClick(tree.node(1)));
        QVERIFY(tree.setData(tree.indexOf(tree.find(QStringLiteral("Fold13"))), Qt::Checked, Qt::CheckStateRole));

        // No destination yet: told, and the picker opens at once (here closed by its close box).
        Dialogs::setNextAnswers({Answer::button(QMessageBox::Ok), Answer::closeBox()});
        QTest::mouseClick(h->child("cmdStart"), Qt::LeftButton);
        QCOMPARE(Dialogs::shownTexts(), QStringList{QStringLiteral("Please select destination path")});
        QCOMPARE(Dialogs::pickerCalls().size(), 1);
        QCOMPARE(h->status(), QStringLiteral(" Destination path:  "));

        // Cancel at the question: nothing is written.
        const QString target = m_fx.filePath(QStringLiteral("out"));
        QDir().mkpath(target);
        h->w->signIn().DestinationPath = target;
        Dialogs::clearRecords();
        Dialogs::setNextAnswers({Answer::button(QMessageBox::Cancel)});
        QTest::mouseClick(h->child("cmdStart"), Qt::LeftButton);
        QCOMPARE(Dialogs::shownMessages().size(), 1);
        QCOMPARE(Dialogs::shownMessages().first().buttons, QMessageBox::Ok | QMessageBox::Cancel);
        QVERIFY(QDir(target).isEmpty());
        QVERIFY(h->errors.shown.isEmpty());
    }
};

QTEST_MAIN(TestWindow)
#include "test_window.moc"
