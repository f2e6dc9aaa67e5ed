#pragma once

#include <memory>
#include <optional>

#include <vips/vips8>

#include <QString>

#include "engine/InputFile.h"

class PdfRenderer;

/**
 * Turns an input file into one 8-bit sRGB image (3 bands, or 4 with alpha), in memory or as a
 * pipeline that decodes while it is read.
 *
 * The file is read whole into memory first (`InputFile`) and decoded from there by the one
 * loader its extension and first bytes agree on. Only the first page or frame is read. EXIF
 * orientation is applied and an embedded colour profile converted to sRGB (no profile: taken as
 * sRGB); alpha keeps its meaning at every depth. The decoded image carries no metadata blobs. The
 * header is checked against `kMaxPixels` before any pixel is decoded, so a small file that
 * claims a huge canvas cannot exhaust memory. Camera RAW goes through LibRaw, PDF pages through
 * poppler. Nothing throws; a file that cannot be decoded gives nothing.
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
    /// PDF pages are rendered at twice their media box, truncated to whole pixels.
    static constexpr double kPDFScale = 2.0;

    /// A PDF read and parsed once, for rendering any number of its pages.
    struct PdfDocument
    {
        InputFile input;
        /// 0 when the file is not a PDF that opens.
        int pageCount = 0;
        std::shared_ptr<const PdfRenderer> renderer;
    };

    /// The first frame of an image file, decoded into memory, or nothing.
    static std::optional<vips::VImage> decode(const QString& path);
    static std::optional<vips::VImage> decode(const InputFile& input);
    /**
     * The same image as `decode` as a pipeline that decodes while a consumer reads it, so one
     * encode needs no full copy of the pixels in memory. It may be read once, top to bottom;
     * decoding errors surface in the consumer (a truncated file opens fine here), which asks
     * `LoaderWatch::failed` afterwards, as libvips may drop them. The pixel
     * limit is still checked from the header. A turned image is decoded into memory before
     * turning, as `decode` does. The file's bytes stay in memory while the pipeline lives.
     */
    static std::optional<vips::VImage> decodeLazily(const QString& path);
    static std::optional<vips::VImage> decodeLazily(const InputFile& input);

    /// Reads a PDF once and counts its pages.
    static PdfDocument openPDF(const QString& path);
    /// Number of pages of a PDF; 0 when it cannot be opened.
    static int pdfPageCount(const QString& path);
    /// Page `pageIndex` (zero-based) rendered at `kPDFScale` onto opaque white, 3 bands; it
    /// carries the document's page count (`pageCountOf`).
    static std::optional<vips::VImage> renderPDFPage(const PdfDocument& document, int pageIndex);
    static std::optional<vips::VImage> renderPDFPage(const QString& path, int pageIndex);
    /// Page count of the PDF a rendered page came from.
    static int pageCountOf(const vips::VImage& page);

    /**
     * Memory that decoding `path` may take, from its header alone (a PDF: its first page at
     * `kPDFScale`): the decoded pixels twice over, for the working copy that a scaled, turned or
     * converted image or an encoder's own input buffer takes beside them. 0 when the header cannot
     * be read or is over `kMaxPixels`: such a file is refused before any pixel is decoded.
     */
    static qint64 estimatedDecodedBytes(const QString& path);
    /// The same for a page of an open PDF (its first page's size).
    static qint64 estimatedDecodedBytes(const PdfDocument& document);

    /// Whether the extension names a camera RAW format decoded through LibRaw.
    static bool isCameraRaw(const QString& path);

    /// Converts any decoded image to 8-bit sRGB with 3 bands, or 4 when it has alpha, without
    /// metadata blobs.
    static vips::VImage toSRGB8(vips::VImage image);

private:
    static std::optional<vips::VImage> decodeCameraRaw(const InputFile& input);
    static bool fitsPixelLimit(qint64 width, qint64 height);
};
