#include "engine/FormatEncoder.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <memory>

#include <avif/avif.h>
#include <glib.h>
#include <webp/encode.h>

#include <QThread>

#include "engine/JpegliEncoder.h"
#include "engine/OutputTarget.h"
#include "engine/PNGEncoder.h"
#include "engine/VipsRuntime.h"
#include "platform/Logging.h"

namespace {

const QString kJPEG = QStringLiteral("public.jpeg");
const QString kPNG = QStringLiteral("public.png");
const QString kWebP = QStringLiteral("webp");
const QString kAVIF = QStringLiteral("public.avif");

struct GFree
{
    void operator()(void* memory) const { g_free(memory); }
};
struct WebPBufferFree
{
    void operator()(uint8_t* buffer) const { WebPFree(buffer); }
};
struct AVIFEncoderDestroy
{
    void operator()(avifEncoder* encoder) const { avifEncoderDestroy(encoder); }
};
struct AVIFImageDestroy
{
    void operator()(avifImage* image) const { avifImageDestroy(image); }
};
struct AVIFRWDataFree
{
    void operator()(avifRWData* data) const { avifRWDataFree(data); }
};

/// The pixels as one packed buffer with exactly `bands` bands (3: RGB, 4: straight RGBA).
std::unique_ptr<uint8_t, GFree> packedPixels(vips::VImage image, int bands, size_t* length)
{
    if (bands == 4 && image.bands() == 3)
        image = image.bandjoin_const({255});
    else if (bands == 3 && image.bands() == 4)
        image = image.flatten(vips::VImage::option()->set("background", std::vector<double>{255, 255, 255}))
                    .cast(VIPS_FORMAT_UCHAR);
    return std::unique_ptr<uint8_t, GFree>(static_cast<uint8_t*>(image.write_to_memory(length)));
}

/// Quality -> AV1 quantizer, calibrated so that each mode's AVIF scores within 2 points of the same
/// mode's JPEG by mean SSIMULACRA2, on Kodak 01, 07, 13, 19 and two 1536x1024 crops of camera photos
/// (jolla, book-beside-flowers); aom speed 8, 4:4:4, 8 bits. Linear between rows. Measured (total
/// bytes, mean score; AVIF through avifenc with the same settings):
///
///   mode        JPEG bytes   JPEG score | quantizer  AVIF bytes        AVIF score
///   lossless    1,422,842    91.38      | 7          1,120,402 (0.79x) 89.60   (6: 1,218,201 90.52)
///   balanced      658,635    80.21      | 21           576,182 (0.87x) 78.62   (20: 595,202 79.41)
///   aggressive    468,166    71.63      | 28           413,103 (0.88x) 69.85   (27: 436,780 71.30)
///
/// Bytes at equal score against the former 4:2:0 (same speed, same set): 4:4:4 0.97x-0.98x for
/// 1.1x the time; speed 6 0.96x-0.97x for 1.8x-2x; speed 6 with 4:4:4 0.94x-0.96x for 2x-2.8x;
/// speed 7 1.00x-1.02x. 10-bit 4:4:4 at speed 8 gave 0.94x-0.96x for 1.3x the time, but such files
/// decode to 16 bits per sample, which the rest of the engine does not take as input yet.
/// "tune=ssim" changed no byte; "deltaq-mode=3" and "enable-chroma-deltaq=1" gained nothing;
/// "sharpness=2" and "enable-qm=1" cost 1.5 to 3 % more bytes at the same score.
/// At equal SSIMULACRA2 this AV1 encoder saves only 12 to 21 % over jpegli on these photos.
int avifQuantizer(double quality)
{
    struct Row
    {
        double quality;
        double quantizer;
    };
    constexpr std::array<Row, 5> rows{{{0.0, 63}, {0.65, 28}, {0.82, 21}, {1.0, 7}, {1.01, 7}}};
    const double q = std::clamp(quality, 0.0, 1.0);
    double quantizer = rows.back().quantizer;
    for (size_t i = 1; i < rows.size(); ++i) {
        if (q <= rows[i].quality) {
            const Row& a = rows[i - 1];
            const Row& b = rows[i];
            quantizer = a.quantizer + (b.quantizer - a.quantizer) * (q - a.quality) / (b.quality - a.quality);
            break;
        }
    }
    return std::clamp(static_cast<int>(std::lround(quantizer)), AVIF_QUANTIZER_BEST_QUALITY,
                      AVIF_QUANTIZER_WORST_QUALITY);
}

} // namespace

std::optional<QByteArray> FormatEncoder::encode(const vips::VImage& image, const QString& typeIdentifier,
                                                double quality, bool logFailure)
{
    if (!VipsRuntime::ensureStarted())
        return std::nullopt;
    const bool webp = typeIdentifier == kWebP;
    if (!webp && typeIdentifier != kJPEG && typeIdentifier != kPNG && typeIdentifier != kAVIF) {
        qCWarning(lcCompression).noquote()
            << QStringLiteral("CGImageDestinationCreateWithData failed uti=%1").arg(typeIdentifier);
        return std::nullopt;
    }
    std::optional<QByteArray> bytes;
    try {
        if (webp)
            bytes = encodeWebP(image, quality);
        else if (typeIdentifier == kJPEG)
            bytes = encodeJPEG(image, quality);
        else if (typeIdentifier == kPNG)
            bytes = encodePNG(image);
        else
            bytes = encodeAVIF(image, quality);
    } catch (const vips::VError& error) {
        qCDebug(lcCompression) << "encoder error:" << error.what();
        bytes.reset();
    }
    if (!bytes && !webp && logFailure) // the WebP library's failures go unlogged
        qCWarning(lcCompression) << "CGImageDestinationFinalize failed";
    return bytes;
}

