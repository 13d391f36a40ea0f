#pragma once
// The main window "zarnivo - Parcelwise Ver 6.0": three screens in one place (tool password,
// sign-in, folder tree with its action buttons), the exit button and the status line. It owns the
// sign-in state, the folder tree and the export engine, and is the FormPort through which they
// read and write the window.

#include "export/exporter.h"
#include "session/formport.h"
#include "session/signin.h"
#include "tree/foldertree.h"
#include "tree/treeprocs.h"

#include <QHash>
#include <QWidget>

class QComboBox;
class QFrame;
class QGroupBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QStackedWidget;

namespace app {

class FolderTreeView;

class FrmSendtofolder : public QWidget, public session::FormPort {
    Q_OBJECT
public:
    explicit FrmSendtofolder(QWidget *parent = nullptr);
    ~FrmSendtofolder() override;

    session::SignIn &signIn() { return m_signIn; }
    tree::FolderTree &folderTree() { return m_tree; }
    tree::TreeProcs &treeProcs() { return m_procs; }
    exporting::Exporter &exporter() { return m_exporter; }
    FolderTreeView *treeView() const { return m_tvDefaultRoot; }

    // The screen on show: FramePassword, frameConnectDb or frameSelectFolder.
    QWidget *currentScreen() const;

    // FormPort.
    QString serverText() const override;
    QString userText() const override;
    QString passwordText() const override;
    QString databaseText() const override;
    QString dbTypeCaption() const override;
    void clearDatabases() override;
    void addDatabase(const QString &name) override;
    int databaseCount() const override;
    void selectFirstDatabase() override;
    void setDbType(const QString &caption, int colour) override;
    void setStatus(const QString &text) override;
    void repaint() override;
    void setBusy(bool busy) override;
    void message(const QString &text) override;
    void showSignInScreen() override;
    void openLog(const QString &folder, const QString &fileName) override;

    // Event handlers. Each runs under its own error path and returns false when it failed.
    bool cmdUserLogin_Click();
    bool cboDBName_GotFocus();
    bool cboDBName_Click();
    bool cmdlogin_Click();
    bool cmdBack_Click();
    bool cmdDestination_Click();
    bool cmdStart_Click();
    void cmdexit_Click();
    bool Form_Unload();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void closeEvent(QCloseEvent *event) override;

private:
    struct Hint {
        QString onFocus;
        bool clearsOnLeave = true;
    };
    class QuietFocus;
    class BusyPointer;

    void buildScreens();
    QWidget *buildPasswordScreen();
    QWidget *buildSignInScreen();
    QWidget *buildFolderScreen();
    void buildExitAndStatus();
    void setKeyboardOrder();
    void watchStatusHints();
    void connectHandlers();
    void watchFocus(QWidget *control, const QString &onFocus, bool clearsOnLeave = true);
    bool gotFocus(QWidget *control);
    bool lostFocus(QWidget *control);
    void toggleScreens();
    void showScreen(QWidget *screen, QWidget *focusTarget);
    void focusControlNamed(const QString &objectName);
    void onNodeClicked(tree::FolderTree::Node *node);
    void onNodeTicked(tree::FolderTree::Node *node);
    void showUnloggedFailures(const QStringList &unlogged);

    tree::FolderTree m_tree;
    session::SignIn m_signIn;
    tree::TreeProcs m_procs;
    exporting::Exporter m_exporter;

    QStackedWidget *m_stack = nullptr;
    QGroupBox *m_FramePassword = nullptr;
    QLabel *m_Label1 = nullptr;
    QLineEdit *m_TxtLoginPsw = nullptr;
    QPushButton *m_cmdUserLogin = nullptr;

    QGroupBox *m_frameConnectDb = nullptr;
    QLineEdit *m_txServerName = nullptr;
    QLineEdit *m_txtUserName = nullptr;
    QLineEdit *m_txtPassword = nullptr;
    QComboBox *m_cboDBName = nullptr;
    QLabel *m_lblDbTypeValue = nullptr;
    QPushButton *m_cmdlogin = nullptr;

    QGroupBox *m_frameSelectFolder = nullptr;
    FolderTreeView *m_tvDefaultRoot = nullptr;
    QFrame *m_FrameButton = nullptr;
    QPushButton *m_cmdBack = nullptr;
    QPushButton *m_cmdDestination = nullptr;
    QPushButton *m_cmdStart = nullptr;

    QPushButton *m_cmdexit = nullptr;
    QLineEdit *m_txtProg = nullptr;

    QHash<QObject *, Hint> m_hints;
    QObject *m_lastHinted = nullptr;
    int m_quietFocus = 0;
    QString m_lastMessage;
    bool m_unloaded = false;
};

} // namespace app
