#include "app/frmsendtofolder.h"

#include "app/dialogs.h"
#include "app/foldertreeview.h"
#include "errors/hunterr.h"

#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QDir>
#include <QFocusEvent>
#include <QFrame>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalBlocker>
#include <QStackedWidget>
#include <QVBoxLayout>

namespace {

const QString kModule = QStringLiteral("FrmSendtofolder.");
const QString kToolPassword = QStringLiteral("BRIMEX");

// The database list never drops down for someone it has just sent elsewhere: when entering it
// failed validation, the focus is already on another box by the time the click would open it.
class DatabaseList : public QComboBox {
public:
    using QComboBox::QComboBox;
    void showPopup() override
    {
        if (window()->focusWidget() != this)
            return;
        QComboBox::showPopup();
    }
};

QLabel *fieldLabel(const QString &caption, const QString &name, QWidget *parent)
{
    auto *label = new QLabel(caption, parent);
    label->setObjectName(name);
    label->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    return label;
}

// Every typed character of a password shows as "*".
void echoStars(QLineEdit *box)
{
    box->setEchoMode(QLineEdit::Password);
    box->setStyleSheet(QStringLiteral("QLineEdit { lineedit-password-character: 42; }"));
}

QPushButton *button(const QString &caption, const QString &name, QWidget *parent)
{
    auto *b = new QPushButton(caption, parent);
    b->setObjectName(name);
    b->setMinimumWidth(96);
    return b;
}

// Colours come as the classic 0x00BBGGRR value.
QColor fromBgr(int colour)
{
    return QColor(colour & 0xff, (colour >> 8) & 0xff, (colour >> 16) & 0xff);
}

} // namespace

// Focus moves that the window makes for its own reasons (disabling the control that has the
// focus, for instance) are not a person entering a control: they write no hint and, above all,
// never refresh the database list.
class FrmSendtofolder::QuietFocus {
public:
    explicit QuietFocus(FrmSendtofolder *w) : m_w(w) { ++m_w->m_quietFocus; }
    ~QuietFocus() { --m_w->m_quietFocus; }
    QuietFocus(const QuietFocus &) = delete;
    QuietFocus &operator=(const QuietFocus &) = delete;

private:
    FrmSendtofolder *m_w;
};

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
    , m_exporter(m_signIn, m_procs)
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
    // The view must let go of the model before the model goes.
    m_tvDefaultRoot->setFolderTree(nullptr);
}

