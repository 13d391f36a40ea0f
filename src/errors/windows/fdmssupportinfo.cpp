#include "errors/windows/fdmssupportinfo.h"

#include "errors/settings.h"
#include "errors/windows/buttonpictures.h"

#include <QFontDatabase>
#include <QFrame>
#include <QHBoxLayout>
#include <QPlainTextEdit>
#include <QToolButton>
#include <QVBoxLayout>

FDmsSupportInfo::FDmsSupportInfo(QWidget *parent) : QDialog(parent)
{
    setObjectName(QStringLiteral("FDmsSupportInfo"));
    setWindowTitle(QStringLiteral("Support Information"));
    setModal(true);

    auto *outer = new QVBoxLayout(this);
    outer->setContentsMargins(6, 6, 6, 6);

    QFrame *panButton = ErrorWindows::panel(QStringLiteral("panButton"), this);
    auto *row = new QHBoxLayout(panButton);
    row->setContentsMargins(8, 4, 8, 4);
    m_cmdCancel = ErrorWindows::addPictureButton(row, panButton, QStringLiteral("cmdCancel"), ErrorWindows::closePicture(),
                                                 QStringLiteral("Click to close - Short Cut Key [Alt+C]."),
                                                 QKeySequence(Qt::ALT | Qt::Key_C), QStringLiteral("lblCancel"),
                                                 QStringLiteral("Close"));
    row->addStretch(1);
    outer->addWidget(panButton);

    QFrame *panControl = ErrorWindows::panel(QStringLiteral("panControl"), this);
    auto *content = new QVBoxLayout(panControl);
    content->setContentsMargins(4, 4, 4, 4);
    m_txtMessage = new QPlainTextEdit(panControl);
    m_txtMessage->setObjectName(QStringLiteral("txtMessage"));
    m_txtMessage->setReadOnly(true);
    m_txtMessage->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    content->addWidget(m_txtMessage);
    outer->addWidget(panControl, 1);

    connect(m_cmdCancel, &QToolButton::clicked, this, &QDialog::reject);

    resize(520, 320);
    setSizeGripEnabled(true);

    // Loading shows whatever support information there is; a failure leaves the box empty.
    try {
        m_txtMessage->setPlainText(HuntERR::prtySupportInfo());
    } catch (...) {
    }
}
