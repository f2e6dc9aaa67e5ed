#pragma once

#include <vips/vips8>

#include <QSize>

/**
 * Scales an image down so that its longest edge fits a limit; never scales up.
 * @code
 * ImageScaler::scaledSize({4000, 3000}, 2048); // 2048 x 1536
 * @endcode
 */
class ImageScaler final
{
public:
    /**
     * The size after fitting `maxEdge`: s = maxEdge / longest edge, each side truncated from
     * s x side. Unchanged when the longest edge is not above `maxEdge` (or `maxEdge` < 1).
     */
    static QSize scaledSize(QSize size, qint64 maxEdge);

    /// `image` resampled (Lanczos, alpha premultiplied around it) to `scaledSize` in memory;
    /// unchanged when no scaling is needed, a side would truncate to zero, or it fails.
    static vips::VImage resize(const vips::VImage& image, qint64 maxEdge);
    /// The same as a pipeline that resamples while a consumer reads it (for a single read, such
    /// as one encode); errors while resampling surface in the consumer.
    static vips::VImage resizeLazily(const vips::VImage& image, qint64 maxEdge);
};