void FrmSendtofolder::buildScreens()
{
    setMinimumSize(640, 480);
    resize(720, 540);

    m_stack = new QStackedWidget(this);
    m_stack->setObjectName(QStringLiteral("screens"));

    // --- Tool password -----------------------------------------------------------------------
    m_FramePassword = new QGroupBox(QStringLiteral("User Login"), m_stack);
    m_FramePassword->setObjectName(QStringLiteral("FramePassword"));
    m_Label1 = fieldLabel(QStringLiteral("User Password"), QStringLiteral("Label1"), m_FramePassword);
    m_TxtLoginPsw = new QLineEdit(m_FramePassword);
    m_TxtLoginPsw->setObjectName(QStringLiteral("TxtLoginPsw"));
    echoStars(m_TxtLoginPsw);
    m_TxtLoginPsw->setMinimumWidth(220);
    m_cmdUserLogin = button(QStringLiteral("&OK"), QStringLiteral("cmdUserLogin"), m_FramePassword);
    {
        auto *grid = new QGridLayout(m_FramePassword);
        grid->setColumnStretch(0, 1);
        grid->setColumnStretch(3, 1);
        grid->setRowStretch(0, 1);
        grid->setRowStretch(3, 1);
        grid->setHorizontalSpacing(10);
        grid->setVerticalSpacing(12);
        grid->addWidget(m_Label1, 1, 1);
        grid->addWidget(m_TxtLoginPsw, 1, 2);
        grid->addWidget(m_cmdUserLogin, 2, 2, Qt::AlignRight);
    }

    // --- Sign-in -------------------------------------------------------------------------------
    m_frameConnectDb = new QGroupBox(QStringLiteral("Source Database"), m_stack);
    m_frameConnectDb->setObjectName(QStringLiteral("frameConnectDb"));
    auto *lblServerName = fieldLabel(QStringLiteral("Server Name :"), QStringLiteral("lblServerName"), m_frameConnectDb);
    m_txServerName = new QLineEdit(m_frameConnectDb);
    m_txServerName->setObjectName(QStringLiteral("txServerName"));
    auto *lbluserName = fieldLabel(QStringLiteral("User Name :"), QStringLiteral("lbluserName"), m_frameConnectDb);
    m_txtUserName = new QLineEdit(m_frameConnectDb);
    m_txtUserName->setObjectName(QStringLiteral("txtUserName"));
    auto *lblPassword = fieldLabel(QStringLiteral("Password :"), QStringLiteral("lblPassword"), m_frameConnectDb);
    m_txtPassword = new QLineEdit(m_frameConnectDb);
    m_txtPassword->setObjectName(QStringLiteral("txtPassword"));
    echoStars(m_txtPassword);
    auto *lblDBName = fieldLabel(QStringLiteral("Database :"), QStringLiteral("lblDBName"), m_frameConnectDb);
    m_cboDBName = new DatabaseList(m_frameConnectDb);
    m_cboDBName->setObjectName(QStringLiteral("cboDBName"));
    m_cboDBName->setEditable(false);
    m_cboDBName->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    auto *lblDbType = fieldLabel(QStringLiteral("Database Type:"), QStringLiteral("lblDbType"), m_frameConnectDb);
    m_lblDbTypeValue = new QLabel(m_frameConnectDb);
    m_lblDbTypeValue->setObjectName(QStringLiteral("lblDbTypeValue"));
    {
        QFont bold = m_lblDbTypeValue->font();
        bold.setBold(true);
        m_lblDbTypeValue->setFont(bold);
    }
    m_cmdlogin = button(QStringLiteral("&OK"), QStringLiteral("cmdlogin"), m_frameConnectDb);
    {
        auto *grid = new QGridLayout(m_frameConnectDb);
        grid->setColumnStretch(0, 1);
        grid->setColumnStretch(3, 1);
        grid->setColumnMinimumWidth(2, 280);
        grid->setRowStretch(0, 1);
        grid->setRowStretch(8, 1);
        grid->setHorizontalSpacing(10);
        grid->setVerticalSpacing(10);
        grid->addWidget(lblServerName, 1, 1);
        grid->addWidget(m_txServerName, 1, 2);
        grid->addWidget(lbluserName, 2, 1);
        grid->addWidget(m_txtUserName, 2, 2);
        grid->addWidget(lblPassword, 3, 1);
        grid->addWidget(m_txtPassword, 3, 2);
        grid->addWidget(lblDBName, 4, 1);
        grid->addWidget(m_cboDBName, 4, 2);
        grid->addWidget(lblDbType, 5, 1);
        grid->addWidget(m_lblDbTypeValue, 5, 2);
        grid->setRowMinimumHeight(6, 6);
        grid->addWidget(m_cmdlogin, 7, 2, Qt::AlignRight);
    }

    // --- Folder screen -------------------------------------------------------------------------
    m_frameSelectFolder = new QGroupBox(QStringLiteral("Select Folder"), m_stack);
    m_frameSelectFolder->setObjectName(QStringLiteral("frameSelectFolder"));
    m_tvDefaultRoot = new FolderTreeView(m_frameSelectFolder);
    m_tvDefaultRoot->setObjectName(QStringLiteral("tvDefaultRoot"));
    m_tvDefaultRoot->setFolderTree(&m_tree);
    m_FrameButton = new QFrame(m_frameSelectFolder);
    m_FrameButton->setObjectName(QStringLiteral("FrameButton"));
    m_cmdBack = button(QStringLiteral("&Back"), QStringLiteral("cmdBack"), m_FrameButton);
    m_cmdDestination = button(QStringLiteral("&Select Destination"), QStringLiteral("cmdDestination"), m_FrameButton);
    m_cmdStart = button(QStringLiteral("Start &Copy"), QStringLiteral("cmdStart"), m_FrameButton);
    {
        auto *row = new QHBoxLayout(m_FrameButton);
        row->setContentsMargins(0, 0, 0, 0);
        row->addWidget(m_cmdBack);
        row->addStretch(1);
        row->addWidget(m_cmdDestination);
        row->addWidget(m_cmdStart);
        auto *column = new QVBoxLayout(m_frameSelectFolder);
        column->addWidget(m_tvDefaultRoot, 1);
        column->addWidget(m_FrameButton);
    }

    m_stack->addWidget(m_FramePassword);
    m_stack->addWidget(m_frameConnectDb);
    m_stack->addWidget(m_frameSelectFolder);

    // --- Always there: exit and the status line --------------------------------------------------
    m_cmdexit = button(QStringLiteral("E&xit"), QStringLiteral("cmdexit"), this);
    m_txtProg = new QLineEdit(this);
    m_txtProg->setObjectName(QStringLiteral("txtProg"));
    m_txtProg->setReadOnly(true);
    m_txtProg->setFocusPolicy(Qt::NoFocus);
    {
        QPalette quiet = m_txtProg->palette();
        quiet.setColor(QPalette::Base, quiet.color(QPalette::Window));
        m_txtProg->setPalette(quiet);
    }

    auto *exitRow = new QHBoxLayout;
    exitRow->addStretch(1);
    exitRow->addWidget(m_cmdexit);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_stack, 1);
    layout->addLayout(exitRow);
    layout->addWidget(m_txtProg);

    // The keyboard order follows the screens top to bottom.
    setTabOrder(m_TxtLoginPsw, m_cmdUserLogin);
    setTabOrder(m_cmdUserLogin, m_txServerName);
    setTabOrder(m_txServerName, m_txtUserName);
    setTabOrder(m_txtUserName, m_txtPassword);
    setTabOrder(m_txtPassword, m_cboDBName);
    setTabOrder(m_cboDBName, m_cmdlogin);
    setTabOrder(m_cmdlogin, m_tvDefaultRoot);
    setTabOrder(m_tvDefaultRoot, m_cmdBack);
    setTabOrder(m_cmdBack, m_cmdDestination);
    setTabOrder(m_cmdDestination, m_cmdStart);
    setTabOrder(m_cmdStart, m_cmdexit);

    // Status hints; every text starts with one blank.
    watchFocus(m_TxtLoginPsw, QStringLiteral(" Enter user password"));
    watchFocus(m_cmdUserLogin, QStringLiteral(" Click OK to login"));
    watchFocus(m_txServerName, QStringLiteral(" Enter server name"));
    watchFocus(m_txtUserName, QStringLiteral(" Enter user name"));
    watchFocus(m_txtPassword, QStringLiteral(" Enter password (If any)"));
    watchFocus(m_cboDBName, QStringLiteral(" Select database"));
    watchFocus(m_cmdlogin, QStringLiteral(" Click OK to proceed"), false);
    watchFocus(m_cmdBack, QStringLiteral(" Click Back for previous window"));
    watchFocus(m_cmdDestination, QStringLiteral(" Click select destination for destination folder path"));
    watchFocus(m_cmdStart, QStringLiteral(" Click start copy to copy folder(s)/File(s)"));

    connect(m_cmdUserLogin, &QPushButton::clicked, this, [this] { cmdUserLogin_Click(); });
    connect(m_TxtLoginPsw, &QLineEdit::returnPressed, m_cmdUserLogin, &QPushButton::click);
    connect(m_cboDBName, &QComboBox::activated, this, [this] { cboDBName_Click(); });
    connect(m_cmdlogin, &QPushButton::clicked, this, [this] { cmdlogin_Click(); });
    connect(m_txtPassword, &QLineEdit::returnPressed, m_cmdlogin, &QPushButton::click);
    connect(m_cmdBack, &QPushButton::clicked, this, [this] { cmdBack_Click(); });
    connect(m_cmdDestination, &QPushButton::clicked, this, [this] { cmdDestination_Click(); });
    connect(m_cmdStart, &QPushButton::clicked, this, [this] { cmdStart_Click(); });
    connect(m_cmdexit, &QPushButton::clicked, this, [this] { cmdexit_Click(); });
    connect(m_tvDefaultRoot, &FolderTreeView::nodeClicked, this, &FrmSendtofolder::onNodeClicked);
    connect(m_tvDefaultRoot, &FolderTreeView::nodeTicked, this, &FrmSendtofolder::onNodeTicked);
}

