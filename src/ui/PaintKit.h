#pragma once

#include <QColor>
#include <QFont>
#include <QImage>
#include <QPointF>
#include <QSizeF>
#include <QString>

class QPainter;

/**
 * Drawing helpers shared by the painted views: the system font at a pixel size and weight, our
 * monochrome symbol artwork tinted to a colour, and text placed the way the layouts are measured
 * (by the lower-left corner of the line box, in coordinates whose y grows upwards).
 */
class PaintKit final
{
public:
    /// The application font at `pixelSize` logical pixels and `weight`.
    static QFont systemFont(qreal pixelSize, QFont::Weight weight = QFont::Normal);

    /// The natural size of a symbol ("bolt.fill", "photo.stack", "checkmark") in logical pixels;
    /// empty when there is no such artwork.
    static QSizeF symbolSize(const QString& name);

    /// The symbol rendered into `size` and filled with `color` where it is opaque; a null image
    /// when there is no such artwork.
    static QImage tintedSymbol(const QString& name, const QSizeF& size, const QColor& color,
                               qreal devicePixelRatio);

    /// Draws `text` with the lower-left corner of its line box at (x, y) measured from the bottom
    /// of an area `height` pixels high.
    static void drawTextAtBottomLeft(QPainter& painter, qreal height, QPointF point, const QFont& font,
                                     const QColor& color, const QString& text);

    /// Width of `text` in `font`, for centring.
    static qreal textWidth(const QFont& font, const QString& text);
};
