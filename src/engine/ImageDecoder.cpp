#include "engine/ImageDecoder.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

#include <lcms2.h>
#include <libraw/libraw.h>

#include <QFile>
#include <QFileInfo>
#include <QStringList>

#include "engine/InputFile.h"
#include "engine/LoaderWatch.h"
#include "engine/PdfRenderer.h"
#include "engine/VipsRuntime.h"
#include "platform/Logging.h"

namespace {

// Truncated or corrupt data is an error; libjpeg's harmless warnings (for example a few extra
// bytes after the image in many camera files) are not.
constexpr VipsFailOn kFailOn = VIPS_FAIL_ON_ERROR;

// One byte per eight sensor pixels: far below any real RAW encoding (lossless ones need
// roughly a byte per pixel), far above a file that holds only headers.
constexpr qint64 kMinRawPixelsPerByte = 8;

struct LibRawImageFree
{
    void operator()(libraw_processed_image_t* image) const { LibRaw::dcraw_clear_mem(image); }
};

// libvips' reference on the file's bytes lasts as long as the loaded image, and so do the
// pipelines that read it.
void releaseBlob(VipsImage*, gpointer blob)
{
    vips_area_unref(VIPS_AREA(blob));
}

/// The loader that the input's extension and first bytes agreed on, reading from memory.
vips::VImage load(const InputFile& input, vips::VOption* options)
{
    VipsBlob* blob = input.blob();
    switch (input.format()) {
    case InputFile::Format::Jpeg:
        return vips::VImage::jpegload_buffer(blob, options);
    case InputFile::Format::Png:
        return vips::VImage::pngload_buffer(blob, options);
    case InputFile::Format::Heif:
        return vips::VImage::heifload_buffer(blob, options);
    case InputFile::Format::Tiff:
        return vips::VImage::tiffload_buffer(blob, options);
    case InputFile::Format::Bmp:
        return vips::VImage::magickload_buffer(blob, options);
    case InputFile::Format::Gif:
        return vips::VImage::gifload_buffer(blob, options);
    case InputFile::Format::Webp:
        return vips::VImage::webpload_buffer(blob, options);
    case InputFile::Format::Pdf: // pages go through PdfRenderer
    case InputFile::Format::CameraRaw:
        break;
    }
    delete options;
    throw vips::VError("no image loader for this input");
}

vips::VImage loadLazily(const InputFile& input)
{
    // Read top to bottom, straight into the one in-memory copy or the one encoder reading it;
    // random access would make the loader decode into a buffer of its own first and double the
    // memory and the copying.
    vips::VImage image =
        load(input, vips::VImage::option()->set("fail_on", kFailOn)->set("access", VIPS_ACCESS_SEQUENTIAL));
    vips_area_copy(VIPS_AREA(input.blob()));
    g_signal_connect(image.get_image(), "postclose", G_CALLBACK(releaseBlob), input.blob());
    image = LoaderWatch::watched(image);
    // The first pixel is computed here, on the calling thread, so that a loader that cannot
    // decode the image at all (a HEIF whose codec gives up) fails before an encode is spent on it.
    // Later failures are the watch's to catch.
    VipsRegion* region = vips_region_new(image.get_image());
    const VipsRect first{0, 0, 1, 1};
    const int failed = vips_region_prepare(region, &first);
    g_object_unref(region);
    if (failed)
        throw vips::VError(); // the loader's message is in libvips' error buffer
    return image;
}

/// The text of a library failure, taken out of libvips' error buffer so that the next job's
/// log does not repeat it.
QString libraryError(const vips::VError& error)
{
    const QString text = QString::fromUtf8(error.what()).trimmed();
    vips_error_clear();
    return text;
}

quint32 bigEndian32(const uchar* p)
{
    return quint32(p[0]) << 24 | quint32(p[1]) << 16 | quint32(p[2]) << 8 | quint32(p[3]);
}

/// The profile's description tag ("desc": ASCII in version 2 profiles, UTF-16 in version 4).
QString profileDescription(const uchar* icc, size_t length)
{
    if (length < 132)
        return {};
    const quint32 tags = bigEndian32(icc + 128);
    for (quint32 i = 0; i < tags && 144 + 12 * size_t(i) <= length; ++i) {
        const uchar* entry = icc + 132 + 12 * size_t(i);
        if (std::memcmp(entry, "desc", 4) != 0)
            continue;
        const size_t offset = bigEndian32(entry + 4);
        const size_t size = bigEndian32(entry + 8);
        if (offset > length || size > length - offset || size < 12)
            return {};
        const uchar* tag = icc + offset;
        if (std::memcmp(tag, "desc", 4) == 0) {
            const size_t count = std::min<size_t>(bigEndian32(tag + 8), size - 12);
            return QString::fromLatin1(reinterpret_cast<const char*>(tag + 12), qsizetype(count))
                .remove(QChar(0));
        }
        if (std::memcmp(tag, "mluc", 4) == 0 && size >= 28) {
            const size_t textLength = bigEndian32(tag + 20);
            const size_t textOffset = bigEndian32(tag + 24);
            if (textOffset > size || textLength > size - textOffset)
                return {};
            QString text;
            for (size_t k = 0; k + 1 < textLength; k += 2)
                text.append(QChar(ushort(tag[textOffset + k] << 8 | tag[textOffset + k + 1])));
            return text.remove(QChar(0));
        }
        return {};
    }
    return {};
}

/**
 * Whether an RGB image's embedded profile is one of the common sRGB profiles. Converting those
 * to sRGB changes no pixel by more than rounding, yet costs a colour transform of every pixel
 * (a third of a large JPEG's compress time), so they are taken as they are.
 */
bool hasSRGBProfile(const vips::VImage& image)
{
    const VipsInterpretation interpretation = image.interpretation();
    if (image.bands() < 3 || image.bands() > 4 ||
        (interpretation != VIPS_INTERPRETATION_sRGB && interpretation != VIPS_INTERPRETATION_RGB16))
        return false;
    size_t length = 0;
    const auto* icc = static_cast<const uchar*>(image.get_blob(VIPS_META_ICC_NAME, &length));
    static const QStringList kSRGB = {QStringLiteral("sRGB IEC61966-2.1"),
                                      QStringLiteral("sRGB IEC61966-2-1 black scaled"),
                                      QStringLiteral("sRGB IEC61966-2-1 no black scaling"),
                                      QStringLiteral("sRGB built-in"), QStringLiteral("sRGB")};
    return kSRGB.contains(profileDescription(icc, length).trimmed());
}

/**
 * The rendering intent to convert the image's profile with: perceptual, as colour-managed viewers
 * do, or the first other intent the profile holds. libvips only warns about an intent the profile
 * lacks and converts anyway, through the wrong table (a perceptual-only profile turns green).
 */
VipsIntent supportedIntent(const vips::VImage& image)
{
    size_t length = 0;
    const void* icc = image.get_blob(VIPS_META_ICC_NAME, &length);
    const cmsHPROFILE profile = cmsOpenProfileFromMem(icc, cmsUInt32Number(length));
    if (!profile)
        return VIPS_INTENT_PERCEPTUAL;
    VipsIntent chosen = VIPS_INTENT_PERCEPTUAL;
    for (const VipsIntent intent :
         {VIPS_INTENT_PERCEPTUAL, VIPS_INTENT_RELATIVE, VIPS_INTENT_SATURATION, VIPS_INTENT_ABSOLUTE}) {
        // libvips' intents are lcms's numbers.
        if (cmsIsIntentSupported(profile, cmsUInt32Number(intent), LCMS_USED_AS_INPUT)) {
            chosen = intent;
            break;
        }
    }
    cmsCloseProfile(profile);
    return chosen;
}

} // namespace

