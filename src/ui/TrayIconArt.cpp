#include "ui/TrayIconArt.h"

#include <QImage>
#include <QPainter>
#include <QPixmap>
#include <QSvgRenderer>

namespace {
const QString kArtwork = QStringLiteral(":/icons/brevona-symbolic.svg");
} // namespace

QIcon TrayIconArt::themed()
{
    return QIcon::fromTheme(kThemeName, QIcon(kArtwork));
}

QIcon TrayIconArt::drawn(const QColor& tint, double opacity)
{
    QSvgRenderer renderer(kArtwork);
    QIcon icon;
    for (const int side : {16, 22, 24, 32, 48, 64}) {
        QPixmap pixmap(side, side);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        renderer.render(&painter, QRectF(0, 0, side, side));
        painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
        QColor color = tint;
        color.setAlphaF(float(opacity));
        painter.fillRect(pixmap.rect(), color);
        painter.end();
        icon.addPixmap(pixmap);
    }
    return icon;
}

QColor TrayIconArt::tintFor(const QImage& background)
{
    if (background.isNull())
        return {};
    const QImage image = background.convertToFormat(QImage::Format_RGB32);
    double sum = 0;
    int count = 0;
    const auto addPixel = [&](int x, int y) {
        sum += qGray(image.pixel(x, y));
        ++count;
    };
    for (int x = 0; x < image.width(); ++x) {
        addPixel(x, 0);
        addPixel(x, image.height() - 1);
    }
    for (int y = 1; y + 1 < image.height(); ++y) {
        addPixel(0, y);
        addPixel(image.width() - 1, y);
    }
    return sum / count < 128 ? QColor(Qt::white) : QColor(0x2e, 0x34, 0x36);
}
