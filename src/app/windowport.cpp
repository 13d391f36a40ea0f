// The main window as the procedures see it: the sign-in boxes, the database list and its type
// label, the status line, the pointer, messages, and showing the export log. Called from the
// copy's thread, each runs on the window's thread while the caller waits (frmsendtofolder.h).

#include "app/dialogs.h"
#include "app/frmsendtofolder.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QSignalBlocker>

namespace app {

namespace {

// Colours come as the classic 0x00BBGGRR value.
QColor fromBgr(int colour)
{
    return QColor(colour & 0xff, (colour >> 8) & 0xff, (colour >> 16) & 0xff);
}

} // namespace

QString FrmSendtofolder::serverText() const
{
    return onWindowThread([this] { return m_txServerName->text(); });
}

QString FrmSendtofolder::userText() const
{
    return onWindowThread([this] { return m_txtUserName->text(); });
}

QString FrmSendtofolder::passwordText() const
{
    return onWindowThread([this] { return m_txtPassword->text(); });
}

QString FrmSendtofolder::databaseText() const
{
    return onWindowThread([this] { return m_cboDBName->currentIndex() < 0 ? QString() : m_cboDBName->currentText(); });
}

QString FrmSendtofolder::dbTypeCaption() const
{
    return onWindowThread([this] { return m_lblDbTypeValue->text(); });
}

void FrmSendtofolder::clearDatabases()
{
    onWindowThread([this] {
        const QSignalBlocker quiet(m_cboDBName);
        m_cboDBName->clear();
    });
}

void FrmSendtofolder::addDatabase(const QString &name)
{
    onWindowThread([&] {
        // Adding does not choose: an entry is chosen only by selectFirstDatabase or by the person.
        const QSignalBlocker quiet(m_cboDBName);
        const int chosen = m_cboDBName->currentIndex();
        m_cboDBName->addItem(name);
        if (m_cboDBName->currentIndex() != chosen)
            m_cboDBName->setCurrentIndex(chosen);
    });
}

int FrmSendtofolder::databaseCount() const
{
    return onWindowThread([this] { return m_cboDBName->count(); });
}

void FrmSendtofolder::selectFirstDatabase()
{
    if (!isWindowThread())
        return onWindowThread([this] { selectFirstDatabase(); });
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
    onWindowThread([&] {
        m_lblDbTypeValue->setText(caption);
        if (colour >= 0) {
            QPalette palette = m_lblDbTypeValue->palette();
            palette.setColor(QPalette::WindowText, fromBgr(colour));
            m_lblDbTypeValue->setPalette(palette);
        }
    });
}

void FrmSendtofolder::setStatus(const QString &text)
{
    if (!isWindowThread())
        return postStatus(text); // the copy does not wait for the status line
    m_txtProg->setText(text);
}

void FrmSendtofolder::repaint()
{
    // The copy's thread has nothing to force: the event loop paints the status text it handed over.
    if (isWindowThread())
        QWidget::repaint();
}

void FrmSendtofolder::setBusy(bool busy)
{
    onWindowThread([busy] {
        if (busy) {
            if (!QApplication::overrideCursor())
                QApplication::setOverrideCursor(Qt::WaitCursor);
        } else {
            while (QApplication::overrideCursor())
                QApplication::restoreOverrideCursor();
        }
    });
}

void FrmSendtofolder::message(const QString &text)
{
    onWindowThread([&] {
        m_lastMessage = text;
        Dialogs::message(this, text, QMessageBox::Warning, QMessageBox::Ok);
    });
}

void FrmSendtofolder::showSignInScreen()
{
    onWindowThread([this] { showScreen(m_frameConnectDb, nullptr); });
}

void FrmSendtofolder::openLog(const QString &folder, const QString &fileName)
{
    const QString path = QDir::toNativeSeparators(QDir::cleanPath(folder + QLatin1Char('/') + fileName));
    onWindowThread([&] { Dialogs::openLog(path); });
}

} // namespace app
