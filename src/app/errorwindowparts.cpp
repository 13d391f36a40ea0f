#include "app/errorwindowparts.h"

#include <QBoxLayout>
#include <QDialog>
#include <QFontDatabase>
#include <QFrame>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QPlainTextEdit>
#include <QToolButton>

#include <functional>

namespace app {

namespace ErrorWindows {

namespace {

constexpr int Side = 64; // drawn large, scaled down by the button

QIcon draw(const std::function<void(QPainter &)> &paint)
{
    QPixmap pixmap(Side, Side);
    pixmap.fill(Qt::transparent);
    {
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        paint(painter);
    }
    return QIcon(pixmap);
}

void sheet(QPainter &p, const QRectF &r)
{
    QPainterPath path;
    const qreal fold = r.width() * 0.28;
    path.moveTo(r.topLeft());
    path.lineTo(r.right() - fold, r.top());
    path.lineTo(r.right(), r.top() + fold);
    path.lineTo(r.bottomRight());
    path.lineTo(r.bottomLeft());
    path.closeSubpath();
    p.setPen(QPen(QColor(60, 60, 60), 2.5));
    p.setBrush(Qt::white);
    p.drawPath(path);
    p.setPen(QPen(QColor(120, 140, 170), 2.5));
    for (int i = 0; i < 4; ++i) {
        const qreal y = r.top() + fold + 6 + i * (r.height() - fold - 10) / 4.0;
        p.drawLine(QPointF(r.left() + 6, y), QPointF(r.right() - 6, y));
    }
}

void disc(QPainter &p, const QColor &color)
{
    p.setPen(QPen(color.darker(140), 2.5));
    p.setBrush(color);
    p.drawEllipse(QRectF(5, 5, Side - 10, Side - 10));
}

} // namespace

QIcon copyPicture()
{
    return draw([](QPainter &p) {
        sheet(p, QRectF(6, 4, 34, 42));
        sheet(p, QRectF(22, 18, 34, 42));
    });
}

QIcon infoPicture()
{
    return draw([](QPainter &p) {
        disc(p, QColor(40, 100, 200));
        p.setPen(Qt::NoPen);
        p.setBrush(Qt::white);
        p.drawEllipse(QPointF(Side / 2.0, 19), 5, 5);
        p.drawRoundedRect(QRectF(Side / 2.0 - 4.5, 28, 9, 24), 2, 2);
    });
}

QIcon closePicture()
{
    return draw([](QPainter &p) {
        disc(p, QColor(200, 45, 40));
        p.setPen(QPen(Qt::white, 7, Qt::SolidLine, Qt::RoundCap));
        p.drawLine(QPointF(21, 21), QPointF(Side - 21, Side - 21));
        p.drawLine(QPointF(Side - 21, 21), QPointF(21, Side - 21));
    });
}

QFrame *panel(const QString &objectName, QWidget *parent)
{
    auto *frame = new QFrame(parent);
    frame->setObjectName(objectName);
    frame->setFrameShape(QFrame::Panel);
    frame->setFrameShadow(QFrame::Raised);
    frame->setLineWidth(1);
    return frame;
}

QToolButton *addPictureButton(QBoxLayout *row, QWidget *parent, const QString &buttonName, const QIcon &icon,
                              const QString &toolTip, const QKeySequence &shortcut, const QString &labelName,
                              const QString &labelText)
{
    auto *column = new QVBoxLayout;
    column->setSpacing(2);

    auto *button = new QToolButton(parent);
    button->setObjectName(buttonName);
    button->setIcon(icon);
    button->setIconSize(QSize(32, 32));
    button->setFixedSize(48, 44);
    button->setToolTip(toolTip);
    button->setShortcut(shortcut);
    column->addWidget(button, 0, Qt::AlignHCenter);

    auto *label = new QLabel(labelText, parent);
    label->setObjectName(labelName);
    label->setAlignment(Qt::AlignHCenter);
    label->setToolTip(toolTip);
    column->addWidget(label, 0, Qt::AlignHCenter);

    row->addLayout(column);
    return button;
}

Frame buildFrame(QDialog *dialog, const QString &textName, int buttonSpacing)
{
    auto *outer = new QVBoxLayout(dialog);
    outer->setContentsMargins(6, 6, 6, 6);

    QFrame *panButton = panel(QStringLiteral("panButton"), dialog);
    auto *row = new QHBoxLayout(panButton);
    row->setContentsMargins(8, 4, 8, 4);
    if (buttonSpacing >= 0)
        row->setSpacing(buttonSpacing);
    outer->addWidget(panButton);

    QFrame *panControl = panel(QStringLiteral("panControl"), dialog);
    auto *content = new QVBoxLayout(panControl);
    content->setContentsMargins(4, 4, 4, 4);
    auto *text = new QPlainTextEdit(panControl);
    text->setObjectName(textName);
    text->setReadOnly(true);
    text->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    content->addWidget(text);
    outer->addWidget(panControl, 1);
    return {row, text};
}

} // namespace ErrorWindows

} // namespace app