bool ImageDecoder::fitsPixelLimit(qint64 width, qint64 height)
{
    return width > 0 && height > 0 && width * height <= kMaxPixels;
}

bool ImageDecoder::isCameraRaw(const QString& path)
{
    return InputFile::formatForExtension(path) == InputFile::Format::CameraRaw;
}

std::optional<vips::VImage> ImageDecoder::decode(const QString& path)
{
    return decode(InputFile::read(path));
}

std::optional<vips::VImage> ImageDecoder::decodeLazily(const QString& path)
{
    return decodeLazily(InputFile::read(path));
}

std::optional<vips::VImage> ImageDecoder::decode(const InputFile& input)
{
    std::optional<vips::VImage> image = decodeLazily(input);
    if (!image)
        return std::nullopt;
    try {
        const vips::VImage pixels = image->copy_memory();
        if (LoaderWatch::failed(pixels))
            throw vips::VError(); // the loader's message is in libvips' error buffer
        return pixels;
    } catch (const vips::VError& error) {
        qCDebug(lcCompression).noquote() << "decode error:" << libraryError(error);
        return std::nullopt;
    }
}

std::optional<vips::VImage> ImageDecoder::decodeLazily(const InputFile& input)
{
    if (!input.isValid() || input.format() == InputFile::Format::Pdf || !VipsRuntime::ensureStarted())
        return std::nullopt;
    if (input.format() == InputFile::Format::CameraRaw)
        return decodeCameraRaw(input);
    try {
        vips::VImage image = loadLazily(input);
        if (!fitsPixelLimit(image.width(), image.height())) {
            qCWarning(lcCompression) << "refused" << image.width() << "x" << image.height() << "pixels";
            return std::nullopt;
        }
        // Turning the image reads it out of order, so a turned image is decoded into memory first.
        if (vips_image_get_orientation(image.get_image()) > 1) {
            image = image.copy_memory();
            if (LoaderWatch::failed(image))
                throw vips::VError();
            image = image.autorot();
        }
        return toSRGB8(image);
    } catch (const vips::VError& error) {
        qCDebug(lcCompression).noquote() << "decode error:" << libraryError(error);
        return std::nullopt;
    }
}

