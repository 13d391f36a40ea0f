#include "app/fdmsshowerror.h"

#include "errors/hunterr.h"
#include "errors/settings.h"
#include "app/errorwindowparts.h"
#include "app/fdmssupportinfo.h"

#include <QApplication>
#include <QClipboard>
#include <QEvent>
#include <QHBoxLayout>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPointer>
#include <QToolButton>

namespace app {

namespace ErrorWindows {

namespace {
ModalHook &modalHook()
{
    static ModalHook hook;
    return hook;
}
} // namespace

void setModalHook(ModalHook hook)
{
    modalHook() = std::move(hook);
}

int execModal(QDialog &dialog)
{
    if (!modalHook())
        return dialog.exec();
    dialog.show();
    modalHook()(dialog);
    if (dialog.isVisible())
        dialog.reject();
    return dialog.result();
}

} // namespace ErrorWindows

namespace {

constexpr qint32 ErrCantOpenClipboard = 521;
const QString CrLf = QStringLiteral("\r\n");

QPointer<FDmsShowError> &openWindow()
{
    static QPointer<FDmsShowError> window;
    return window;
}

} // namespace

FDmsShowError::FDmsShowError(QWidget *parent) : QDialog(parent)
{
    setObjectName(QStringLiteral("FDmsShowError"));
    setWindowTitle(QStringLiteral("zarnivo - Message"));
    setModal(true);

    const ErrorWindows::Frame frame = ErrorWindows::buildFrame(this, QStringLiteral("tbxErrorReport"), 14);
    QHBoxLayout *row = frame.buttons;
    QWidget *panButton = row->parentWidget();
    m_btnCopy = ErrorWindows::addPictureButton(row, panButton, QStringLiteral("btnCopy"), ErrorWindows::copyPicture(),
                                               QStringLiteral("Copy message into clipboard- Short Cut Key [Alt+P]."),
                                               QKeySequence(Qt::ALT | Qt::Key_P), QStringLiteral("labCopy"),
                                               QStringLiteral("Copy"));
    m_cmdInfo = ErrorWindows::addPictureButton(row, panButton, QStringLiteral("cmdInfo"), ErrorWindows::infoPicture(),
                                               QStringLiteral("Click to view support information- Short Cut Key [Alt+S]."),
                                               QKeySequence(Qt::ALT | Qt::Key_S), QStringLiteral("Label1"),
                                               QStringLiteral("Support Info."));
    m_btnCancel = ErrorWindows::addPictureButton(row, panButton, QStringLiteral("btnCancel"), ErrorWindows::closePicture(),
                                                 QStringLiteral("Click to close window - Short Cut Key [Alt+C]."),
                                                 QKeySequence(Qt::ALT | Qt::Key_C), QStringLiteral("labClose"),
                                                 QStringLiteral("Close"));
    row->addStretch(1);
    m_tbxErrorReport = frame.text;
    // The report pads its call-stack lines to a fixed width, which only a fixed-pitch font lines up;
    // wrapping would break them.
    m_tbxErrorReport->setLineWrapMode(QPlainTextEdit::NoWrap);

    connect(m_btnCopy, &QToolButton::clicked, this, &FDmsShowError::btnCopy_Click);
    connect(m_cmdInfo, &QToolButton::clicked, this, &FDmsShowError::cmdInfo_Click);
    connect(m_btnCancel, &QToolButton::clicked, this, &FDmsShowError::btnCancel_Click);

    // Wide enough for a whole call-stack line without scrolling, where the screen allows.
    const int reportWidth = m_tbxErrorReport->fontMetrics().horizontalAdvance(QString(101, QLatin1Char('-'))) + 60;
    resize(qMax(760, reportWidth), 480);
    setSizeGripEnabled(true);

    HuntERR::clearLastShownMessage();
    openWindow() = this;
}

FDmsShowError::~FDmsShowError()
{
    if (openWindow() == this)
        openWindow() = nullptr;
}

FDmsShowError *FDmsShowError::openInstance()
{
    return openWindow().data();
}

QString FDmsShowError::expandEscapedBreaks(const QString &text)
{
    QString expanded = text;
    expanded.replace(QStringLiteral("\\n\\n"), CrLf, Qt::CaseInsensitive);
    expanded.replace(QStringLiteral("\\n"), CrLf);
    return expanded;
}

void FDmsShowError::setMessage(const QString &text)
{
    m_report = text;
    m_tbxErrorReport->setPlainText(m_report);
}

void FDmsShowError::showMessage(const QString &text)
{
    try {
        setMessage(text);
        if (isVisible()) {
            activate(); // already on screen: it only takes the new text
            return;
        }
        ErrorWindows::execModal(*this);
    } catch (...) {
    }
}

void FDmsShowError::activate()
{
    try {
        HuntERR::clearLastShownMessage();
        m_cmdInfo->setEnabled(HuntERR::prtySupportInfo().trimmed().size() >= 1);
        const QString expanded = expandEscapedBreaks(m_report);
        if (expanded != m_report)
            setMessage(expanded);
    } catch (...) {
    }
}

bool FDmsShowError::event(QEvent *event)
{
    if (event->type() == QEvent::WindowActivate)
        activate();
    return QDialog::event(event);
}

void FDmsShowError::showEvent(QShowEvent *event)
{
    QDialog::showEvent(event);
    activate();
}

void FDmsShowError::done(int result)
{
    try {
        HuntERR::clearLastShownMessage();
        HuntERR::setPrtySupportInfo(QString());
    } catch (...) {
    }
    QDialog::done(result);
}

void FDmsShowError::btnCopy_Click()
{
    HuntERR::handler(QStringLiteral("FDmsShowError.btnCopy_Click"), [this] {
        QClipboard *clipboard = QGuiApplication::clipboard();
        if (!clipboard)
            HuntERR::raise(ErrCantOpenClipboard, QStringLiteral("Can't open Clipboard"),
                           QStringLiteral("FDmsShowError.btnCopy_Click"));
        clipboard->clear();
        clipboard->setText(m_report + CrLf + CrLf + CrLf + HuntERR::prtySupportInfo());
    });
}

void FDmsShowError::cmdInfo_Click()
{
    HuntERR::handler(QStringLiteral("FDmsShowError.cmdInfo_Click"), [this] {
        FDmsSupportInfo info(this);
        ErrorWindows::execModal(info);
    });
}

void FDmsShowError::btnCancel_Click()
{
    reject();
}

void showErrorWindow(const QString &text, QWidget *parent)
{
    try {
        if (!qobject_cast<QApplication *>(QCoreApplication::instance()))
            return; // no window system: nothing can be shown
        if (FDmsShowError *open = FDmsShowError::openInstance(); open && open->isVisible()) {
            open->showMessage(text);
            return;
        }
        FDmsShowError window(parent);
        window.showMessage(text);
    } catch (...) {
    }
}

void installErrorWindow()
{
    HuntERR::setShower([](const QString &message) { showErrorWindow(message, QApplication::activeWindow()); });
    HuntERR::setStopPrompt([](const QString &title, const QString &text) {
        QMessageBox box(QMessageBox::Critical, title, text, QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel,
                        QApplication::activeWindow());
        switch (box.exec()) {
        case QMessageBox::Yes:
            return 6;
        case QMessageBox::Cancel:
            return 2;
        default:
            return 7;
        }
    });
    HuntERR::setPointerReset([] {
        while (QGuiApplication::overrideCursor())
            QGuiApplication::restoreOverrideCursor();
    });
}

} // namespace app
