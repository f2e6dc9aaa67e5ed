#include "ui/PaintKit.h"

#include <QApplication>
#include <QFontMetricsF>
#include <QPainter>
#include <QSvgRenderer>

namespace {
QString resourceFor(const QString& name)
{
    return QStringLiteral(":/icons/%1.svg").arg(name);
}
} // namespace

QFont PaintKit::systemFont(qreal pixelSize, QFont::Weight weight)
{
    QFont font = QApplication::font();
    // Layout sizes are logical pixels, independent of the screen's DPI setting.
    font.setPixelSize(qRound(pixelSize));
    font.setWeight(weight);
    return font;
}

QSizeF PaintKit::symbolSize(const QString& name)
{
    QSvgRenderer renderer(resourceFor(name));
    if (!renderer.isValid())
        return {};
    return renderer.viewBoxF().size();
}

QImage PaintKit::tintedSymbol(const QString& name, const QSizeF& size, const QColor& color,
                              qreal devicePixelRatio)
{
    QSvgRenderer renderer(resourceFor(name));
    if (!renderer.isValid() || size.isEmpty())
        return {};
    const QSize pixels = (size * devicePixelRatio).toSize();
    QImage image(pixels, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    renderer.render(&painter, QRectF(QPointF(0, 0), QSizeF(pixels)));
    painter.setCompositionMode(QPainter::CompositionMode_SourceAtop);
    painter.fillRect(image.rect(), color);
    painter.end();
    image.setDevicePixelRatio(devicePixelRatio);
    return image;
}

void PaintKit::drawTextAtBottomLeft(QPainter& painter, qreal height, QPointF point, const QFont& font,
                                    const QColor& color, const QString& text)
{
    const QFontMetricsF metrics(font);
    const qreal bottom = height - point.y();
    const qreal baseline = bottom - metrics.descent();
    painter.setFont(font);
    painter.setPen(color);
    painter.drawText(QPointF(point.x(), baseline), text);
}

qreal PaintKit::textWidth(const QFont& font, const QString& text)
{
    return QFontMetricsF(font).horizontalAdvance(text);
}
