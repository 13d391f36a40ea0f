#include "app/treeimages.h"

#include "tree/treeprocs.h"

#include <QColor>
#include <QHash>
#include <QPainter>
#include <QPainterPath>

namespace app {

namespace TreeImage = tree::TreeImage;

namespace TreeImages {

namespace {

// Body colours of the eleven folder icons (icon ids 1 to 11).
const QColor kFolderColours[11] = {
    QColor(0xe8, 0xb8, 0x38), // yellow
    QColor(0x4a, 0x86, 0xd8), // blue
    QColor(0x4c, 0xaf, 0x50), // green
    QColor(0xd9, 0x53, 0x4f), // red
    QColor(0xf0, 0x88, 0x3a), // orange
    QColor(0x8e, 0x5c, 0xc2), // purple
    QColor(0x2a, 0xa1, 0x98), // teal
    QColor(0xe0, 0x7b, 0xb5), // pink
    QColor(0xa0, 0x70, 0x4a), // brown
    QColor(0x8a, 0x8f, 0x98), // grey
    QColor(0x9b, 0xbf, 0x30), // lime
};

const QColor kSepia(0xb8, 0xa4, 0x86);

// Archived things keep a hint of their own colour under a faded sepia wash.
QColor faded(const QColor &c)
{
    const QColor grey = QColor::fromHsl(c.hslHue(), c.hslSaturation() / 4, c.lightness());
    return QColor((grey.red() * 35 + kSepia.red() * 65) / 100,
                  (grey.green() * 35 + kSepia.green() * 65) / 100,
                  (grey.blue() * 35 + kSepia.blue() * 65) / 100);
}

QColor muted(const QColor &c)
{
    return QColor::fromHsl(c.hslHue(), c.hslSaturation() * 3 / 5, (c.lightness() + kSepia.lightness()) / 2);
}

QPen outline(const QColor &fill)
{
    QPen pen(fill.darker(190));
    pen.setWidthF(0.8);
    pen.setJoinStyle(Qt::RoundJoin);
    return pen;
}

// Everything below draws in a 16 x 16 grid; the painter is scaled to the pixmap.

// back: the colour of the back and its tab; archived folders keep a muted trace of their own
// colour there, so the eleven stay apart under the sepia front.
void drawFolder(QPainter &p, const QColor &body, const QColor &back)
{
    // Back with its tab.
    QPainterPath backPath;
    backPath.moveTo(1.0, 3.5);
    backPath.lineTo(6.0, 3.5);
    backPath.lineTo(7.5, 5.0);
    backPath.lineTo(15.0, 5.0);
    backPath.lineTo(15.0, 13.5);
    backPath.lineTo(1.0, 13.5);
    backPath.closeSubpath();
    p.setPen(outline(body));
    p.setBrush(back.darker(118));
    p.drawPath(backPath);

    // Paper peeking out.
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(0xfb, 0xfb, 0xf6));
    p.drawRect(QRectF(2.5, 5.8, 11.0, 3.0));

