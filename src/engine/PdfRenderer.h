#pragma once

#include <memory>
#include <mutex>
#include <optional>

#include <vips/vips8>

#include <QSizeF>

#include "engine/InputFile.h"

class PDFDoc;
class SplashOutputDev;

/**
 * A PDF parsed once from its bytes in memory, rendering any of its pages on request.
 *
 * Opening a document parses its cross-reference table and page tree; doing that once per input
 * instead of once per page keeps a long document linear in its page count. Pages are drawn over
 * their whole media box (the box a page is printed on), not only the crop box a viewer shows, on
 * opaque white. Renders of one document take turns (poppler's document is not safe to share
 * between threads); different documents render in parallel.
 * @code
 * const PdfRenderer pdf(InputFile::read(path));
 * for (int page = 0; page < pdf.pageCount(); ++page)
 *     if (const auto image = pdf.render(page, 2.0))
 *         image->write_to_file("page.png");
 * @endcode
 */
class PdfRenderer final
{
public:
    /// Parses `input` (a PDF already read into memory); the renderer keeps the bytes alive.
    explicit PdfRenderer(InputFile input);
    ~PdfRenderer();
    Q_DISABLE_COPY_MOVE(PdfRenderer)

    /// Number of pages; 0 when the bytes are not a PDF that opens.
    int pageCount() const { return m_pageCount; }
    /// Size of page `index` (zero-based) in points: its media box, turned by its rotation.
    std::optional<QSizeF> pageSize(int index) const;
    /**
     * Page `index` drawn at `scale` pixels per point onto white: 8-bit sRGB, 3 bands, exactly
     * `pageSize(index) * scale` truncated to whole pixels. Nothing when the page is missing,
     * broken, or larger than `maxPixels`, which is checked before any pixel is drawn.
     */
    std::optional<vips::VImage> render(int index, double scale, qint64 maxPixels) const;

private:
    InputFile m_input;
    std::unique_ptr<PDFDoc> m_document;
    std::unique_ptr<SplashOutputDev> m_output;
    int m_pageCount = 0;
    mutable std::mutex m_mutex;
};
