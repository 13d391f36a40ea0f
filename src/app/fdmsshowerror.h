#pragma once
// The error window: the end of the error trail. It shows the report (or the bare text of a user
// message) handed over by an event handler's exit step, copies it to the clipboard and offers the
// support-information window.
//
// Test seam: both error windows are shown modally through ErrorWindows::execModal(). When a hook
// is set with ErrorWindows::setModalHook(), execModal() shows the dialog without a modal loop,
// calls the hook with it (the test inspects it, clicks its buttons) and closes it afterwards if
// the hook left it open. Without a hook it is an ordinary QDialog::exec().

#include <QDialog>
#include <QString>

#include <functional>

class QFrame;
class QLabel;
class QPlainTextEdit;
class QToolButton;

namespace app {

namespace ErrorWindows {
using ModalHook = std::function<void(QDialog &dialog)>;
void setModalHook(ModalHook hook);
int execModal(QDialog &dialog);
} // namespace ErrorWindows

class FDmsShowError : public QDialog {
    Q_OBJECT

public:
    explicit FDmsShowError(QWidget *parent = nullptr);
    ~FDmsShowError() override;

    // Puts the message into the window and shows it modally; returns when it is closed.
    void showMessage(const QString &text);

    // The text box's contents, line breaks as CR LF.
    QString reportText() const { return m_report; }

    QToolButton *btnCopy() const { return m_btnCopy; }
    QToolButton *cmdInfo() const { return m_cmdInfo; }
    QToolButton *btnCancel() const { return m_btnCancel; }
    QPlainTextEdit *tbxErrorReport() const { return m_tbxErrorReport; }

    // The window open at the moment, if any (there is never more than one).
    static FDmsShowError *openInstance();

    // Turns escaped line breaks into real ones: "\n\n" (any letter case) first, then "\n".
    static QString expandEscapedBreaks(const QString &text);

public slots:
    void btnCopy_Click();
    void cmdInfo_Click();
    void btnCancel_Click();

protected:
    bool event(QEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void done(int result) override;

private:
    void setMessage(const QString &text);
    void activate();

    QString m_report;
    QToolButton *m_btnCopy = nullptr;
    QToolButton *m_cmdInfo = nullptr;
    QToolButton *m_btnCancel = nullptr;
    QPlainTextEdit *m_tbxErrorReport = nullptr;
};

// Shows text in the error window, modally over parent. When the window is already open (an error
// while it is shown), the open window takes the new text instead of opening a second one.
void showErrorWindow(const QString &text, QWidget *parent);

// Makes the error trail reach the person through the windows: the error window as its shower,
// a "Stopped on Error" message box for step mode, and the arrow pointer restored on exit.
void installErrorWindow();

} // namespace app