    // Front flap.
    QPainterPath front;
    front.moveTo(1.0, 7.0);
    front.lineTo(15.0, 7.0);
    front.lineTo(15.0, 13.5);
    front.lineTo(1.0, 13.5);
    front.closeSubpath();
    QLinearGradient shade(0, 7, 0, 13.5);
    shade.setColorAt(0, body.lighter(115));
    shade.setColorAt(1, body);
    p.setPen(outline(body));
    p.setBrush(shade);
    p.drawPath(front);
}

void drawRoot(QPainter &p)
{
    // A stack of discs: the repository.
    const QColor body(0x2f, 0x6d, 0xb5);
    p.setPen(outline(body));
    QLinearGradient shade(2, 0, 14, 0);
    shade.setColorAt(0, body.lighter(135));
    shade.setColorAt(1, body.darker(110));
    p.setBrush(shade);
    QPainterPath drum;
    drum.moveTo(2.0, 3.5);
    drum.lineTo(2.0, 12.5);
    drum.arcTo(QRectF(2.0, 10.5, 12.0, 4.0), 180, 180);
    drum.lineTo(14.0, 3.5);
    drum.closeSubpath();
    p.drawPath(drum);
    p.setBrush(body.lighter(160));
    p.drawEllipse(QRectF(2.0, 1.5, 12.0, 4.0));
    p.setBrush(Qt::NoBrush);
    QPen band(body.lighter(170));
    band.setWidthF(0.8);
    p.setPen(band);
    p.drawArc(QRectF(2.0, 5.0, 12.0, 4.0), 180 * 16, 180 * 16);
    p.drawArc(QRectF(2.0, 8.0, 12.0, 4.0), 180 * 16, 180 * 16);
}

void drawSite(QPainter &p, bool archived)
{
    const QColor wall = archived ? faded(QColor(0x6f, 0x86, 0xa6)) : QColor(0x6f, 0x86, 0xa6);
    const QColor roof = archived ? faded(QColor(0xb8, 0x4a, 0x32)) : QColor(0xb8, 0x4a, 0x32);
    const QColor window = archived ? QColor(0xe9, 0xe0, 0xcc) : QColor(0xff, 0xe0, 0x6a);
    p.setPen(outline(wall));
    p.setBrush(wall);
    p.drawRect(QRectF(2.5, 6.5, 11.0, 8.0));
    QPainterPath gable;
    gable.moveTo(1.0, 7.0);
    gable.lineTo(8.0, 1.5);
    gable.lineTo(15.0, 7.0);
    gable.closeSubpath();
    p.setPen(outline(roof));
    p.setBrush(roof);
    p.drawPath(gable);
    p.setPen(Qt::NoPen);
    p.setBrush(window);
    for (double x : {4.0, 7.25, 10.5})
        p.drawRect(QRectF(x, 8.0, 1.75, 1.75));
    p.setBrush(wall.darker(170));
    p.drawRect(QRectF(7.0, 11.0, 2.2, 3.5));
}

void drawCabinet(QPainter &p, bool archived)
{
    const QColor steel = archived ? faded(QColor(0x9a, 0xa6, 0xb2)) : QColor(0x9a, 0xa6, 0xb2);
    p.setPen(outline(steel));
    QLinearGradient shade(3, 0, 13, 0);
    shade.setColorAt(0, steel.lighter(120));
    shade.setColorAt(1, steel.darker(105));
    p.setBrush(shade);
    p.drawRoundedRect(QRectF(3.0, 1.0, 10.0, 14.0), 0.8, 0.8);
    p.setBrush(steel.lighter(112));
    p.drawRect(QRectF(4.2, 2.3, 7.6, 5.4));
    p.drawRect(QRectF(4.2, 8.3, 7.6, 5.4));
    p.setPen(Qt::NoPen);
    p.setBrush(steel.darker(200));
    p.drawRoundedRect(QRectF(6.5, 3.6, 3.0, 1.1), 0.4, 0.4);
    p.drawRoundedRect(QRectF(6.5, 9.6, 3.0, 1.1), 0.4, 0.4);
    p.setBrush(QColor(0xfb, 0xfb, 0xf6));
    p.drawRect(QRectF(6.8, 5.3, 2.4, 1.3));
    p.drawRect(QRectF(6.8, 11.3, 2.4, 1.3));
}

void drawRecycleBin(QPainter &p)
{
    const QColor body(0x7d, 0x8c, 0x7e);
    QPainterPath bin;
    bin.moveTo(3.0, 4.5);
    bin.lineTo(13.0, 4.5);
    bin.lineTo(11.8, 15.0);
    bin.lineTo(4.2, 15.0);
    bin.closeSubpath();
    p.setPen(outline(body));
    QLinearGradient shade(3, 0, 13, 0);
    shade.setColorAt(0, body.lighter(125));
    shade.setColorAt(1, body.darker(105));
    p.setBrush(shade);
    p.drawPath(bin);
    p.setBrush(body.darker(115));
    p.drawRoundedRect(QRectF(2.0, 2.8, 12.0, 1.8), 0.6, 0.6);
    p.drawRect(QRectF(6.5, 1.2, 3.0, 1.6));
    QPen rib(body.darker(160));
    rib.setWidthF(0.8);
    p.setPen(rib);
    p.drawLine(QPointF(6.0, 6.5), QPointF(6.3, 13.5));
    p.drawLine(QPointF(8.0, 6.5), QPointF(8.0, 13.5));
    p.drawLine(QPointF(10.0, 6.5), QPointF(9.7, 13.5));
}

void drawAdmin(QPainter &p)
{
    // A gear on a shield: the administration folder.
    const QColor shield(0x35, 0x4a, 0x6e);
    QPainterPath guard;
    guard.moveTo(8.0, 0.8);
    guard.lineTo(14.5, 3.0);
    guard.cubicTo(14.5, 9.5, 11.5, 13.2, 8.0, 15.2);
    guard.cubicTo(4.5, 13.2, 1.5, 9.5, 1.5, 3.0);
    guard.closeSubpath();
    p.setPen(outline(shield));
    p.setBrush(shield);
    p.drawPath(guard);

    const QColor gold(0xf2, 0xc1, 0x3d);
    p.setPen(Qt::NoPen);
    p.setBrush(gold);
    const QPointF centre(8.0, 7.6);
    p.save();
    p.translate(centre);
    for (int tooth = 0; tooth < 8; ++tooth) {
        p.drawRect(QRectF(-0.75, -4.3, 1.5, 2.0));
        p.rotate(45);
    }
    p.restore();
    p.drawEllipse(centre, 3.0, 3.0);
    p.setBrush(shield);
    p.drawEllipse(centre, 1.2, 1.2);
}

// The archive box in the lower right corner: brown carton, lid band and handle slot.
void drawArchiveMarker(QPainter &p)
{
    const QColor carton(0x7a, 0x52, 0x2a);
    p.setPen(QPen(QColor(0x3e, 0x28, 0x12), 0.7));
    p.setBrush(carton);
    p.drawRect(QRectF(8.6, 9.2, 6.8, 6.2));
    p.setBrush(carton.lighter(140));
    p.drawRect(QRectF(8.0, 8.4, 8.0 - 0.4, 2.2));
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(0x2a, 0x1a, 0x0a));
    p.drawRoundedRect(QRectF(10.6, 12.0, 2.8, 0.9), 0.4, 0.4);
}

void draw(QPainter &p, int index)
{
    using namespace TreeImage;
    if (index == Root)
        drawRoot(p);
    else if (index == Site || index == ArchiveSite)
        drawSite(p, index == ArchiveSite);
    else if (index == Cabinet || index == ArchiveCabinet)
        drawCabinet(p, index == ArchiveCabinet);
    else if (index >= FirstFolder && index < FirstFolder + 11)
        drawFolder(p, kFolderColours[index - FirstFolder], kFolderColours[index - FirstFolder]);
    else if (index == Recycle)
        drawRecycleBin(p);
    else if (index == Admin)
        drawAdmin(p);
    else if (index >= ArchiveFolder1 && index < ArchiveFolder1 + 11)
        drawFolder(p, faded(kFolderColours[index - ArchiveFolder1]), muted(kFolderColours[index - ArchiveFolder1]));
    if (isArchive(index))
        drawArchiveMarker(p);
}

} // namespace

bool isArchive(int index)
{
    return (index >= TreeImage::ArchiveFolder1 && index <= TreeImage::ArchiveFirstFolder4 + 7)
        || index == TreeImage::ArchiveSite || index == TreeImage::ArchiveCabinet;
}

QPixmap pixmap(int index, int side)
{
    QPixmap picture(side, side);
    picture.fill(Qt::transparent);
    if (index < 1 || index > TreeImage::Count)
        return picture;
    QPainter p(&picture);
    p.setRenderHint(QPainter::Antialiasing);
    p.scale(side / 16.0, side / 16.0);
    draw(p, index);
    return picture;
}

QIcon icon(int index)
{
    static QHash<int, QIcon> cache;
    if (index < 1 || index > TreeImage::Count)
        return {};
    auto it = cache.find(index);
    if (it == cache.end()) {
        QIcon made;
        for (int side : {16, 24, 32, 48})
            made.addPixmap(pixmap(index, side));
        it = cache.insert(index, made);
    }
    return *it;
}

} // namespace TreeImages

} // namespace app