vips::VImage ImageDecoder::toSRGB8(vips::VImage image)
{
    // Colour and alpha are converted apart: a colour transform scales only the colour bands, and
    // an alpha left in 16-bit units would clip to opaque when cast to 8 bits.
    // Packed pixels (LabQ in TIFF, Radiance) are unpacked before their bands mean anything.
    if (image.coding() == VIPS_CODING_LABQ)
        image = image.LabQ2Lab();
    else if (image.coding() == VIPS_CODING_RAD)
        image = image.rad2float();
    std::optional<vips::VImage> alpha;
    const double alphaMax = image.format() == VIPS_FORMAT_USHORT ? 65535.0 : 255.0;
    if (image.has_alpha()) {
        alpha = image.extract_band(image.bands() - 1);
        vips::VImage colour = image.extract_band(0, vips::VImage::option()->set("n", image.bands() - 1));
        image = colour.copy(vips::VImage::option()->set("interpretation", image.interpretation()));
    }

    bool transformed = false;
    if (image.get_typeof(VIPS_META_ICC_NAME) != 0 && !hasSRGBProfile(image)) {
        try {
            image = image.icc_transform("srgb", vips::VImage::option()
                                                    ->set("embedded", true)
                                                    ->set("depth", 8)
                                                    ->set("intent", supportedIntent(image)));
            transformed = true;
        } catch (const vips::VError&) {
            vips_error_clear();
        }
        // A profile that does not fit the pixels (or is damaged) is ignored, as if absent.
        if (!transformed)
            image.remove(VIPS_META_ICC_NAME);
    }
    if (!transformed && image.interpretation() != VIPS_INTERPRETATION_sRGB) {
        try {
            image = image.colourspace(VIPS_INTERPRETATION_sRGB);
        } catch (const vips::VError&) {
            vips_error_clear(); // multiband, histogram...: keep the numbers as they are
        }
    }
    if (image.format() != VIPS_FORMAT_UCHAR)
        image = image.cast(VIPS_FORMAT_UCHAR,
                           vips::VImage::option()->set("shift", image.format() == VIPS_FORMAT_USHORT));

    if (image.bands() < 3) {
        const vips::VImage grey = image.extract_band(0);
        image = vips::VImage::bandjoin({grey, grey, grey});
    } else if (image.bands() > 3) {
        image = image.extract_band(0, vips::VImage::option()->set("n", 3));
    }
    if (alpha) {
        vips::VImage alpha8 = *alpha;
        if (alphaMax != 255.0)
            alpha8 = alpha8 * (255.0 / alphaMax);
        image = image.bandjoin(alpha8.cast(VIPS_FORMAT_UCHAR));
    }
    image = image.copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
    // Outputs carry no metadata, and a blob a loader owns (a HEIF profile, say) can be freed with
    // the loader while a copy of this image still points at it.
    gchar** fields = vips_image_get_fields(image.get_image());
    for (gchar** field = fields; *field; ++field) {
        if (image.get_typeof(*field) == VIPS_TYPE_BLOB)
            image.remove(*field);
    }
    g_strfreev(fields);
    return image;
}

