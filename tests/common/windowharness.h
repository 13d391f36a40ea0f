#pragma once
// Window-side test support (for tests/gui only: it needs the widgets): scope guards for the
// window's process-wide test seams, and the main window on the demo repository driven as a
// person drives it, every control found by its name.

#include "app/dialogs.h"
#include "app/fdmsshowerror.h"
#include "app/foldertreeview.h"
#include "app/frmsendtofolder.h"
#include "scopes.h"
#include "testsupport.h"

#include <QApplication>
#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>

#include <memory>

// Message boxes and the picker answered from a script; switching it off clears the script.
struct ScriptedDialogsScope {
    ScriptedDialogsScope() { app::Dialogs::setScripted(true); }
    ~ScriptedDialogsScope() { app::Dialogs::setScripted(false); }
    ScriptedDialogsScope(const ScriptedDialogsScope &) = delete;
    ScriptedDialogsScope &operator=(const ScriptedDialogsScope &) = delete;
};

// The error windows handed to hook instead of a modal loop.
struct ModalHookScope {
    explicit ModalHookScope(app::ErrorWindows::ModalHook hook) { app::ErrorWindows::setModalHook(std::move(hook)); }
    ~ModalHookScope() { app::ErrorWindows::setModalHook({}); }
    ModalHookScope(const ModalHookScope &) = delete;
    ModalHookScope &operator=(const ModalHookScope &) = delete;
};

// One main window, shown and active, with the dialogs scripted and the error trail collected.
class MainWindowHarness {
public:
    ScriptedDialogsScope scripted;
    ErrorTrailScope errors;
    std::unique_ptr<app::FrmSendtofolder> w;

    // Shows a fresh window; false when it never became active.
    bool open(QSize size = {})
    {
        w = std::make_unique<app::FrmSendtofolder>();
        if (size.isValid())
            w->resize(size);
        w->show();
        w->activateWindow();
        return QTest::qWaitForWindowActive(w.get());
    }

    template <class T = QWidget>
    T *child(const char *name) const
    {
        T *found = w->findChild<T *>(QString::fromLatin1(name));
        if (!found)
            qFatal("no control named %s", name);
        return found;
    }
    QString status() const { return child<QLineEdit>("txtProg")->text(); }
    QWidget *screen() const { return w->currentScreen(); }
    static QWidget *focused() { return QApplication::focusWidget(); }
    QComboBox *list() const { return child<QComboBox>("cboDBName"); }

    // The tool password typed and "OK" clicked; true when the sign-in screen took over.
    bool unlock()
    {
        auto *password = child<QLineEdit>("TxtLoginPsw");
        password->setFocus(Qt::MouseFocusReason);
        QTest::keyClicks(password, QStringLiteral("brimex"));
        QTest::mouseClick(child<QPushButton>("cmdUserLogin"), Qt::LeftButton);
        return screen() == child("frameConnectDb");
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

    // The arrow key moves down the list until the name is chosen; false when it never is.
    bool choose(const QString &name)
    {
        if (focused() != list())
            return false;
        for (int i = 0; i < list()->count() && list()->currentText() != name; ++i)
            QTest::keyClick(list(), Qt::Key_Down);
        return list()->currentText() == name;
    }

    void pressOk() { QTest::mouseClick(child<QPushButton>("cmdlogin"), Qt::LeftButton); }

    tree::FolderTree::Node *node(qint64 id) const { return w->folderTree().find(QStringLiteral("Fold%1").arg(id)); }

    // Where a person clicks in the tree view: the node's name (which loads its children), or its
    // tick box (which only ticks).
    QPoint labelOf(tree::FolderTree::Node *n) const
    {
        w->treeView()->scrollTo(w->folderTree().indexOf(n));
        return {w->treeView()->checkBoxRect(n).right() + 40, w->treeView()->rowRect(n).center().y()};
    }
    void clickLabel(tree::FolderTree::Node *n) { QTest::mouseClick(w->treeView()->viewport(), Qt::LeftButton, {}, labelOf(n)); }
    void clickTick(tree::FolderTree::Node *n)
    {
        w->treeView()->scrollTo(w->folderTree().indexOf(n));
        QTest::mouseClick(w->treeView()->viewport(), Qt::LeftButton, {}, w->treeView()->checkBoxRect(n).center());
    }

    // Unlocked, signed in as "demo" with the keyboard, the database chosen and "&OK" pressed;
    // true when the folder screen shows.
    bool signInTo(const QString &server, const QString &database)
    {
        if (!unlock())
            return false;
        fillSignIn(server, QStringLiteral("demo"));
        enterList();
        if (!choose(database))
            return false;
        pressOk();
        return screen() == child("frameSelectFolder");
    }
};
