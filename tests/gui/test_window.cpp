// The main window driven as a person would, offscreen, on the demo repository: the tool password,
// the sign-in screen with its messages and focus, the database list, the two kinds of database,
// the screen flow, the way to "Start &Copy", and closing. Every control is found by name.
//
// With PARCELWISE_SCREENSHOTS=<folder> set, screenshots() also renders each screen there.

#include "app/appicon.h"
#include "app/dialogs.h"
#include "app/foldertreeview.h"
#include "app/frmfiledialog.h"
#include "app/frmsendtofolder.h"
#include "app/treeimages.h"
#include "errors/hunterr.h"
#include "app/fdmsshowerror.h"
#include "repository/connection.h"
#include "testsupport.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPushButton>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using Dialogs::Answer;

class TestWindow : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_tmp;
    QString m_demo;
    QStringList m_errors; // what the error trail showed
    std::unique_ptr<FrmSendtofolder> m_w;

    template <class T = QWidget>
    T *child(const char *name) const
    {
        T *found = m_w->findChild<T *>(QString::fromLatin1(name));
        if (!found)
            qFatal("no control named %s", name);
        return found;
    }
    QString status() const { return child<QLineEdit>("txtProg")->text(); }
    QWidget *screen() const { return m_w->currentScreen(); }
    QWidget *focused() const { return QApplication::focusWidget(); }
    QComboBox *list() const { return child<QComboBox>("cboDBName"); }

    void unlock()
    {
        auto *password = child<QLineEdit>("TxtLoginPsw");
        password->setFocus(Qt::MouseFocusReason);
        QTest::keyClicks(password, QStringLiteral("brimex"));
        QTest::mouseClick(child<QPushButton>("cmdUserLogin"), Qt::LeftButton);
        QCOMPARE(screen(), child("frameConnectDb"));
    }

    void fillSignIn(const QString &server, const QString &user, const QString &password = {})
    {
        child<QLineEdit>("txServerName")->setText(server);
        child<QLineEdit>("txtUserName")->setText(user);
        child<QLineEdit>("txtPassword")->setText(password);
    }

    // Tabbing from the password box into the database list, which refreshes it.
    void enterList()
    {
        child("txtPassword")->setFocus(Qt::MouseFocusReason);
        QTest::keyClick(child("txtPassword"), Qt::Key_Tab);
    }

    // The arrow key moves down the list until the name is chosen.
    void choose(const QString &name)
    {
        QCOMPARE(focused(), list());
        for (int i = 0; i < list()->count() && list()->currentText() != name; ++i)
            QTest::keyClick(list(), Qt::Key_Down);
        QCOMPARE(list()->currentText(), name);
    }

    void pressOk() { QTest::mouseClick(child<QPushButton>("cmdlogin"), Qt::LeftButton); }

    void signInTo(const QString &database, const QString &server = {})
    {
        unlock();
        fillSignIn(server.isEmpty() ? m_demo : server, QStringLiteral("demo"));
        enterList();
        choose(database);
        pressOk();
    }

    // The database type as shown: its caption and its colour.
    QString typeShown() const
    {
        auto *type = child<QLabel>("lblDbTypeValue");
        return type->text() + QLatin1Char(' ') + type->palette().color(QPalette::WindowText).name();
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_tmp.isValid());
        // The export log goes to the Documents folder; keep it inside the test's own folder.
        qputenv("HOME", m_tmp.filePath(QStringLiteral("home")).toUtf8());
        qputenv("XDG_CONFIG_HOME", m_tmp.filePath(QStringLiteral("home/.config")).toUtf8());
        QDir().mkpath(m_tmp.filePath(QStringLiteral("home/Documents")));
        QString error;
        m_demo = writeDemo(m_tmp.path(), &error);
        QVERIFY2(!m_demo.isEmpty(), qPrintable(error));
    }

    void init()
    {
        Dialogs::setScripted(true);
        m_errors.clear();
        HuntERR::reset();
        HuntERR::setShower([this](const QString &text) { m_errors << text; });
        m_w = std::make_unique<FrmSendtofolder>();
        m_w->show();
        m_w->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(m_w.get()));
    }

    void cleanup()
    {
        m_w.reset();
        Dialogs::setScripted(false);
    }

    void passwordGateAndClosingBeforeSignIn()
    {
        QCOMPARE(m_w->windowTitle(), QStringLiteral("zarnivo - Parcelwise Ver 6.0"));
        QCOMPARE(screen(), child("FramePassword"));
        auto *password = child<QLineEdit>("TxtLoginPsw");

        // Blanks count, so a trailing one is refused like a wrong word; the focus stays for a retry.
        for (const QString &typed : {QStringLiteral("brimex "), QStringLiteral("secret")}) {
            password->setText(typed);
            Dialogs::clearRecords();
            QTest::mouseClick(child<QPushButton>("cmdUserLogin"), Qt::LeftButton);
            QCOMPARE(screen(), child("FramePassword"));
            QCOMPARE(focused(), password);
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
        QCOMPARE(screen(), child("frameConnectDb"));
        QVERIFY(Dialogs::shownMessages().isEmpty());
        QCOMPARE(focused(), child("txServerName"));

        // Closing before signing in has no connection to close and nothing to report.
        QVERIFY(m_w->close());
        QVERIFY(m_errors.isEmpty());
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
                unlock();
                fillSignIn(m_demo, QStringLiteral("demo"));
            } else if (i == 2) {
                pressOk();
                QCOMPARE(screen(), child("frameSelectFolder"));
            }
            for (const auto &[name, hint] : screens[i]) {
                child(name)->setFocus(Qt::TabFocusReason);
                QCOMPARE(status(), hint);
                child("cmdexit")->setFocus(Qt::TabFocusReason);
                QCOMPARE(status(), qstrcmp(name, "cmdlogin") == 0 ? hint : QString());
            }
        }
        QVERIFY(m_errors.isEmpty());
    }

    void signInValidation()
    {
        unlock();
        QWidget *server = child("txServerName");
        QWidget *user = child("txtUserName");

        // Blank boxes count as empty. "&OK" and entering the database list both check them and
        // send the focus to the box named; the list stays empty.
        const QList<std::tuple<QString, QString, QString, QWidget *>> cases{
            {QStringLiteral("   "), QStringLiteral("demo"), QStringLiteral("Please enter server name"), server},
            {m_demo, QStringLiteral("  "), QStringLiteral("Please enter user name"), user},
        };
        for (const auto &[serverText, userText, message, focus] : cases) {
            fillSignIn(serverText, userText);
            Dialogs::clearRecords();
            pressOk();
            QCOMPARE(Dialogs::shownTexts(), QStringList{message});
            QCOMPARE(focused(), focus);
            QCOMPARE(screen(), child("frameConnectDb"));

            Dialogs::clearRecords();
            enterList();
            QCOMPARE(Dialogs::shownTexts(), QStringList{message});
            QCOMPARE(focused(), focus);
            QCOMPARE(list()->count(), 0);
        }

        // A server nobody answers on: told, and the list stays empty.
        fillSignIn(QStringLiteral("127.0.0.1,1"), QStringLiteral("sa"), QStringLiteral("x"));
        Dialogs::clearRecords();
        enterList();
        QCOMPARE(Dialogs::shownTexts(), QStringList{QStringLiteral("SQL Server does not exist or access denied")});
        QCOMPARE(list()->count(), 0);
        QVERIFY(!QApplication::overrideCursor());

        // Server and user given, the list never filled: no database is chosen.
        fillSignIn(m_demo, QStringLiteral("demo"));
        Dialogs::clearRecords();
        pressOk();
        QCOMPARE(Dialogs::shownTexts(), QStringList{QStringLiteral("Please select database name")});
        QCOMPARE(screen(), child("frameConnectDb"));

        // Clicking the filled list open after the server was cleared: told, sent to the server
        // box, and the list does not drop down behind the message.
        enterList();
        QCOMPARE(list()->count(), 8);
        child("cmdexit")->setFocus(Qt::MouseFocusReason);
        fillSignIn(QString(), QStringLiteral("demo"));
        Dialogs::clearRecords();
        QTest::mouseClick(list(), Qt::LeftButton);
        QCOMPARE(Dialogs::shownTexts(), QStringList{QStringLiteral("Please enter server name")});
        QCOMPARE(focused(), server);
        QVERIFY(!QApplication::activePopupWidget());

        QVERIFY(m_errors.isEmpty());
    }

    void databaseList()
    {
        auto listed = [this] {
            QStringList all;
            for (int i = 0; i < list()->count(); ++i)
                all << list()->itemText(i);
            return all;
        };
        const QStringList names{QStringLiteral("Acme"),    QStringLiteral("AcmeArchive"), QStringLiteral("Globex"),
                                QStringLiteral("Initech"), QStringLiteral("Scratch"),     QStringLiteral("Twofold"),
                                QStringLiteral("TwofoldArchive"), QStringLiteral("VandelayArchive")};
        const QString live = QStringLiteral("Live #000000"), archive = QStringLiteral("Archive #ff0000");

        unlock();
        fillSignIn(m_demo, QStringLiteral("demo"));
        enterList();
        QCOMPARE(listed(), names);
        QCOMPARE(list()->currentIndex(), 0);
        QCOMPARE(typeShown(), live);

        // The type code's letter case does not matter ("l" for Globex, "a" for VandelayArchive).
        const QList<QPair<QString, QString>> types{
            {QStringLiteral("AcmeArchive"), archive}, {QStringLiteral("Globex"), live}, {QStringLiteral("VandelayArchive"), archive}};
        for (const auto &[name, shown] : types) {
            choose(name);
            QCOMPARE(typeShown(), shown);
            QCOMPARE(m_w->signIn().blnArchive, shown == archive);
        }

        // Leaving and entering again reads the list afresh: the same entries once, the first chosen.
        QTest::keyClick(list(), Qt::Key_Tab);
        QTest::keyClick(focused(), Qt::Key_Backtab);
        QCOMPARE(focused(), list());
        QCOMPARE(listed(), names);
        QCOMPARE(list()->currentText(), QStringLiteral("Acme"));
        QCOMPARE(typeShown(), live);
        QCOMPARE(m_w->signIn().blnArchive, false);

        // Entered with the mouse, the list is read afresh and then drops down.
        choose(QStringLiteral("AcmeArchive"));
        child("cmdexit")->setFocus(Qt::MouseFocusReason);
        QTest::mouseClick(list(), Qt::LeftButton);
        QCOMPARE(list()->currentText(), QStringLiteral("Acme"));
        QVERIFY(QApplication::activePopupWidget());
        QTest::keyClick(QApplication::activePopupWidget(), Qt::Key_Escape);
        QVERIFY(m_errors.isEmpty());
        QVERIFY(Dialogs::shownMessages().isEmpty());
    }

    void refusedDatabases()
    {
        unlock();
        fillSignIn(m_demo, QStringLiteral("demo"));
        enterList();

        // Listed in the catalogue, but there is no such database on the server.
        choose(QStringLiteral("Initech"));
        pressOk();
        QCOMPARE(Dialogs::shownTexts(), QStringList{QStringLiteral("Selected database does not exists")});
        QCOMPARE(screen(), child("frameConnectDb"));

        // A database without the repository's tables: told, back at the choice, all usable.
        Dialogs::clearRecords();
        list()->setFocus(Qt::MouseFocusReason);
        choose(QStringLiteral("Scratch"));
        pressOk();
        QCOMPARE(Dialogs::shownTexts(), QStringList{QStringLiteral("Invalid database selected")});
        QCOMPARE(screen(), child("frameConnectDb"));
        for (const char *name : {"cmdlogin", "txServerName", "txtUserName", "txtPassword", "cboDBName"})
            QVERIFY2(child(name)->isEnabled(), name);
        QVERIFY(m_errors.isEmpty());
    }

    void liveAndArchiveTreesThenExit()
    {
        FolderTree &tree = m_w->folderTree();
        signInTo(QStringLiteral("Acme"));
        QCOMPARE(screen(), child("frameSelectFolder"));
        QCOMPARE(status(), QString());
        QCOMPARE(tree.count(), 1);
        QCOMPARE(tree.node(1)->text, QStringLiteral("Acme Corporation [Acme <Live> ]"));

        // Back closes the company connection only; the boxes keep what was typed.
        QTest::mouseClick(child<QPushButton>("cmdBack"), Qt::LeftButton);
        QCOMPARE(screen(), child("frameConnectDb"));
        QCOMPARE(m_w->signIn().cnDb().state(), repo::adStateClosed);
        QCOMPARE(m_w->signIn().cnMaster().state(), repo::adStateOpen);
        QCOMPARE(child<QLineEdit>("txServerName")->text(), m_demo);
        QCOMPARE(list()->currentText(), QStringLiteral("Acme"));

        // The archive database shows the live database's root under its own name.
        list()->setFocus(Qt::MouseFocusReason);
        choose(QStringLiteral("AcmeArchive"));
        pressOk();
        QCOMPARE(screen(), child("frameSelectFolder"));
        QCOMPARE(tree.count(), 1);
        QCOMPARE(tree.node(1)->text, QStringLiteral("Acme Corporation [AcmeArchive <Archive> ]"));

        // Children loaded, then back and "&OK" again: a fresh tree, the root alone.
        QVERIFY(m_w->treeProcs().tvDefaultRoot_NodeClick(tree.node(1)));
        QVERIFY(tree.count() > 1);
        QTest::mouseClick(child<QPushButton>("cmdBack"), Qt::LeftButton);
        pressOk();
        QCOMPARE(screen(), child("frameSelectFolder"));
        QCOMPARE(tree.count(), 1);
        QCOMPARE(tree.node(1)->text, QStringLiteral("Acme Corporation [AcmeArchive <Archive> ]"));

        // E&xit closes both connections, reporting nothing.
        QTest::mouseClick(child<QPushButton>("cmdexit"), Qt::LeftButton);
        QVERIFY(!m_w->isVisible());
        QCOMPARE(m_w->signIn().cnDb().state(), repo::adStateClosed);
        QCOMPARE(m_w->signIn().cnMaster().state(), repo::adStateClosed);
        QVERIFY(m_errors.isEmpty());
        QVERIFY(Dialogs::shownMessages().isEmpty());
    }

    void failedTreeBuildLeavesOnlyOk()
    {
        // A Globex whose first level holds a site row that sorts before the root: it is added
        // under a parent that never exists, and the tree build fails.
        QString error;
        const QString broken = writeDemo(m_tmp.filePath(QStringLiteral("broken")), &error);
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

        signInTo(QStringLiteral("Globex"), broken);
        QVERIFY(Dialogs::shownMessages().isEmpty());
        QCOMPARE(m_errors.size(), 1);
        QVERIFY2(m_errors.first().contains(QStringLiteral("FrmSendtofolder.cmdlogin_Click")), qPrintable(m_errors.first()));
        QCOMPARE(screen(), child("frameConnectDb"));
        QCOMPARE(status(), QStringLiteral(" Processing... Please Wait"));
        QVERIFY(child("cmdlogin")->isEnabled());
        for (const char *name : {"txServerName", "txtUserName", "txtPassword", "cboDBName"})
            QVERIFY2(!child(name)->isEnabled(), name);
        QVERIFY(!QApplication::overrideCursor());

        // "&OK" retries the whole sign-in (and fails the same way).
        pressOk();
        QCOMPARE(m_errors.size(), 2);
        QVERIFY(child("cmdlogin")->isEnabled());
    }

    void startCopyAsksFirst()
    {
        signInTo(QStringLiteral("Acme"));
        FolderTree &tree = m_w->folderTree();
        QVERIFY(m_w->treeProcs().tvDefaultRoot_NodeClick(tree.node(1)));
        QVERIFY(tree.setData(tree.indexOf(tree.find(QStringLiteral("Fold13"))), Qt::Checked, Qt::CheckStateRole));

        // No destination yet: told, and the picker opens at once (here closed by its close box).
        Dialogs::setNextAnswers({Answer::button(QMessageBox::Ok), Answer::closeBox()});
        QTest::mouseClick(child("cmdStart"), Qt::LeftButton);
        QCOMPARE(Dialogs::shownTexts(), QStringList{QStringLiteral("Please select destination path")});
        QCOMPARE(Dialogs::pickerCalls().size(), 1);
        QCOMPARE(status(), QStringLiteral(" Destination path:  "));

        // Cancel at the question: nothing is written.
        const QString target = m_tmp.filePath(QStringLiteral("out"));
        QDir().mkpath(target);
        m_w->signIn().DestinationPath = target;
        Dialogs::clearRecords();
        Dialogs::setNextAnswers({Answer::button(QMessageBox::Cancel)});
        QTest::mouseClick(child("cmdStart"), Qt::LeftButton);
        QCOMPARE(Dialogs::shownMessages().size(), 1);
        QCOMPARE(Dialogs::shownMessages().first().buttons, QMessageBox::Ok | QMessageBox::Cancel);
        QVERIFY(QDir(target).isEmpty());
        QVERIFY(m_errors.isEmpty());
    }

    void screenshots()
    {
        const QString folder = qEnvironmentVariable("PARCELWISE_SCREENSHOTS");
        if (folder.isEmpty())
            QSKIP("set PARCELWISE_SCREENSHOTS=<folder> to render the screens");
        QDir().mkpath(folder);
        auto save = [&](QWidget *w, const char *name) {
            QVERIFY(w->grab().save(QDir(folder).filePath(QString::fromLatin1(name))));
        };

        child<QLineEdit>("TxtLoginPsw")->setFocus(Qt::MouseFocusReason);
        QTest::keyClicks(child<QLineEdit>("TxtLoginPsw"), QStringLiteral("brim"));
        save(m_w.get(), "password.png");
        child<QLineEdit>("TxtLoginPsw")->clear();

        unlock();
        fillSignIn(m_demo, QStringLiteral("demo"));
        enterList();
        choose(QStringLiteral("AcmeArchive"));
        save(m_w.get(), "sign-in.png");

        pressOk();
        FolderTree &tree = m_w->folderTree();
        auto *view = child<FolderTreeView>("tvDefaultRoot");
        QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, view->rowRect(tree.node(1)).center());
        for (const char *key : {"Fold20", "Fold10"})
            if (FolderTree::Node *n = tree.find(QString::fromLatin1(key)))
                QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, view->rowRect(n).center());
        if (FolderTree::Node *n = tree.find(QStringLiteral("Fold20")))
            tree.setData(tree.indexOf(n), Qt::Checked, Qt::CheckStateRole);
        m_w->setStatus(QStringLiteral(" Destination path:  ") + QDir::toNativeSeparators(m_tmp.filePath(QStringLiteral("out"))));
        save(m_w.get(), "folders.png");

        // The image list, numbered, each picture at its own size, at twice and three times that.
        {
            const int cell = 80, band = 150;
            QPixmap sheet(15 * cell, 2 * band);
            sheet.fill(Qt::white);
            QPainter p(&sheet);
            for (int i = 1; i <= 29; ++i) {
                const int x = ((i - 1) % 15) * cell, y = ((i - 1) / 15) * band;
                p.drawText(QRect(x, y + 2, cell, 16), Qt::AlignCenter, QString::number(i));
                p.drawPixmap(x + (cell - 16) / 2, y + 22, TreeImages::pixmap(i, 16));
                p.drawPixmap(x + (cell - 32) / 2, y + 44, TreeImages::pixmap(i, 32));
                p.drawPixmap(x + (cell - 48) / 2, y + 82, TreeImages::pixmap(i, 48));
            }
            p.end();
            QVERIFY(sheet.save(QDir(folder).filePath(QStringLiteral("tree-images.png"))));
        }

        QVERIFY(AppIcon::icon().pixmap(128).save(QDir(folder).filePath(QStringLiteral("app-icon.png"))));

        frmFileDialog picker(m_w.get());
        picker.show();
        QVERIFY(QTest::qWaitForWindowExposed(&picker));
        save(&picker, "picker.png");
        picker.close();

        // A real failure shown through the real error window.
        installErrorWindow();
        ErrorWindows::setModalHook([&](QDialog &dialog) { save(&dialog, "error.png"); });
        frmFileDialog failing(m_w.get());
        failing.drives()->addItem(QStringLiteral("Z:\\"), QStringLiteral("/no-such-drive/"));
        failing.drives()->setCurrentIndex(failing.drives()->count() - 1);
        ErrorWindows::setModalHook({});
        QVERIFY(QFile::exists(QDir(folder).filePath(QStringLiteral("error.png"))));
    }
};

QTEST_MAIN(TestWindow)
#include "test_window.moc"
