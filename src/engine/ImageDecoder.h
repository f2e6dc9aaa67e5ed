#pragma once

#include <optional>

#include <vips/vips8>

#include <QString>

/**
 * Turns an input file into one 8-bit sRGB image (3 bands, or 4 with alpha), in memory or as a
 * pipeline that decodes while it is read.
 *
 * Only the first page or frame is read. EXIF orientation is applied and an embedded colour
 * profile converted to sRGB (no profile: taken as sRGB). The header is checked against
 * `kMaxPixels` before any pixel is decoded, so a small file that claims a huge canvas cannot
 * exhaust memory. Camera RAW goes through LibRaw, PDF pages through poppler.
 * Nothing throws; a file that cannot be decoded gives nothing.
 * @code
 * if (const auto image = ImageDecoder::decode(QStringLiteral("/tmp/a.heic")))
 *     qDebug() << image->width() << image->height();
 * @endcode
 */
class ImageDecoder final
{
public:
    /// Largest accepted canvas, width x height (a 16384 x 16384 image).
    static constexpr qint64 kMaxPixels = 268'435'456;
    /// PDF pages are rendered at twice their size in points.
    static constexpr double kPDFScale = 2.0;

    /// The first frame of an image file, decoded into memory, or nothing.
    static std::optional<vips::VImage> decode(const QString& path);
    /**
     * The same image as `decode` as a pipeline that decodes while a consumer reads it, so one
     * encode needs no full copy of the pixels in memory. It may be read once, top to bottom;
     * decoding errors surface in the consumer (a truncated file opens fine here). The pixel
     * limit is still checked from the header. A turned image is decoded into memory before
     * turning, as `decode` does.
     */
    static std::optional<vips::VImage> decodeLazily(const QString& path);

    /// Number of pages of a PDF; 0 when it cannot be opened.
    static int pdfPageCount(const QString& path);
    /// Page `pageIndex` (zero-based) rendered at `kPDFScale` onto opaque white, 3 bands.
    static std::optional<vips::VImage> renderPDFPage(const QString& path, int pageIndex);
    /// Page count of the PDF a rendered page came from, without opening the document again.
    static int pageCountOf(const vips::VImage& page);

    /**
     * Memory that decoding `path` may take, from its header alone (a PDF: its first page at
     * `kPDFScale`): the decoded pixels twice over, for the working copy that a scaled, turned or
     * converted image or an encoder's own input buffer takes beside them. 0 when the header cannot
     * be read or is over `kMaxPixels`: such a file is refused before any pixel is decoded.
     */
    static qint64 estimatedDecodedBytes(const QString& path);

    /// Whether the extension names a camera RAW format decoded through LibRaw.
    static bool isCameraRaw(const QString& path);

    /// Converts any decoded image to 8-bit sRGB with 3 bands, or 4 when it has alpha.
    static vips::VImage toSRGB8(vips::VImage image);

private:
    static std::optional<vips::VImage> decodeCameraRaw(const QString& path);
    static bool fitsPixelLimit(qint64 width, qint64 height);
};