// --- Screens -----------------------------------------------------------------------------------

QWidget *FrmSendtofolder::currentScreen() const
{
    return m_stack->currentWidget();
}

void FrmSendtofolder::showScreen(QWidget *screen, QWidget *focusTarget)
{
    if (m_stack->currentWidget() != screen) {
        // Left to itself the stack would hand the focus to some control of the incoming screen,
        // possibly the database list, whose entry refreshes the list from the server. The focus
        // goes where the window means it to go instead.
        QWidget *focused = focusWidget();
        if (focused && m_stack->currentWidget()->isAncestorOf(focused))
            m_cmdexit->setFocus(Qt::OtherFocusReason);
        m_stack->setCurrentWidget(screen);
    }
    if (focusTarget && focusTarget->isEnabled())
        focusTarget->setFocus(Qt::OtherFocusReason);
}

void FrmSendtofolder::toggleScreens()
{
    if (m_stack->currentWidget() == m_frameSelectFolder)
        showScreen(m_frameConnectDb, m_cmdlogin);
    else
        showScreen(m_frameSelectFolder, m_tvDefaultRoot);
}

void FrmSendtofolder::focusControlNamed(const QString &objectName)
{
    if (objectName.isEmpty())
        return;
    if (auto *control = findChild<QWidget *>(objectName); control && control->isEnabled())
        control->setFocus(Qt::OtherFocusReason);
}

