// Draws the module's two icons, so that they can be redrawn at another size
// or colour instead of edited by hand:
//   icon-painter <folder>   writes download.png and mb_info.png
#include <QApplication>
#include <QDir>
#include <QImage>
#include <QPainter>
#include <QPainterPath>
#include <cstdio>

namespace {

const QColor kBlue(0x1f, 0x6f, 0xc5);
const QColor kBlueDark(0x15, 0x4f, 0x91);

// A downward arrow into a tray on a rounded blue tile.
QImage downloadIcon(int size)
{
    QImage image(size, size, QImage::Format_ARGB32);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    const qreal s = size;
    QLinearGradient tile(0, 0, 0, s);
    tile.setColorAt(0, kBlue.lighter(115));
    tile.setColorAt(1, kBlueDark);
    painter.setPen(Qt::NoPen);
    painter.setBrush(tile);
    painter.drawRoundedRect(QRectF(1, 1, s - 2, s - 2), s * 0.18, s * 0.18);

    painter.setBrush(Qt::white);
    QPainterPath arrow;
    arrow.moveTo(s * 0.42, s * 0.16);
    arrow.lineTo(s * 0.58, s * 0.16);
    arrow.lineTo(s * 0.58, s * 0.46);
    arrow.lineTo(s * 0.74, s * 0.46);
    arrow.lineTo(s * 0.50, s * 0.70);
    arrow.lineTo(s * 0.26, s * 0.46);
    arrow.lineTo(s * 0.42, s * 0.46);
    arrow.closeSubpath();
    painter.drawPath(arrow);

    QPen tray(Qt::white, s * 0.08, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    painter.setPen(tray);
    painter.setBrush(Qt::NoBrush);
    QPainterPath trayPath;
    trayPath.moveTo(s * 0.20, s * 0.66);
    trayPath.lineTo(s * 0.20, s * 0.80);
    trayPath.lineTo(s * 0.80, s * 0.80);
    trayPath.lineTo(s * 0.80, s * 0.66);
    painter.drawPath(trayPath);
    return image;
}

// A white "i" on a blue disc, the usual sign for an information box.
QImage infoIcon(int size)
{
    QImage image(size, size, QImage::Format_ARGB32);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    const qreal s = size;
    QRadialGradient disc(s * 0.4, s * 0.35, s * 0.6);
    disc.setColorAt(0, kBlue.lighter(125));
    disc.setColorAt(1, kBlueDark);
    painter.setPen(QPen(kBlueDark.darker(120), 1));
    painter.setBrush(disc);
    painter.drawEllipse(QRectF(1.5, 1.5, s - 3, s - 3));

    painter.setPen(Qt::NoPen);
    painter.setBrush(Qt::white);
    painter.drawEllipse(QRectF(s * 0.43, s * 0.18, s * 0.14, s * 0.14));
    painter.drawRoundedRect(QRectF(s * 0.435, s * 0.38, s * 0.13, s * 0.42), s * 0.04, s * 0.04);
    return image;
}

}  // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: icon-painter <folder>\n");
        return 1;
    }
    const QDir folder(QString::fromLocal8Bit(argv[1]));
    const bool written = downloadIcon(32).save(folder.filePath("download.png"))
        && infoIcon(40).save(folder.filePath("mb_info.png"));
    if (!written) {
        std::fprintf(stderr, "icon-painter: cannot write into %s\n", argv[1]);
        return 1;
    }
    return 0;
}
