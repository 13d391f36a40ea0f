#include "app/dialogs.h"

#include "app/frmfiledialog.h"

#include <QDesktopServices>
#include <QDir>
#include <QGuiApplication>
#include <QUrl>
#include <QWidget>

namespace app {

namespace Dialogs {

namespace {
struct Script {
    bool on = false;
    QList<Answer> answers;
    QList<ShownMessage> messages;
    QList<PickerCall> pickers;
    QStringList logs;
};

Script &script()
{
    static Script s;
    return s;
}

QMessageBox::StandardButton defaultButton(QMessageBox::StandardButtons buttons)
{
    if (buttons.testFlag(QMessageBox::Ok) || buttons == QMessageBox::NoButton)
        return QMessageBox::Ok;
    for (int bit = QMessageBox::FirstButton; bit <= QMessageBox::LastButton; bit <<= 1)
        if (buttons.testFlag(QMessageBox::StandardButton(bit)))
            return QMessageBox::StandardButton(bit);
    return QMessageBox::Ok;
}

// The next queued answer if it is of a kind the caller can take; a misplaced answer stays queued
// (and the test sees it left over) rather than being taken by the wrong box.
std::optional<Answer> takeAnswer(bool forPicker)
{
    Script &s = script();
    if (s.answers.isEmpty())
        return std::nullopt;
    const bool isButton = s.answers.first().kind() == Answer::Kind::Button;
    if (isButton == forPicker) {
        qWarning("Dialogs: the next scripted answer is for a %s, not for a %s",
                 isButton ? "message" : "picker", forPicker ? "picker" : "message");
        return std::nullopt;
    }
    return s.answers.takeFirst();
}

// A modal box is answered with the arrow, whatever long work is under way behind it.
class ArrowWhileModal {
public:
    ArrowWhileModal()
    {
        while (QGuiApplication::overrideCursor()) {
            QGuiApplication::restoreOverrideCursor();
            ++m_suspended;
        }
    }
    ~ArrowWhileModal()
    {
        for (int i = 0; i < m_suspended; ++i)
            QGuiApplication::setOverrideCursor(Qt::WaitCursor);
    }
    ArrowWhileModal(const ArrowWhileModal &) = delete;
    ArrowWhileModal &operator=(const ArrowWhileModal &) = delete;

private:
    int m_suspended = 0;
};

// Once a modal box is gone, the window that asked gets the activation back even where no window
// manager hands it back by itself, so the focus it moves next really arrives.
void reactivate(QWidget *parent)
{
    if (parent && parent->window()->isVisible())
        parent->window()->activateWindow();
}

std::optional<QString> runPicker(QWidget *parent)
{
    std::optional<QString> chosen;
    {
        const ArrowWhileModal arrow;
        frmFileDialog picker(parent);
        if (picker.exec() == QDialog::Accepted)
            chosen = picker.chosenPath();
    }
    reactivate(parent);
    return chosen;
}
} // namespace

QString title()
{
    return QStringLiteral("zarnivo - Parcelwise");
}

Answer Answer::button(QMessageBox::StandardButton button)
{
    Answer a;
    a.m_kind = Kind::Button;
    a.m_button = button;
    return a;
}

Answer Answer::path(const QString &folder)
{
    Answer a;
    a.m_kind = Kind::Path;
    a.m_path = folder;
    return a;
}

Answer Answer::closeBox()
{
    Answer a;
    a.m_kind = Kind::CloseBox;
    return a;
}

Answer Answer::drive(std::function<void(frmFileDialog &)> driver)
{
    Answer a;
    a.m_kind = Kind::Drive;
    a.m_driver = std::move(driver);
    return a;
}

QMessageBox::StandardButton message(QWidget *parent, const QString &text, QMessageBox::Icon icon,
                                    QMessageBox::StandardButtons buttons, const QString &title)
{
    if (!script().on) {
        const ArrowWhileModal arrow;
        QMessageBox box(icon, title, text, buttons, parent);
        box.setDefaultButton(defaultButton(buttons));
        const int pressed = box.exec();
        reactivate(parent);
        // Closing a box through its close box or Escape counts as its escape button (Cancel).
        return QMessageBox::StandardButton(pressed);
    }
    script().messages.append({text, icon, buttons, title});
    if (const auto answer = takeAnswer(false))
        return answer->buttonValue();
    return defaultButton(buttons);
}

std::optional<QString> pickDestination(QWidget *parent, const QString &currentPath)
{
    if (!script().on)
        return runPicker(parent);

    std::optional<QString> result;
    if (const auto answer = takeAnswer(true)) {
        switch (answer->kind()) {
        case Answer::Kind::Path:
            result = answer->pathValue();
            break;
        case Answer::Kind::CloseBox:
        case Answer::Kind::Button:
            break;
        case Answer::Kind::Drive: {
            frmFileDialog picker(parent);
            picker.show();
            if (answer->driver())
                answer->driver()(picker);
            // A driver that leaves the picker open has, in effect, used the close box.
            if (picker.result() == QDialog::Accepted)
                result = picker.chosenPath();
            break;
        }
        }
    }
    script().pickers.append({currentPath, result});
    return result;
}

void openLog(const QString &path)
{
    if (script().on) {
        script().logs << path;
        return;
    }
    QDesktopServices::openUrl(QUrl::fromLocalFile(path));
}

void setScripted(bool on)
{
    script() = Script{};
    script().on = on;
}

bool isScripted()
{
    return script().on;
}

void setNextAnswers(const QList<Answer> &answers)
{
    script().answers = answers;
}

void addAnswer(const Answer &answer)
{
    script().answers.append(answer);
}

int pendingAnswers()
{
    return int(script().answers.size());
}

QList<ShownMessage> shownMessages()
{
    return script().messages;
}

QStringList shownTexts()
{
    QStringList texts;
    for (const ShownMessage &m : script().messages)
        texts << m.text;
    return texts;
}

QList<PickerCall> pickerCalls()
{
    return script().pickers;
}

QStringList openedLogs()
{
    return script().logs;
}

void clearRecords()
{
    script().messages.clear();
    script().pickers.clear();
    script().logs.clear();
}

} // namespace Dialogs

} // namespace app
