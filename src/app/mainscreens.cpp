// The main window's screens: how each is laid out, the controls that are always there, the
// keyboard order, and which screen is on show.

#include "app/foldertreeview.h"
#include "app/frmsendtofolder.h"

#include <QComboBox>
#include <QFrame>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

namespace app {

namespace {

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

} // namespace

void FrmSendtofolder::buildScreens()
{
    setMinimumSize(640, 480);
    resize(720, 540);

    m_stack = new QStackedWidget(this);
    m_stack->setObjectName(QStringLiteral("screens"));
    m_stack->addWidget(buildPasswordScreen());
    m_stack->addWidget(buildSignInScreen());
    m_stack->addWidget(buildFolderScreen());
    buildExitAndStatus();
    setKeyboardOrder();
    watchStatusHints();
    connectHandlers();
}

QWidget *FrmSendtofolder::buildPasswordScreen()
{
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
    return m_FramePassword;
}

QWidget *FrmSendtofolder::buildSignInScreen()
{
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
    return m_frameConnectDb;
}

QWidget *FrmSendtofolder::buildFolderScreen()
{
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
        column->addWidget(buildCopyRow(m_frameSelectFolder)); // shown during a copy only
        column->addWidget(m_FrameButton);
    }
    return m_frameSelectFolder;
}

// Always there, below the screens: the exit button and the status line.
void FrmSendtofolder::buildExitAndStatus()
{
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
}

// The keyboard order follows the screens top to bottom.
void FrmSendtofolder::setKeyboardOrder()
{
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
    setTabOrder(m_cmdStart, m_cmdCancelCopy);
    setTabOrder(m_cmdCancelCopy, m_cmdexit);
}

// Status hints; every text starts with one blank.
void FrmSendtofolder::watchStatusHints()
{
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
}

void FrmSendtofolder::connectHandlers()
{
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

} // namespace app