std::optional<vips::VImage> ImageDecoder::decodeCameraRaw(const InputFile& input)
{
    // LibRaw's processor holds large tables; keep it off the stack.
    auto processor = std::make_unique<LibRaw>();
    if (processor->open_buffer(const_cast<void*>(input.data()), input.size()) != LIBRAW_SUCCESS)
        return std::nullopt;
    const libraw_image_sizes_t& sizes = processor->imgdata.sizes;
    if (!fitsPixelLimit(sizes.raw_width, sizes.raw_height) || !fitsPixelLimit(sizes.width, sizes.height))
        return std::nullopt;
    // Sensor data takes several bits per pixel even when compressed. A file far smaller than
    // that holds only its headers (the data stripped or cut off), and LibRaw would happily
    // "decode" the missing part as noise.
    const qint64 sensorPixels = qint64(sizes.raw_width) * sizes.raw_height;
    if (qint64(input.size()) < sensorPixels / kMinRawPixelsPerByte)
        return std::nullopt;
    bool dataError = false;
    processor->set_dataerror_handler([](void* flag, const char*, int) { *static_cast<bool*>(flag) = true; },
                                     &dataError);

    libraw_output_params_t& params = processor->imgdata.params;
    params.output_bps = 8;
    params.output_color = 1; // sRGB
    params.use_camera_wb = 1;
    if (processor->unpack() != LIBRAW_SUCCESS || dataError || processor->dcraw_process() != LIBRAW_SUCCESS)
        return std::nullopt;

    int status = LIBRAW_SUCCESS;
    const std::unique_ptr<libraw_processed_image_t, LibRawImageFree> bitmap(
        processor->dcraw_make_mem_image(&status));
    if (!bitmap || status != LIBRAW_SUCCESS || bitmap->type != LIBRAW_IMAGE_BITMAP || bitmap->bits != 8 ||
        (bitmap->colors != 3 && bitmap->colors != 1))
        return std::nullopt;
    try {
        const vips::VImage wrapped =
            vips::VImage::new_from_memory(bitmap->data, bitmap->data_size, bitmap->width, bitmap->height,
                                          bitmap->colors, VIPS_FORMAT_UCHAR);
        // The wrapper borrows LibRaw's buffer; copy before it is freed.
        return toSRGB8(wrapped).copy_memory();
    } catch (const vips::VError& error) {
        qCDebug(lcCompression).noquote() << "raw decode error:" << libraryError(error);
        return std::nullopt;
    }
}

