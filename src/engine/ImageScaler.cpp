#include "engine/ImageScaler.h"

#include <algorithm>

#include "platform/Logging.h"

QSize ImageScaler::scaledSize(QSize size, qint64 maxEdge)
{
    const qint64 longest = std::max(size.width(), size.height());
    if (maxEdge < 1 || longest <= maxEdge)
        return size;
    const double s = static_cast<double>(maxEdge) / static_cast<double>(longest);
    return {static_cast<int>(s * size.width()), static_cast<int>(s * size.height())};
}

vips::VImage ImageScaler::resize(const vips::VImage& image, qint64 maxEdge)
{
    const vips::VImage out = resizeLazily(image, maxEdge);
    if (out.get_image() == image.get_image())
        return image;
    try {
        return out.copy_memory();
    } catch (const vips::VError& error) {
        qCWarning(lcCompression) << "resize failed:" << error.what();
        return image;
    }
}

vips::VImage ImageScaler::resizeLazily(const vips::VImage& image, qint64 maxEdge)
{
    const QSize from(image.width(), image.height());
    const QSize to = scaledSize(from, maxEdge);
    if (to == from || to.isEmpty()) // a side truncated to nothing: no image to draw into
        return image;
    try {
        const bool alpha = image.bands() == 4;
        // Premultiplied, so transparent pixels do not bleed their colour into visible edges.
        vips::VImage in = alpha ? image.premultiply() : image;
        vips::VImage out = in.resize(static_cast<double>(to.width()) / from.width(),
                                     vips::VImage::option()
                                         ->set("vscale", static_cast<double>(to.height()) / from.height())
                                         ->set("kernel", VIPS_KERNEL_LANCZOS3));
        if (alpha)
            out = out.unpremultiply();
        out = out.cast(VIPS_FORMAT_UCHAR)
                  .copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
        if (out.width() != to.width() || out.height() != to.height())
            out = out.embed(0, 0, to.width(), to.height(),
                            vips::VImage::option()->set("extend", VIPS_EXTEND_COPY));
        return out;
    } catch (const vips::VError& error) {
        qCWarning(lcCompression) << "resize failed:" << error.what();
        return image;
    }
}
