#include "app/frmsendtofolder_p.h"

#include "app/dialogs.h"
#include "app/foldertreeview.h"
#include "errors/hunterr.h"

#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QFrame>
#include <QGroupBox>
#include <QLineEdit>
#include <QPushButton>
#include <QStackedWidget>

namespace app {

using tree::FolderTree;

namespace {

const QString kModule = QStringLiteral("FrmSendtofolder.");
const QString kToolPassword = QStringLiteral("BRIMEX");

} // namespace

// The hourglass for the length of a scope, put back as it was (also when an error leaves).
class FrmSendtofolder::BusyPointer {
public:
    explicit BusyPointer(FrmSendtofolder *w) : m_w(w), m_was(QApplication::overrideCursor() != nullptr)
    {
        m_w->setBusy(true);
    }
    ~BusyPointer()
    {
        if (!m_was)
            m_w->setBusy(false);
    }
    BusyPointer(const BusyPointer &) = delete;
    BusyPointer &operator=(const BusyPointer &) = delete;

private:
    FrmSendtofolder *m_w;
    bool m_was;
};

FrmSendtofolder::FrmSendtofolder(QWidget *parent)
    : QWidget(parent)
    , m_tree(this)
    , m_signIn(*this)
    , m_procs(m_signIn, m_tree)
    , m_runSession(*this)
    , m_exporter(m_runSession, m_procs)
    , m_copy(std::make_unique<Copy>())
{
    setObjectName(QStringLiteral("FrmSendtofolder"));
    setWindowTitle(QStringLiteral("zarnivo - Parcelwise Ver 6.0"));
    buildScreens();

    // Form_Load: only the password screen; nothing is connected yet.
    m_stack->setCurrentWidget(m_FramePassword);
    m_TxtLoginPsw->setFocus();
}

FrmSendtofolder::~FrmSendtofolder()
{
    // A copy still running is stopped and waited for; what it would still ask of the window is
    // skipped, since nobody is left to answer.
    if (m_copy->lent) {
        m_copy->stop.request(1);
        m_copy->abandoned = true;
        endCopyThread();
    }
    // The view must let go of the model before the model goes.
    m_tvDefaultRoot->setFolderTree(nullptr);
}

// --- Event handlers ------------------------------------------------------------------------------

bool FrmSendtofolder::cmdUserLogin_Click()
{
    return HuntERR::handler(kModule + QStringLiteral("cmdUserLogin_Click"), [this] {
        // Letter case does not matter; blanks do (the typed text is not trimmed).
        if (m_TxtLoginPsw->text().toUpper() != kToolPassword.toUpper()) {
            message(QStringLiteral("Invalid user password"));
            m_TxtLoginPsw->setFocus(Qt::OtherFocusReason);
            return;
        }
        showScreen(m_frameConnectDb, m_txServerName);
    });
}

bool FrmSendtofolder::cboDBName_GotFocus()
{
    return HuntERR::handler(kModule + QStringLiteral("cboDBName_GotFocus"), [this] {
        setStatus(QStringLiteral(" Select database"));
        repaint();
        m_lastMessage.clear();
        {
            BusyPointer busy(this);
            m_signIn.refreshDatabaseList();
        }
        // The two checks before the refresh send the person to the box they name.
        if (m_lastMessage == QLatin1String("Please enter server name"))
            focusControlNamed(QStringLiteral("txServerName"));
        else if (m_lastMessage == QLatin1String("Please enter user name"))
            focusControlNamed(QStringLiteral("txtUserName"));
    });
}

bool FrmSendtofolder::cboDBName_Click()
{
    return HuntERR::handler(kModule + QStringLiteral("cboDBName_Click"), [this] { m_signIn.cboDBName_Click(); });
}

bool FrmSendtofolder::cmdlogin_Click()
{
    const QList<QWidget *> signInControls{m_cmdlogin, m_txServerName, m_txtUserName, m_txtPassword, m_cboDBName};
    return HuntERR::handler(
        kModule + QStringLiteral("cmdlogin_Click"),
        [&] {
            QString focusTo;
            bool ready = false;
            {
                BusyPointer busy(this);
                ready = m_signIn.validateAndPrepare(&focusTo);
            }
            if (!ready) {
                focusControlNamed(focusTo);
                return;
            }

            setStatus(QStringLiteral(" Processing... Please Wait"));
            repaint();
            QWidget *hadFocus = focusWidget();
            {
                const QuietFocus quiet(this);
                for (QWidget *control : signInControls)
                    control->setEnabled(false);
            }
            {
                BusyPointer busy(this);
                m_procs.Load_Trees();
            }
            {
                const QuietFocus quiet(this);
                for (QWidget *control : signInControls)
                    control->setEnabled(true);
                if (hadFocus && signInControls.contains(hadFocus))
                    hadFocus->setFocus(Qt::OtherFocusReason);
            }

            if (m_signIn.blnInvalidDb) {
                // Tree building refused the database and already said so.
                m_signIn.blnInvalidDb = false;
                return;
            }
            toggleScreens();
            setStatus(QString());
        },
        // Whatever failed, "&OK" can be pressed again to retry the whole sign-in.
        [this] { m_cmdlogin->setEnabled(true); });
}

bool FrmSendtofolder::cmdBack_Click()
{
    return HuntERR::handler(kModule + QStringLiteral("cmdBack_Click"), [this] {
        if (m_signIn.cnDb().state() == repo::adStateOpen)
            m_signIn.cnDb().close();
        m_signIn.releaseDb();
        m_procs.dblCheckedNodeIdx = 0;
        toggleScreens();
    });
}

bool FrmSendtofolder::cmdDestination_Click()
{
    return HuntERR::handler(kModule + QStringLiteral("cmdDestination_Click"), [this] {
        if (const std::optional<QString> chosen = Dialogs::pickDestination(this, m_signIn.DestinationPath))
            m_signIn.DestinationPath = *chosen;
        setStatus(QStringLiteral(" Destination path:  ") + m_signIn.DestinationPath.trimmed());
    });
}

bool FrmSendtofolder::cmdStart_Click()
{
    if (isCopying())
        return false; // one copy at a time (and the error trail is the copy's meanwhile)
    return HuntERR::handler(kModule + QStringLiteral("cmdStart_Click"), [this] {
        if (m_signIn.DestinationPath.isEmpty()) {
            message(QStringLiteral("Please select destination path"));
            cmdDestination_Click();
            return;
        }
        const QString question = QStringLiteral("You have selected \"") + m_signIn.DestinationPath
                                 + QStringLiteral("\" as destination folder, do you want to continue?...");
        if (Dialogs::message(this, question, QMessageBox::Question, QMessageBox::Ok | QMessageBox::Cancel)
            != QMessageBox::Ok)
            return;

        startCopy(); // its end is reported by copyEnded
    });
}

// Failures the export log could not take are shown in the error window before the run reports
// its end: they must not vanish with the log.
void FrmSendtofolder::showUnloggedFailures(const QStringList &unlogged)
{
    if (unlogged.isEmpty())
        return;
    const QString lines = unlogged.join(QLatin1Char('\n'));
    HuntERR::handler(kModule + QStringLiteral("cmdStart_Click"), [&] {
        HuntERR::raise(HuntERR::ERR_PATH_FILE_ACCESS,
                       QStringLiteral("Path/File access error: the export log could not be written. "
                                      "These items were not exported:\n")
                           + lines);
    });
}

void FrmSendtofolder::cmdexit_Click()
{
    close();
}

bool FrmSendtofolder::Form_Unload()
{
    return HuntERR::handler(kModule + QStringLiteral("Form_Unload(Cancel)"), [this] {
        if (m_signIn.cnDb().state() == repo::adStateOpen)
            m_signIn.cnDb().close();
        m_signIn.releaseDb();
        if (m_signIn.cnMaster().state() == repo::adStateOpen)
            m_signIn.cnMaster().close();
        m_signIn.releaseMaster();
    });
}

void FrmSendtofolder::closeEvent(QCloseEvent *event)
{
    if (isCopying()) {
        // Stopped as Cancel stops it; the window closes once the run has ended.
        m_copy->closeAfter = true;
        cmdCancelCopy_Click();
        event->ignore();
        return;
    }
    if (!m_unloaded) {
        m_unloaded = true;
        Form_Unload();
    }
    event->accept();
}

// --- Tree events -------------------------------------------------------------------------------

void FrmSendtofolder::onNodeClicked(FolderTree::Node *node)
{
    {
        BusyPointer busy(this);
        m_procs.tvDefaultRoot_NodeClick(node);
        m_procs.tvDefaultRoot_Click(); // the tree reports the click itself after the node's
    }
    // The node may have been reloaded or may have failed; either way the view shows what the
    // model now says.
    if (node && m_tree.find(node->key) == node)
        m_tvDefaultRoot->syncNode(node);
}

void FrmSendtofolder::onNodeTicked(FolderTree::Node *node)
{
    m_procs.tvDefaultRoot_NodeCheck(node);
    m_procs.tvDefaultRoot_Click();
}

} // namespace app
