#include "app/appicon.h"

#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

namespace app {

namespace AppIcon {

namespace {
QPixmap draw(int side)
{
    QPixmap picture(side, side);
    picture.fill(Qt::transparent);
    QPainter p(&picture);
    p.setRenderHint(QPainter::Antialiasing);
    p.scale(side / 64.0, side / 64.0);

    const QColor edge(0x7a, 0x56, 0x14);
    QPen outline(edge, 2.0);
    outline.setJoinStyle(Qt::RoundJoin);
    p.setPen(outline);
    p.setBrush(QColor(0xd9, 0xa4, 0x41));
    p.drawRoundedRect(QRectF(4, 14, 56, 42), 4, 4);

    QPainterPath tab;
    tab.moveTo(4, 20);
    tab.lineTo(26, 20);
    tab.lineTo(32, 12);
    tab.lineTo(8, 12);
    tab.arcTo(QRectF(4, 12, 8, 8), 90, 90);
    tab.closeSubpath();
    p.setBrush(QColor(0xe8, 0xbd, 0x62));
    p.drawPath(tab);

    QPen arrow(Qt::white, 5.0, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    p.setPen(arrow);
    p.setBrush(Qt::NoBrush);
    p.drawLine(QPointF(32, 26), QPointF(32, 44));
    QPainterPath head;
    head.moveTo(24, 36);
    head.lineTo(32, 44);
    head.lineTo(40, 36);
    p.drawPath(head);
    return picture;
}
} // namespace

QIcon icon()
{
    QIcon made;
    for (int side : {16, 24, 32, 48, 64, 128, 256})
        made.addPixmap(draw(side));
    return made;
}

} // namespace AppIcon

} // namespace app
