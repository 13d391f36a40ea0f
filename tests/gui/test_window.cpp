// The main window driven as a person would, offscreen, on the demo repository: the tool password,
// the sign-in screen with its messages and focus, the database list, the two kinds of database,
// the screen flow, the destination and the copy, and closing. Every control is found by name.
//
// With PARCELWISE_SCREENSHOTS=<folder> set, screenshots() also renders each screen there.

#include "app/appicon.h"
#include "app/dialogs.h"
#include "app/foldertreeview.h"
#include "app/frmfiledialog.h"
#include "app/frmsendtofolder.h"
#include "app/treeimages.h"
#include "errors/hunterr.h"
#include "errors/windows/fdmsshowerror.h"
#include "repository/connection.h"
#include "testsupport.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QFrame>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPushButton>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QStackedWidget>
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

    template <class T>
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

    void openWindow()
    {
        m_w = std::make_unique<FrmSendtofolder>();
        m_w->show();
        m_w->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(m_w.get()));
    }

    void unlock()
    {
        auto *password = child<QLineEdit>("TxtLoginPsw");
        password->setFocus(Qt::MouseFocusReason);
        QTest::keyClicks(password, QStringLiteral("brimex"));
        QTest::mouseClick(child<QPushButton>("cmdUserLogin"), Qt::LeftButton);
        QCOMPARE(screen(), child<QWidget>("frameConnectDb"));
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
        auto *password = child<QLineEdit>("txtPassword");
        password->setFocus(Qt::MouseFocusReason);
        QTest::keyClick(password, Qt::Key_Tab);
    }

    // The arrow key moves down the list until the name is chosen.
    void choose(const QString &name)
    {
        auto *list = child<QComboBox>("cboDBName");
        QCOMPARE(focused(), list);
        for (int i = 0; i < list->count() && list->currentText() != name; ++i)
            QTest::keyClick(list, Qt::Key_Down);
        QCOMPARE(list->currentText(), name);
    }

    void pressOk() { QTest::mouseClick(child<QPushButton>("cmdlogin"), Qt::LeftButton); }

    void signInTo(const QString &database)
    {
        unlock();
        fillSignIn(m_demo, QStringLiteral("demo"));
        enterList();
        choose(database);
        pressOk();
    }

    QColor typeColour() const { return child<QLabel>("lblDbTypeValue")->palette().color(QPalette::WindowText); }

    QList<QWidget *> signInControls() const
    {
        return {child<QWidget>("cmdlogin"), child<QWidget>("txServerName"), child<QWidget>("txtUserName"),
                child<QWidget>("txtPassword"), child<QWidget>("cboDBName")};
    }

    int statementsTraced(const QString &traceFile, const QString &statement) const
    {
        QFile file(traceFile);
        if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
            return 0;
        return QString::fromUtf8(file.readAll()).split(QLatin1Char('\n')).count(statement);
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
        HuntERR::setShower([this](const QString &text) { m_errors << text; });
    }

    void init()
    {
        Dialogs::setScripted(true);
        m_errors.clear();
        HuntERR::reset();
        HuntERR::setShower([this](const QString &text) { m_errors << text; });
        openWindow();
    }

    void cleanup()
    {
        m_w.reset();
        Dialogs::setScripted(false);
        repo::setTraceFile(QString());
    }

    void controlsAndCaptions()
    {
        QCOMPARE(m_w->windowTitle(), QStringLiteral("zarnivo - Parcelwise Ver 6.0"));
        QCOMPARE(child<QGroupBox>("FramePassword")->title(), QStringLiteral("User Login"));
        QCOMPARE(child<QGroupBox>("frameConnectDb")->title(), QStringLiteral("Source Database"));
        QCOMPARE(child<QGroupBox>("frameSelectFolder")->title(), QStringLiteral("Select Folder"));
        QCOMPARE(child<QLabel>("Label1")->text(), QStringLiteral("User Password"));
        QCOMPARE(child<QLabel>("lblServerName")->text(), QStringLiteral("Server Name :"));
        QCOMPARE(child<QLabel>("lbluserName")->text(), QStringLiteral("User Name :"));
        QCOMPARE(child<QLabel>("lblPassword")->text(), QStringLiteral("Password :"));
        QCOMPARE(child<QLabel>("lblDBName")->text(), QStringLiteral("Database :"));
        QCOMPARE(child<QLabel>("lblDbType")->text(), QStringLiteral("Database Type:"));
        QCOMPARE(child<QPushButton>("cmdUserLogin")->text(), QStringLiteral("&OK"));
        QCOMPARE(child<QPushButton>("cmdlogin")->text(), QStringLiteral("&OK"));
        QCOMPARE(child<QPushButton>("cmdBack")->text(), QStringLiteral("&Back"));
        QCOMPARE(child<QPushButton>("cmdDestination")->text(), QStringLiteral("&Select Destination"));
        QCOMPARE(child<QPushButton>("cmdStart")->text(), QStringLiteral("Start &Copy"));
        QCOMPARE(child<QPushButton>("cmdexit")->text(), QStringLiteral("E&xit"));
        QCOMPARE(child<QLineEdit>("TxtLoginPsw")->echoMode(), QLineEdit::Password);
        QCOMPARE(child<QLineEdit>("txtPassword")->echoMode(), QLineEdit::Password);
        QVERIFY(!child<QComboBox>("cboDBName")->isEditable());
        QVERIFY(child<QLineEdit>("txtProg")->isReadOnly());
        QVERIFY(child<QFrame>("FrameButton")->isAncestorOf(child<QWidget>("cmdStart")));
        QVERIFY(child<QWidget>("frameSelectFolder")->isAncestorOf(child<QWidget>("tvDefaultRoot")));

        // One screen at a time, all in the same place; at start only the password screen.
        QCOMPARE(screen(), child<QWidget>("FramePassword"));
        QVERIFY(child<QWidget>("FramePassword")->isVisible());
        QVERIFY(!child<QWidget>("frameConnectDb")->isVisible());
        QVERIFY(!child<QWidget>("frameSelectFolder")->isVisible());
        QVERIFY(child<QWidget>("cmdexit")->isVisible());
        QVERIFY(child<QWidget>("txtProg")->isVisible());
        const QRect place = child<QWidget>("FramePassword")->geometry();
        auto *stack = child<QStackedWidget>("screens");
        for (const char *name : {"frameConnectDb", "frameSelectFolder"}) {
            stack->setCurrentWidget(child<QWidget>(name));
            QCOMPARE(child<QWidget>(name)->geometry(), place);
        }
        stack->setCurrentWidget(child<QWidget>("FramePassword"));
        // The status line is the lowest thing in the window, the exit button just above it.
        QVERIFY(child<QWidget>("txtProg")->geometry().top() >= child<QWidget>("cmdexit")->geometry().bottom());
        QVERIFY(child<QWidget>("cmdexit")->geometry().top() >= place.bottom());
        QVERIFY(m_w->minimumWidth() >= 600 && m_w->minimumHeight() >= 440);
    }

    void passwordGate()
    {
        auto *password = child<QLineEdit>("TxtLoginPsw");
        auto *ok = child<QPushButton>("cmdUserLogin");

        const QStringList refused{QStringLiteral("brimex "), QStringLiteral(" BRIMEX"), QStringLiteral("secret"),
                                  QString()};
        for (const QString &typed : refused) {
            password->setText(typed);
            QTest::mouseClick(ok, Qt::LeftButton);
            QCOMPARE(screen(), child<QWidget>("FramePassword"));
            QCOMPARE(focused(), password);
        }
        const QList<Dialogs::ShownMessage> shown = Dialogs::shownMessages();
        QCOMPARE(shown.size(), refused.size());
        for (const Dialogs::ShownMessage &m : shown) {
            QCOMPARE(m.text, QStringLiteral("Invalid user password"));
            QCOMPARE(m.icon, QMessageBox::Warning);
            QCOMPARE(m.buttons, QMessageBox::StandardButtons(QMessageBox::Ok));
            QCOMPARE(m.title, QStringLiteral("zarnivo - Parcelwise"));
        }

        // Mixed case is accepted, typed and confirmed with Enter; the sign-in screen takes over
        // with the focus in the server box.
        Dialogs::clearRecords();
        password->clear();
        QTest::keyClicks(password, QStringLiteral("BriMex"));
        QTest::keyClick(password, Qt::Key_Return);
        QCOMPARE(screen(), child<QWidget>("frameConnectDb"));
        QVERIFY(Dialogs::shownMessages().isEmpty());
        QCOMPARE(focused(), child<QWidget>("txServerName"));
        QCOMPARE(status(), QStringLiteral(" Enter server name"));
        QVERIFY(m_errors.isEmpty());
    }

    void statusHints()
    {
        auto *password = child<QLineEdit>("TxtLoginPsw");
        password->setFocus(Qt::MouseFocusReason);
        QCOMPARE(status(), QStringLiteral(" Enter user password"));
        QTest::keyClick(password, Qt::Key_Tab);
        QCOMPARE(focused(), child<QWidget>("cmdUserLogin"));
        QCOMPARE(status(), QStringLiteral(" Click OK to login"));
        child<QWidget>("cmdexit")->setFocus(Qt::MouseFocusReason);
        QCOMPARE(status(), QString());

        unlock();
        fillSignIn(m_demo, QStringLiteral("demo"));
        const QList<QPair<const char *, QString>> signInHints{
            {"txServerName", QStringLiteral(" Enter server name")},
            {"txtUserName", QStringLiteral(" Enter user name")},
            {"txtPassword", QStringLiteral(" Enter password (If any)")},
            {"cboDBName", QStringLiteral(" Select database")},
            {"cmdlogin", QStringLiteral(" Click OK to proceed")},
        };
        child<QWidget>("txServerName")->setFocus(Qt::MouseFocusReason);
        for (int i = 0; i < signInHints.size(); ++i) {
            if (i > 0)
                QTest::keyClick(focused(), Qt::Key_Tab);
            QCOMPARE(focused(), child<QWidget>(signInHints[i].first));
            QCOMPARE(status(), signInHints[i].second);
        }
        // Every control but "&OK" clears its hint on leaving; "&OK" leaves it for the next one.
        child<QWidget>("cmdexit")->setFocus(Qt::MouseFocusReason);
        QCOMPARE(status(), QStringLiteral(" Click OK to proceed"));
        for (const char *name : {"txServerName", "txtUserName", "txtPassword"}) {
            child<QWidget>(name)->setFocus(Qt::MouseFocusReason);
            QVERIFY(!status().isEmpty());
            child<QWidget>("cmdexit")->setFocus(Qt::MouseFocusReason);
            QCOMPARE(status(), QString());
        }

        // The folder screen's buttons.
        child<QWidget>("cboDBName")->setFocus(Qt::MouseFocusReason);
        choose(QStringLiteral("Globex"));
        pressOk();
        QCOMPARE(screen(), child<QWidget>("frameSelectFolder"));
        const QList<QPair<const char *, QString>> folderHints{
            {"cmdBack", QStringLiteral(" Click Back for previous window")},
            {"cmdDestination", QStringLiteral(" Click select destination for destination folder path")},
            {"cmdStart", QStringLiteral(" Click start copy to copy folder(s)/File(s)")},
        };
        for (const auto &[name, hint] : folderHints) {
            child<QWidget>(name)->setFocus(Qt::TabFocusReason);
            QCOMPARE(status(), hint);
            child<QWidget>("tvDefaultRoot")->setFocus(Qt::TabFocusReason);
            QCOMPARE(status(), QString());
        }
        QVERIFY(m_errors.isEmpty());
    }

    void signInValidation()
    {
        unlock();
        auto *server = child<QLineEdit>("txServerName");
        auto *user = child<QLineEdit>("txtUserName");

        struct Case {
            QString server, user;
            QString text;
            QWidget *focus;
        };
        const QList<Case> cases{
            {QString(), QStringLiteral("demo"), QStringLiteral("Please enter server name"), server},
            {QStringLiteral("   "), QStringLiteral("demo"), QStringLiteral("Please enter server name"), server},
            {m_demo, QString(), QStringLiteral("Please enter user name"), user},
            {m_demo, QStringLiteral("  "), QStringLiteral("Please enter user name"), user},
        };
        for (const Case &c : cases) {
            // "&OK" checks the boxes first ...
            fillSignIn(c.server, c.user);
            Dialogs::clearRecords();
            pressOk();
            QCOMPARE(Dialogs::shownTexts(), QStringList{c.text});
            QCOMPARE(focused(), c.focus);
            QCOMPARE(screen(), child<QWidget>("frameConnectDb"));

            // ... and so does entering the database list, which then stays empty.
            Dialogs::clearRecords();
            enterList();
            QCOMPARE(Dialogs::shownTexts(), QStringList{c.text});
            QCOMPARE(Dialogs::shownMessages().first().icon, QMessageBox::Warning);
            QCOMPARE(focused(), c.focus);
            QCOMPARE(child<QComboBox>("cboDBName")->count(), 0);
        }

        // Clicking the (filled) list open after the server was cleared: told, sent to the server
        // box, and the list does not drop down behind the message.
        fillSignIn(m_demo, QStringLiteral("demo"));
        enterList();
        QCOMPARE(child<QComboBox>("cboDBName")->count(), 6);
        child<QWidget>("cmdexit")->setFocus(Qt::MouseFocusReason);
        fillSignIn(QString(), QStringLiteral("demo"));
        Dialogs::clearRecords();
        QTest::mouseClick(child<QComboBox>("cboDBName"), Qt::LeftButton);
        QCOMPARE(Dialogs::shownTexts(), QStringList{QStringLiteral("Please enter server name")});
        QCOMPARE(focused(), server);
        QVERIFY(!QApplication::activePopupWidget());

        // Server and user given, the list never entered: no database is chosen.
        openWindow();
        unlock();
        fillSignIn(m_demo, QStringLiteral("demo"));
        Dialogs::clearRecords();
        pressOk();
        QCOMPARE(Dialogs::shownTexts(), QStringList{QStringLiteral("Please select database name")});
        QCOMPARE(screen(), child<QWidget>("frameConnectDb"));
        QVERIFY(m_errors.isEmpty());
    }

    void databaseList()
    {
        const QString trace = m_tmp.filePath(QStringLiteral("list-trace.sql"));
        QFile::remove(trace);
        repo::setTraceFile(trace);
        const QString catalogueQuery = QStringLiteral("select Com_db, com_type from com_company order by Com_db");
        const QStringList names{QStringLiteral("Acme"),    QStringLiteral("AcmeArchive"), QStringLiteral("Globex"),
                                QStringLiteral("Initech"), QStringLiteral("Scratch"),     QStringLiteral("VandelayArchive")};
        auto *list = child<QComboBox>("cboDBName");
        auto *type = child<QLabel>("lblDbTypeValue");
        auto listed = [list] {
            QStringList all;
            for (int i = 0; i < list->count(); ++i)
                all << list->itemText(i);
            return all;
        };

        unlock();
        fillSignIn(m_demo, QStringLiteral("demo"));
        enterList();
        QCOMPARE(listed(), names);
        QCOMPARE(list->currentIndex(), 0);
        QCOMPARE(type->text(), QStringLiteral("Live"));
        QCOMPARE(typeColour(), QColor(Qt::black));
        QCOMPARE(statementsTraced(trace, catalogueQuery), 1);

        // Entered with the mouse, the list is read and then drops down.
        child<QWidget>("cmdexit")->setFocus(Qt::MouseFocusReason);
        QTest::mouseClick(list, Qt::LeftButton);
        QCOMPARE(statementsTraced(trace, catalogueQuery), 2);
        QVERIFY(QApplication::activePopupWidget());
        QTest::keyClick(QApplication::activePopupWidget(), Qt::Key_Escape);
        QVERIFY(!QApplication::activePopupWidget());
        QCOMPARE(focused(), list);

        choose(QStringLiteral("AcmeArchive"));
        QCOMPARE(type->text(), QStringLiteral("Archive"));
        QCOMPARE(typeColour(), QColor(255, 0, 0));
        choose(QStringLiteral("Globex")); // type code "l" in lower case
        QCOMPARE(type->text(), QStringLiteral("Live"));
        QCOMPARE(typeColour(), QColor(Qt::black));
        choose(QStringLiteral("VandelayArchive")); // "a"
        QCOMPARE(type->text(), QStringLiteral("Archive"));
        QCOMPARE(typeColour(), QColor(255, 0, 0));
        QCOMPARE(m_w->signIn().blnArchive, true);

        // Leaving and entering again reads the list afresh: same entries once, the first chosen.
        QTest::keyClick(list, Qt::Key_Tab);
        QCOMPARE(focused(), child<QWidget>("cmdlogin"));
        QTest::keyClick(focused(), Qt::Key_Backtab);
        QCOMPARE(focused(), list);
        QCOMPARE(listed(), names);
        QCOMPARE(list->currentText(), QStringLiteral("Acme"));
        QCOMPARE(type->text(), QStringLiteral("Live"));
        QCOMPARE(typeColour(), QColor(Qt::black));
        QCOMPARE(m_w->signIn().blnArchive, false);
        QCOMPARE(statementsTraced(trace, catalogueQuery), 3);

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
        QCOMPARE(screen(), child<QWidget>("frameConnectDb"));

        // A database without the repository's tables: told, back at the choice, all usable.
        Dialogs::clearRecords();
        child<QWidget>("cboDBName")->setFocus(Qt::MouseFocusReason);
        choose(QStringLiteral("Scratch"));
        pressOk();
        QCOMPARE(Dialogs::shownTexts(), QStringList{QStringLiteral("Invalid database selected")});
        QCOMPARE(Dialogs::shownMessages().first().icon, QMessageBox::Warning);
        QCOMPARE(screen(), child<QWidget>("frameConnectDb"));
        for (QWidget *control : signInControls())
            QVERIFY2(control->isEnabled(), qPrintable(control->objectName()));
        QCOMPARE(m_w->signIn().blnInvalidDb, false);
        QVERIFY(m_errors.isEmpty());
    }

    void liveAndArchiveTrees()
    {
        FolderTree &tree = m_w->folderTree();
        signInTo(QStringLiteral("Acme"));
        QCOMPARE(screen(), child<QWidget>("frameSelectFolder"));
        QCOMPARE(status(), QString());
        QCOMPARE(tree.count(), 1);
        QCOMPARE(tree.node(1)->key, QStringLiteral("Fold1"));
        QCOMPARE(tree.node(1)->text, QStringLiteral("Acme Corporation [Acme <Live> ]"));
        QCOMPARE(tree.node(1)->image, 1);
        QCOMPARE(tree.selected(), tree.node(1));
        auto *view = child<FolderTreeView>("tvDefaultRoot");
        QCOMPARE(view->model()->rowCount(), 1);
        QCOMPARE(view->currentIndex(), tree.indexOf(tree.node(1)));
        for (QWidget *control : signInControls())
            QVERIFY(control->isEnabled());

        // Back closes the company connection only; the boxes keep what was typed.
        QVERIFY(m_w->signIn().cnDb().state() == repo::adStateOpen);
        m_w->treeProcs().dblCheckedNodeIdx = 3;
        QTest::mouseClick(child<QPushButton>("cmdBack"), Qt::LeftButton);
        QCOMPARE(screen(), child<QWidget>("frameConnectDb"));
        QCOMPARE(m_w->signIn().cnDb().state(), repo::adStateClosed);
        QVERIFY(m_w->signIn().cnMaster().state() == repo::adStateOpen);
        QCOMPARE(m_w->treeProcs().dblCheckedNodeIdx, 0.0);
        QCOMPARE(child<QLineEdit>("txServerName")->text(), m_demo);
        QCOMPARE(child<QComboBox>("cboDBName")->currentText(), QStringLiteral("Acme"));

        // The archive database shows the live database's root under its own name.
        child<QWidget>("cboDBName")->setFocus(Qt::MouseFocusReason);
        choose(QStringLiteral("AcmeArchive"));
        pressOk();
        QCOMPARE(screen(), child<QWidget>("frameSelectFolder"));
        QCOMPARE(tree.count(), 1);
        QCOMPARE(tree.node(1)->text, QStringLiteral("Acme Corporation [AcmeArchive <Archive> ]"));
        QCOMPARE(m_w->signIn().strLiveDb, QStringLiteral("Acme"));

        // Children loaded, then back and "&OK" again: a fresh tree, the root alone.
        QVERIFY(m_w->treeProcs().tvDefaultRoot_NodeClick(tree.node(1)));
        QVERIFY(tree.count() > 1);
        QTest::mouseClick(child<QPushButton>("cmdBack"), Qt::LeftButton);
        pressOk();
        QCOMPARE(screen(), child<QWidget>("frameSelectFolder"));
        QCOMPARE(tree.count(), 1);
        QCOMPARE(tree.node(1)->text, QStringLiteral("Acme Corporation [AcmeArchive <Archive> ]"));
        QVERIFY(m_errors.isEmpty());
        QVERIFY(Dialogs::shownMessages().isEmpty());
    }

    void failedTreeBuildLeavesOnlyOk()
    {
        // A server whose Globex has a site row at the first level that sorts before the root: it
        // is added under a parent that never exists, and the tree build fails.
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
            db.close();
        }
        QSqlDatabase::removeDatabase(QStringLiteral("break-globex"));

        unlock();
        fillSignIn(broken, QStringLiteral("demo"));
        enterList();
        choose(QStringLiteral("Globex"));
        pressOk();
        QVERIFY2(Dialogs::shownMessages().isEmpty(), qPrintable(Dialogs::shownTexts().join(QLatin1Char('|'))));
        QCOMPARE(m_errors.size(), 1);
        QVERIFY2(m_errors.first().contains(QStringLiteral("FrmSendtofolder.cmdlogin_Click")), qPrintable(m_errors.first()));
        QCOMPARE(screen(), child<QWidget>("frameConnectDb"));
        QCOMPARE(status(), QStringLiteral(" Processing... Please Wait"));
        QVERIFY(child<QWidget>("cmdlogin")->isEnabled());
        for (const char *name : {"txServerName", "txtUserName", "txtPassword", "cboDBName"})
            QVERIFY2(!child<QWidget>(name)->isEnabled(), name);
        QVERIFY(!QApplication::overrideCursor());

        // "&OK" retries the whole sign-in (and fails the same way).
        pressOk();
        QCOMPARE(m_errors.size(), 2);
        QVERIFY(child<QWidget>("cmdlogin")->isEnabled());
        QCOMPARE(screen(), child<QWidget>("frameConnectDb"));
    }

    void unreachableServer()
    {
        unlock();
        fillSignIn(QStringLiteral("127.0.0.1,1"), QStringLiteral("sa"), QStringLiteral("x"));
        enterList();
        QCOMPARE(Dialogs::shownTexts(), QStringList{QStringLiteral("SQL Server does not exist or access denied")});
        QCOMPARE(Dialogs::shownMessages().first().title, QStringLiteral("zarnivo - Parcelwise"));
        QCOMPARE(child<QComboBox>("cboDBName")->count(), 0);
        QVERIFY(m_errors.isEmpty());
        QVERIFY(!QApplication::overrideCursor());
    }

    void destinationAndCopy()
    {
        signInTo(QStringLiteral("Acme"));
        FolderTree &tree = m_w->folderTree();
        QVERIFY(m_w->treeProcs().tvDefaultRoot_NodeClick(tree.node(1)));
        FolderTree::Node *marketing = tree.find(QStringLiteral("Fold13"));
        QVERIFY(marketing);
        QVERIFY(tree.setData(tree.indexOf(marketing), Qt::Checked, Qt::CheckStateRole));
        QVERIFY(marketing->checked);

        auto *start = child<QPushButton>("cmdStart");
        auto *destinationButton = child<QPushButton>("cmdDestination");
        auto *buttons = child<QFrame>("FrameButton");

        // No destination yet: told, and the picker opens at once (here closed by its close box).
        Dialogs::setNextAnswers({Answer::button(QMessageBox::Ok), Answer::closeBox()});
        QTest::mouseClick(start, Qt::LeftButton);
        QCOMPARE(Dialogs::pendingAnswers(), 0);
        QCOMPARE(Dialogs::shownTexts(), QStringList{QStringLiteral("Please select destination path")});
        QCOMPARE(Dialogs::pickerCalls().size(), 1);
        QCOMPARE(status(), QStringLiteral(" Destination path:  "));
        QVERIFY(m_w->signIn().DestinationPath.isEmpty());

        // Choosing one writes it into the status line; the close box keeps it.
        const QString target = m_tmp.filePath(QStringLiteral("out"));
        QDir().mkpath(target);
        Dialogs::clearRecords();
        Dialogs::setNextAnswers({Answer::path(QStringLiteral("  ") + target + QStringLiteral(" ")), Answer::closeBox()});
        QTest::mouseClick(destinationButton, Qt::LeftButton);
        QCOMPARE(status(), QStringLiteral(" Destination path:  ") + target);
        m_w->signIn().DestinationPath = target;
        QTest::mouseClick(destinationButton, Qt::LeftButton);
        QCOMPARE(m_w->signIn().DestinationPath, target);
        QCOMPARE(status(), QStringLiteral(" Destination path:  ") + target);
        QCOMPARE(Dialogs::pickerCalls().at(1).currentPath, target);

        // Cancel at the question: nothing is written.
        Dialogs::clearRecords();
        Dialogs::setNextAnswers({Answer::button(QMessageBox::Cancel)});
        QTest::mouseClick(start, Qt::LeftButton);
        QCOMPARE(Dialogs::shownMessages().size(), 1);
        const Dialogs::ShownMessage question = Dialogs::shownMessages().first();
        QCOMPARE(question.text, QStringLiteral("You have selected \"") + target
                                    + QStringLiteral("\" as destination folder, do you want to continue?..."));
        QCOMPARE(question.icon, QMessageBox::Question);
        QCOMPARE(question.buttons, QMessageBox::Ok | QMessageBox::Cancel);
        QCOMPARE(question.title, QStringLiteral("zarnivo - Parcelwise"));
        QVERIFY(QDir(target).isEmpty());
        QVERIFY(buttons->isEnabled());

        // OK: the ticked folder is copied, completion is told, the buttons come back.
        Dialogs::clearRecords();
        Dialogs::setNextAnswers({Answer::button(QMessageBox::Ok)});
        QTest::mouseClick(start, Qt::LeftButton);
        QCOMPARE(Dialogs::shownTexts(),
                 (QStringList{question.text, QStringLiteral("Process completed successfully")}));
        QCOMPARE(Dialogs::shownMessages().at(1).icon, QMessageBox::Warning);
        QVERIFY(QFile::exists(QDir(target).filePath(QStringLiteral("Marketing/Logo.png"))));
        QVERIFY(QFile::exists(QDir(target).filePath(QStringLiteral("Marketing/Brochure.pdf"))));
        QCOMPARE(status(), QString());
        QVERIFY(buttons->isEnabled());
        QVERIFY(Dialogs::openedLogs().isEmpty()); // nothing failed, nothing to show
        QVERIFY(!QApplication::overrideCursor());
        QVERIFY(m_errors.isEmpty());

        // A destination that is a file: every folder fails, the log is shown at the end.
        const QString blocked = m_tmp.filePath(QStringLiteral("a-file"));
        {
            QFile file(blocked);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write("not a folder");
        }
        m_w->signIn().DestinationPath = blocked;
        Dialogs::clearRecords();
        Dialogs::setNextAnswers({Answer::button(QMessageBox::Ok)});
        QTest::mouseClick(start, Qt::LeftButton);
        QCOMPARE(Dialogs::shownTexts().last(), QStringLiteral("Process completed successfully"));
        QCOMPARE(Dialogs::openedLogs().size(), 1);
        const QString log = Dialogs::openedLogs().first();
        QVERIFY2(QFileInfo(log).fileName().startsWith(QStringLiteral("zarnivo Parcelwise Log ")), qPrintable(log));
        QVERIFY2(QFile::exists(log), qPrintable(log));
        QVERIFY(buttons->isEnabled());
    }

    void closing()
    {
        // Before sign-in: nothing to close, nothing reported.
        QVERIFY(m_w->close());
        QVERIFY(m_errors.isEmpty());

        // With both connections open: both are closed, still nothing reported.
        openWindow();
        signInTo(QStringLiteral("Globex"));
        QVERIFY(m_w->signIn().cnMaster().state() == repo::adStateOpen);
        QTest::mouseClick(child<QPushButton>("cmdexit"), Qt::LeftButton);
        QVERIFY(!m_w->isVisible());
        QCOMPARE(m_w->signIn().cnDb().state(), repo::adStateClosed);
        QCOMPARE(m_w->signIn().cnMaster().state(), repo::adStateClosed);
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
