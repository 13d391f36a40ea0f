#pragma once
// Every modal thing the window shows goes through here: message boxes, the destination picker
// and the shell's "open this file". Production shows the real dialogs. A test switches the seam to
// scripted mode, queues the answers it wants and reads back what would have been shown; while
// scripted, nothing modal ever appears, so a test cannot hang on a box nobody will close.

#include <QList>
#include <QMessageBox>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

class QWidget;

namespace app {

class frmFileDialog;

namespace Dialogs {

// The title every message box of the main window carries.
QString title();

// Shows a message box and returns the button that closed it.
QMessageBox::StandardButton message(QWidget *parent, const QString &text,
                                    QMessageBox::Icon icon = QMessageBox::Warning,
                                    QMessageBox::StandardButtons buttons = QMessageBox::Ok,
                                    const QString &title = Dialogs::title());

// Opens the destination picker modally. Returns the folder taken with "&Close", or nothing when
// the picker was closed through its close box. currentPath is the destination chosen so far; the
// picker deliberately does not start there (it starts in the process's current folder).
std::optional<QString> pickDestination(QWidget *parent, const QString &currentPath);

// Shows a file with the platform's default application.
void openLog(const QString &path);

// --- Scripted mode (tests) --------------------------------------------------------------------

// One queued answer. A message takes a button answer; the picker takes any of the other three.
class Answer {
public:
    enum class Kind { Button, Path, CloseBox, Drive };

    static Answer button(QMessageBox::StandardButton button);
    // The picker returns this folder as if it had been chosen and closed with "&Close".
    static Answer path(const QString &folder);
    // The picker is closed through its close box.
    static Answer closeBox();
    // The real picker is built and shown without a modal loop; driver works it like a person
    // would (choose a drive, open folders, press "&Close") and the seam then reads its outcome.
    static Answer drive(std::function<void(frmFileDialog &)> driver);

    Kind kind() const { return m_kind; }
    QMessageBox::StandardButton buttonValue() const { return m_button; }
    QString pathValue() const { return m_path; }
    const std::function<void(frmFileDialog &)> &driver() const { return m_driver; }

private:
    Kind m_kind = Kind::Button;
    QMessageBox::StandardButton m_button = QMessageBox::Ok;
    QString m_path;
    std::function<void(frmFileDialog &)> m_driver;
};

struct ShownMessage {
    QString text;
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    QMessageBox::StandardButtons buttons;
    QString title;
};

struct PickerCall {
    QString currentPath;
    std::optional<QString> result;
};

// While scripted, message() answers from the queue (or, with the queue empty, with the default
// button: OK when offered, else the first offered), pickDestination() from the queue (or as if
// closed through the close box), and openLog() only records. Switching it off clears everything.
void setScripted(bool on);
bool isScripted();
void setNextAnswers(const QList<Answer> &answers);
void addAnswer(const Answer &answer);
int pendingAnswers();

QList<ShownMessage> shownMessages();
QStringList shownTexts();
QList<PickerCall> pickerCalls();
QStringList openedLogs();
void clearRecords();

} // namespace Dialogs

} // namespace app
