#include "app/fdmssupportinfo.h"

#include "errors/settings.h"
#include "app/errorwindowparts.h"

#include <QHBoxLayout>
#include <QPlainTextEdit>
#include <QToolButton>

namespace app {

FDmsSupportInfo::FDmsSupportInfo(QWidget *parent) : QDialog(parent)
{
    setObjectName(QStringLiteral("FDmsSupportInfo"));
    setWindowTitle(QStringLiteral("Support Information"));
    setModal(true);

    const ErrorWindows::Frame frame = ErrorWindows::buildFrame(this, QStringLiteral("txtMessage"));
    m_cmdCancel = ErrorWindows::addPictureButton(frame.buttons, frame.buttons->parentWidget(), QStringLiteral("cmdCancel"),
                                                 ErrorWindows::closePicture(),
                                                 QStringLiteral("Click to close - Short Cut Key [Alt+C]."),
                                                 QKeySequence(Qt::ALT | Qt::Key_C), QStringLiteral("lblCancel"),
                                                 QStringLiteral("Close"));
    frame.buttons->addStretch(1);
    m_txtMessage = frame.text;

    connect(m_cmdCancel, &QToolButton::clicked, this, &QDialog::reject);

    resize(520, 320);
    setSizeGripEnabled(true);

    // Loading shows whatever support information there is; a failure leaves the box empty.
    try {
        m_txtMessage->setPlainText(HuntERR::prtySupportInfo());
    } catch (...) {
    }
}

} // namespace app
