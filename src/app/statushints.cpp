// Status hints: entering a control writes its hint into the status line, leaving it clears it.
// Each is an event handler of its own, as the window's other events are.

#include "app/frmsendtofolder.h"

#include "errors/hunterr.h"

#include <QComboBox>
#include <QEvent>
#include <QFocusEvent>

namespace app {

namespace {
const QString kModule = QStringLiteral("FrmSendtofolder.");
} // namespace

void FrmSendtofolder::watchFocus(QWidget *control, const QString &onFocus, bool clearsOnLeave)
{
    m_hints.insert(control, Hint{onFocus, clearsOnLeave});
    control->installEventFilter(this);
}

bool FrmSendtofolder::eventFilter(QObject *watched, QEvent *event)
{
    // During a copy the status line is the copy's, and the error trail its thread's.
    if ((event->type() == QEvent::FocusIn || event->type() == QEvent::FocusOut) && m_hints.contains(watched)
        && m_quietFocus == 0 && !isCopying()) {
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

} // namespace app