// --- Status hints ------------------------------------------------------------------------------

void FrmSendtofolder::watchFocus(QWidget *control, const QString &onFocus, bool clearsOnLeave)
{
    m_hints.insert(control, Hint{onFocus, clearsOnLeave});
    control->installEventFilter(this);
}

bool FrmSendtofolder::eventFilter(QObject *watched, QEvent *event)
{
    if ((event->type() == QEvent::FocusIn || event->type() == QEvent::FocusOut) && m_hints.contains(watched)
        && m_quietFocus == 0) {
        const Qt::FocusReason reason = static_cast<QFocusEvent *>(event)->reason();
        // The window losing and regaining activation (a message box, another program) or a list
        // dropping down and closing is not a person moving between controls: the control that
        // had the focus keeps its hint and is not entered again.
        const bool windowLevel = reason == Qt::ActiveWindowFocusReason || reason == Qt::PopupFocusReason;
        auto *control = static_cast<QWidget *>(watched);
        if (event->type() == QEvent::FocusIn) {
            if (!(windowLevel && watched == m_lastHinted)) {
                m_lastHinted = watched;
                gotFocus(control);
            }
        } else if (!windowLevel) {
            lostFocus(control);
        }
    }
    return QWidget::eventFilter(watched, event);
}

bool FrmSendtofolder::gotFocus(QWidget *control)
{
    if (control == m_cboDBName)
        return cboDBName_GotFocus();
    const Hint hint = m_hints.value(control);
    return HuntERR::handler(kModule + control->objectName() + QStringLiteral("_GotFocus"),
                            [&] { setStatus(hint.onFocus); });
}

