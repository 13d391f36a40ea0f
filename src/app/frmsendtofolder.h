#pragma once
// The main window "zarnivo - Parcelwise Ver 6.0": three screens in one place (tool password,
// sign-in, folder tree with its action buttons), the exit button and the status line. It owns the
// sign-in state, the folder tree and the export engine, and is the FormPort through which they
// read and write the window.
//
// Threads: the window, its widgets, the sign-in and the tree belong to the window's thread. "Start
// &Copy" runs the export on a thread of its own (windowcopy.cpp), so the event loop goes on (and
// Cancel works) during a copy; the run reads the tree, which nothing changes meanwhile (the tree
// and the buttons are disabled), and uses a connection of its own (session::RunSession). The
// FormPort methods may be called from the copy's thread: they run on the window's thread and the
// caller waits (the status text is handed over without waiting, the latest one wins). For the
// length of a run the error trail belongs to the copy's thread: the window hands it over before
// the run starts and takes it back once the thread has ended. The trail's hooks (the error window,
// step mode's question, the pointer) are replaced meanwhile by ones that lend the trail back to
// the window's thread while they run there, the copy's thread waiting. So the trail is only ever
// used by its one owner, and every window of it opens on the window's thread. Destroying the
// window during a copy stops the run and waits for its thread; closing it stops the run and closes
// once it has ended.

#include "export/exporter.h"
#include "session/formport.h"
#include "session/runsession.h"
#include "session/signin.h"
#include "tree/foldertree.h"
#include "tree/treeprocs.h"

#include <QHash>
#include <QWidget>

#include <functional>
#include <memory>
#include <type_traits>

class QComboBox;
class QFrame;
class QGroupBox;
class QLabel;
class QLineEdit;
class QProgressBar;
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
    void cmdCancelCopy_Click();
    void cmdexit_Click();
    bool Form_Unload();

    // From "Start &Copy" until the end of the copy is reported (its closing message closed).
    bool isCopying() const;
    // How many documents the window's copy fetches at once: "export/jobs" in the settings
    // (QSettings), 1 to 64, else 4.
    static int copyJobs();

signals:
    void copyFinished();

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

    // The copy off the event loop (windowcopy.cpp).
    struct Copy; // frmsendtofolder_p.h
    QWidget *buildCopyRow(QWidget *parent);
    void startCopy();
    void runCopy(const exporting::ExportOptions &options); // on the copy's thread
    static void yieldToWindow();                           // likewise
    void lendHooks();
    void copyEnded();
    void endCopyThread(); // joined, the trail taken back and its hooks put back
    void reportCopyEnd(const exporting::ExportResult &result);
    void showCopyProgress();
    void postStatus(const QString &text);
    // The error trail lent to the window's thread for call, from the copy's thread.
    void lendTrail(const std::function<void()> &call);
    bool isWindowThread() const;
    // Runs call on the window's thread and waits for it; skipped when the window is going away.
    void runOnWindowThread(const std::function<void()> &call) const;
    template <class F>
    auto onWindowThread(F &&f) const -> decltype(f())
    {
        using R = decltype(f());
        if (isWindowThread())
            return f();
        if constexpr (std::is_void_v<R>) {
            runOnWindowThread(f);
        } else {
            R result{};
            runOnWindowThread([&] { result = f(); });
            return result;
        }
    }

    tree::FolderTree m_tree;
    session::SignIn m_signIn;
    tree::TreeProcs m_procs;
    session::RunSession m_runSession; // the copy's view of the sign-in
    exporting::Exporter m_exporter;
    std::unique_ptr<Copy> m_copy;

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
    QFrame *m_FrameCopy = nullptr;
    QProgressBar *m_prgCopy = nullptr;
    QPushButton *m_cmdCancelCopy = nullptr;

    QPushButton *m_cmdexit = nullptr;
    QLineEdit *m_txtProg = nullptr;

    QHash<QObject *, Hint> m_hints;
    QObject *m_lastHinted = nullptr;
    int m_quietFocus = 0;
    QString m_lastMessage;
    bool m_unloaded = false;
};

} // namespace app