bool FormatEncoder::writeEncoded(const vips::VImage& image, const QString& typeIdentifier,
                                 const QString& destination, double quality)
{
    const std::optional<QByteArray> bytes = encode(image, typeIdentifier, quality);
    return bytes && OutputTarget::exactly(destination).write(*bytes).has_value();
}

qint64 FormatEncoder::encodedPNGSize(const vips::VImage& image)
{
    const std::optional<QByteArray> bytes = encode(image, kPNG, 1.0);
    return bytes ? bytes->size() : std::numeric_limits<qint64>::max();
}

std::optional<QByteArray> FormatEncoder::encodeJPEG(const vips::VImage& image, double quality)
{
    return JpegliEncoder::encode(image, JpegliEncoder::settingsFor(quality));
}

std::optional<QByteArray> FormatEncoder::encodePNG(const vips::VImage& image)
{
    return PNGEncoder::encode(image);
}

std::optional<QByteArray> FormatEncoder::encodeWebP(const vips::VImage& image, double quality)
{
    const int width = image.width();
    const int height = image.height();
    const auto factor = static_cast<float>(quality * 100.0);
    uint8_t* output = nullptr;
    size_t size = 0;
    if ((image.bands() == 3 || image.bands() == 4) && image.format() == VIPS_FORMAT_UCHAR) {
        // The encoder takes straight RGBA; an opaque image gains an alpha band of 255, which
        // libwebp recognises as opaque and encodes without an alpha plane.
        const vips::VImage rgba = image.bands() == 4 ? image.copy_memory() // no copy when in memory
                                                     : image.bandjoin_const({255.0}).copy_memory();
        const auto* pixels = static_cast<const uint8_t*>(rgba.data());
        size = WebPEncodeRGBA(pixels, width, height, width * 4, factor, &output);
    } else {
        size_t length = 0;
        const auto pixels = packedPixels(image, 4, &length);
        if (!pixels || length != static_cast<size_t>(width) * height * 4)
            return std::nullopt;
        size = WebPEncodeRGBA(pixels.get(), width, height, width * 4, factor, &output);
    }
    const std::unique_ptr<uint8_t, WebPBufferFree> owned(output);
    if (size < 1 || !owned)
        return std::nullopt;
    return QByteArray(reinterpret_cast<const char*>(owned.get()), static_cast<qsizetype>(size));
}

std::optional<QByteArray> FormatEncoder::encodeAVIF(const vips::VImage& image, double quality)
{
    const bool alpha = image.bands() == 4;
    size_t length = 0;
    const auto pixels = packedPixels(image, alpha ? 4 : 3, &length);
    const auto width = static_cast<uint32_t>(image.width());
    const auto height = static_cast<uint32_t>(image.height());
    if (!pixels || length != size_t(width) * height * (alpha ? 4 : 3))
        return std::nullopt;

    const std::unique_ptr<avifImage, AVIFImageDestroy> avif(
        avifImageCreate(width, height, 8, AVIF_PIXEL_FORMAT_YUV444));
    if (!avif)
        return std::nullopt;
    // sRGB signalled in the stream itself, since no profile is written.
    avif->colorPrimaries = AVIF_COLOR_PRIMARIES_BT709;
    avif->transferCharacteristics = AVIF_TRANSFER_CHARACTERISTICS_SRGB;
    avif->matrixCoefficients = AVIF_MATRIX_COEFFICIENTS_BT601;
    avif->yuvRange = AVIF_RANGE_FULL;

    avifRGBImage rgb;
    avifRGBImageSetDefaults(&rgb, avif.get());
    rgb.format = alpha ? AVIF_RGB_FORMAT_RGBA : AVIF_RGB_FORMAT_RGB;
    rgb.depth = 8;
    rgb.pixels = pixels.get();
    rgb.rowBytes = width * (alpha ? 4 : 3);
    if (avifImageRGBToYUV(avif.get(), &rgb) != AVIF_RESULT_OK)
        return std::nullopt;

    const std::unique_ptr<avifEncoder, AVIFEncoderDestroy> encoder(avifEncoderCreate());
    if (!encoder)
        return std::nullopt;
    const int quantizer = avifQuantizer(quality);
    encoder->codecChoice = AVIF_CODEC_CHOICE_AOM;
    encoder->speed = kAVIFSpeed;
    encoder->maxThreads = std::max(1, QThread::idealThreadCount());
    encoder->minQuantizer = encoder->maxQuantizer = quantizer;
    encoder->minQuantizerAlpha = encoder->maxQuantizerAlpha = quantizer;

    avifRWData output = AVIF_DATA_EMPTY;
    const std::unique_ptr<avifRWData, AVIFRWDataFree> owned(&output);
    if (avifEncoderWrite(encoder.get(), avif.get(), &output) != AVIF_RESULT_OK || output.size == 0)
        return std::nullopt;
    return QByteArray(reinterpret_cast<const char*>(output.data), static_cast<qsizetype>(output.size));
}