bool FrmSendtofolder::lostFocus(QWidget *control)
{
    if (!m_hints.value(control).clearsOnLeave)
        return true;
    return HuntERR::handler(kModule + control->objectName() + QStringLiteral("_LostFocus"),
                            [&] { setStatus(QString()); });
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

        QWidget *hadFocus = focusWidget();
        {
            const QuietFocus quiet(this);
            m_FrameButton->setEnabled(false);
        }
        {
            BusyPointer busy(this);
            m_exporter.run();
        }
        showUnloggedFailures();
        setStatus(QStringLiteral(" Process completed successfully"));
        message(QStringLiteral("Process completed successfully"));
        setStatus(QString());
        {
            const QuietFocus quiet(this);
            m_FrameButton->setEnabled(true);
            if (hadFocus && m_FrameButton->isAncestorOf(hadFocus))
                hadFocus->setFocus(Qt::OtherFocusReason);
        }
    });
}

// Failures the export log could not take are shown in the error window before the run reports
// its end: they must not vanish with the log.
void FrmSendtofolder::showUnloggedFailures()
{
    if (m_exporter.unloggedLines.isEmpty())
        return;
    const QString lines = m_exporter.unloggedLines.join(QLatin1Char('\n'));
    m_exporter.unloggedLines.clear();
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

// --- FormPort ----------------------------------------------------------------------------------

QString FrmSendtofolder::serverText() const
{
    return m_txServerName->text();
}

QString FrmSendtofolder::userText() const
{
    return m_txtUserName->text();
}

QString FrmSendtofolder::passwordText() const
{
    return m_txtPassword->text();
}

QString FrmSendtofolder::databaseText() const
{
    return m_cboDBName->currentIndex() < 0 ? QString() : m_cboDBName->currentText();
}

QString FrmSendtofolder::dbTypeCaption() const
{
    return m_lblDbTypeValue->text();
}

void FrmSendtofolder::clearDatabases()
{
    const QSignalBlocker quiet(m_cboDBName);
    m_cboDBName->clear();
}

void FrmSendtofolder::addDatabase(const QString &name)
{
    // Adding does not choose: an entry is chosen only by selectFirstDatabase or by the person.
    const QSignalBlocker quiet(m_cboDBName);
    const int chosen = m_cboDBName->currentIndex();
    m_cboDBName->addItem(name);
    if (m_cboDBName->currentIndex() != chosen)
        m_cboDBName->setCurrentIndex(chosen);
}

int FrmSendtofolder::databaseCount() const
{
    return m_cboDBName->count();
}

void FrmSendtofolder::selectFirstDatabase()
{
    if (m_cboDBName->count() < 1)
        return;
    {
        const QSignalBlocker quiet(m_cboDBName);
        m_cboDBName->setCurrentIndex(0);
    }
    // Choosing an entry in code raises the list's click, as a person's choice does.
    cboDBName_Click();
}

void FrmSendtofolder::setDbType(const QString &caption, int colour)
{
    m_lblDbTypeValue->setText(caption);
    if (colour >= 0) {
        QPalette palette = m_lblDbTypeValue->palette();
        palette.setColor(QPalette::WindowText, fromBgr(colour));
        m_lblDbTypeValue->setPalette(palette);
    }
}

void FrmSendtofolder::setStatus(const QString &text)
{
    m_txtProg->setText(text);
}

void FrmSendtofolder::repaint()
{
    QWidget::repaint();
}

void FrmSendtofolder::setBusy(bool busy)
{
    if (busy) {
        if (!QApplication::overrideCursor())
            QApplication::setOverrideCursor(Qt::WaitCursor);
    } else {
        while (QApplication::overrideCursor())
            QApplication::restoreOverrideCursor();
    }
}

void FrmSendtofolder::message(const QString &text)
{
    m_lastMessage = text;
    Dialogs::message(this, text, QMessageBox::Warning, QMessageBox::Ok);
}

void FrmSendtofolder::showSignInScreen()
{
    showScreen(m_frameConnectDb, nullptr);
}

void FrmSendtofolder::openLog(const QString &folder, const QString &fileName)
{
    Dialogs::openLog(QDir::toNativeSeparators(QDir::cleanPath(folder + QLatin1Char('/') + fileName)));
}