qint64 ImageDecoder::estimatedDecodedBytes(const QString& path)
{
    constexpr qint64 kCopies = 2;
    // LibRaw works on four 16-bit samples per pixel before it hands over 8-bit RGB.
    constexpr qint64 kRawWorkingBytesPerPixel = 8;
    if (!VipsRuntime::ensureStarted())
        return 0;
    // The same safe read as the decode: a FIFO or a misnamed file is refused here too.
    const InputFile input = InputFile::read(path);
    if (!input.isValid())
        return 0;
    if (input.format() == InputFile::Format::CameraRaw) {
        auto processor = std::make_unique<LibRaw>();
        if (processor->open_buffer(const_cast<void*>(input.data()), input.size()) != LIBRAW_SUCCESS)
            return 0;
        const libraw_image_sizes_t& sizes = processor->imgdata.sizes;
        if (!fitsPixelLimit(sizes.raw_width, sizes.raw_height) || !fitsPixelLimit(sizes.width, sizes.height))
            return 0;
        const qint64 pixels = qint64(sizes.width) * sizes.height;
        return pixels * kRawWorkingBytesPerPixel + pixels * 3 * kCopies;
    }
    if (input.format() == InputFile::Format::Pdf) {
        PdfDocument document;
        document.input = input;
        document.renderer = std::make_shared<const PdfRenderer>(input);
        document.pageCount = document.renderer->pageCount();
        return estimatedDecodedBytes(document);
    }
    try {
        const vips::VImage header = loadLazily(input);
        if (!fitsPixelLimit(header.width(), header.height()))
            return 0;
        return qint64(header.width()) * header.height() * header.bands() *
               qint64(vips_format_sizeof(header.format())) * kCopies;
    } catch (const vips::VError& error) {
        libraryError(error);
        return 0;
    }
}

qint64 ImageDecoder::estimatedDecodedBytes(const PdfDocument& document)
{
    // Poppler draws into RGB plus an alpha plane, then the page is encoded from that bitmap.
    constexpr qint64 kBitmapBytesPerPixel = 4;
    constexpr qint64 kCopies = 2;
    if (!document.renderer || document.pageCount < 1)
        return 0;
    const std::optional<QSizeF> size = document.renderer->pageSize(0);
    if (!size)
        return 0;
    const double width = std::floor(size->width() * kPDFScale);
    const double height = std::floor(size->height() * kPDFScale);
    if (width < 1 || height < 1 || width * height > double(kMaxPixels))
        return 0;
    return qint64(width) * qint64(height) * kBitmapBytesPerPixel * kCopies;
}

ImageDecoder::PdfDocument ImageDecoder::openPDF(const QString& path)
{
    PdfDocument document;
    document.input = InputFile::read(path);
    if (!document.input.isValid() || document.input.format() != InputFile::Format::Pdf ||
        !VipsRuntime::ensureStarted())
        return document;
    document.renderer = std::make_shared<const PdfRenderer>(document.input);
    document.pageCount = document.renderer->pageCount();
    return document;
}

int ImageDecoder::pdfPageCount(const QString& path)
{
    return openPDF(path).pageCount;
}

int ImageDecoder::pageCountOf(const vips::VImage& page)
{
    return page.get_typeof("n-pages") != 0 ? std::max(page.get_int("n-pages"), 1) : 1;
}

std::optional<vips::VImage> ImageDecoder::renderPDFPage(const QString& path, int pageIndex)
{
    return renderPDFPage(openPDF(path), pageIndex);
}

std::optional<vips::VImage> ImageDecoder::renderPDFPage(const PdfDocument& document, int pageIndex)
{
    if (!document.renderer || pageIndex < 0 || pageIndex >= document.pageCount)
        return std::nullopt;
    try {
        // Drawn at twice the media box, truncated to whole pixels, on white.
        std::optional<vips::VImage> page = document.renderer->render(pageIndex, kPDFScale, kMaxPixels);
        if (!page) {
            qCDebug(lcCompression).noquote() << "pdf render error: page" << pageIndex + 1;
            return std::nullopt;
        }
        page->set("n-pages", document.pageCount);
        return page;
    } catch (const vips::VError& error) {
        qCDebug(lcCompression).noquote() << "pdf render error:" << libraryError(error);
        return std::nullopt;
    }
}
