#include "engine/PdfRenderer.h"

#include <algorithm>
#include <cmath>

#include <GlobalParams.h>
#include <PDFDoc.h>
#include <Page.h>
#include <SplashOutputDev.h>
#include <Stream.h>
#include <goo/gmem.h>
#include <splash/SplashBitmap.h>

#include "platform/Logging.h"

namespace {

// Poppler reports every syntax problem of a damaged file; the job's result already says that it
// failed, so these only matter when debugging.
void logPopplerError(ErrorCategory, Goffset, const char* message)
{
    qCDebug(lcCompression).noquote() << "pdf:" << message;
}

void startPoppler()
{
    static std::once_flag once;
    std::call_once(once, [] {
        if (!globalParams)
            globalParams = std::make_unique<GlobalParams>();
        setErrorCallback(logPopplerError);
    });
}

void freePixels(VipsImage*, gpointer pixels)
{
    gfree(pixels);
}

} // namespace

PdfRenderer::PdfRenderer(InputFile input) : m_input(std::move(input))
{
    if (!m_input.isValid() || m_input.format() != InputFile::Format::Pdf)
        return;
    startPoppler();
    // The stream borrows the bytes; m_input outlives the document that owns the stream.
    auto* stream =
        new MemStream(static_cast<const char*>(m_input.data()), 0, Goffset(m_input.size()), Object(objNull));
    m_document = std::make_unique<PDFDoc>(stream);
    if (!m_document->isOk()) {
        m_document.reset();
        return;
    }
    m_pageCount = std::max(m_document->getNumPages(), 0);
    SplashColor white = {255, 255, 255, 255};
    // Rows without padding, so the bitmap is a plain packed image.
    m_output = std::make_unique<SplashOutputDev>(splashModeRGB8, 1, false, white);
    m_output->setFontAntialias(true);
    m_output->setVectorAntialias(true);
    m_output->startDoc(m_document.get());
}

PdfRenderer::~PdfRenderer() = default;

std::optional<QSizeF> PdfRenderer::pageSize(int index) const
{
    const std::lock_guard lock(m_mutex);
    if (!m_document || index < 0 || index >= m_pageCount)
        return std::nullopt;
    const Page* page = m_document->getPage(index + 1);
    if (!page)
        return std::nullopt;
    QSizeF size(page->getMediaWidth(), page->getMediaHeight());
    if (page->getRotate() % 180 != 0)
        size.transpose();
    if (!(size.width() > 0 && size.height() > 0))
        return std::nullopt;
    return size;
}

std::optional<vips::VImage> PdfRenderer::render(int index, double scale, qint64 maxPixels) const
{
    const std::optional<QSizeF> size = pageSize(index);
    if (!size)
        return std::nullopt;
    const double exactWidth = std::floor(size->width() * scale);
    const double exactHeight = std::floor(size->height() * scale);
    if (exactWidth < 1 || exactHeight < 1 || exactWidth * exactHeight > double(maxPixels))
        return std::nullopt;
    const int width = int(exactWidth);
    const int height = int(exactHeight);

    SplashColorPtr pixels = nullptr;
    {
        const std::lock_guard lock(m_mutex);
        const double dpi = 72.0 * scale;
        // The media box, not clipped to the crop box, drawn into a bitmap of exactly the size
        // wanted (a slice from the top left corner).
        m_document->displayPageSlice(m_output.get(), index + 1, dpi, dpi, 0, true, false, false, 0, 0, width,
                                     height);
        const std::unique_ptr<SplashBitmap> bitmap(m_output->takeBitmap());
        // Splash falls back to a 1 x 1 bitmap when it cannot allocate the page.
        if (!bitmap || bitmap->getWidth() != width || bitmap->getHeight() != height ||
            bitmap->getRowSize() != width * 3)
            return std::nullopt;
        // The colour rows only; the bitmap's alpha plane (a quarter more) goes now.
        pixels = bitmap->takeData();
    }
    if (!pixels)
        return std::nullopt;
    try {
        vips::VImage page = vips::VImage::new_from_memory(pixels, size_t(width) * size_t(height) * 3, width,
                                                          height, 3, VIPS_FORMAT_UCHAR);
        // The image owns the pixels from here on; they live as long as any view of them.
        g_signal_connect(page.get_image(), "postclose", G_CALLBACK(freePixels), pixels);
        return page;
    } catch (const vips::VError&) {
        gfree(pixels);
        throw;
    }
}
