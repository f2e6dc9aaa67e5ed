#pragma once

#include <optional>

#include <vips/vips8>

#include <QByteArray>
#include <QString>

/**
 * Encodes an 8-bit sRGB image (3 or 4 bands) as JPEG, PNG, WebP or AVIF, with no metadata.
 *
 * The type identifier is an output format's: "public.jpeg", "public.png", "webp" or
 * "public.avif". Quality is a fraction 0...1 and maps onto each codec's own scale:
 * - JPEG: jpegli (see JpegliEncoder::settingsFor for the mapping), 4:2:0 chroma below 0.9.
 * - PNG: lossless whatever the quality; reduced losslessly and deflated by `PNGEncoder`.
 * - WebP: lossy, the library's default configuration, quality factor quality x 100.
 * - AVIF: AV1 quantizer for colour and alpha (0 finest, 63 coarsest) calibrated per mode to
 *   match the JPEG of the same mode by SSIMULACRA2 (1.0: 7, 0.82: 21, 0.65: 28, linear between);
 *   4:4:4 chroma at every quality (smaller than 4:2:0 at the same score).
 * JPEG has no alpha: transparent pixels are flattened onto white. WebP receives straight
 * (not premultiplied) RGBA, or RGB for an opaque image.
 * @code
 * const auto bytes = FormatEncoder::encode(image, QStringLiteral("public.jpeg"), 0.8);
 * @endcode
 */
class FormatEncoder final
{
public:
    /**
     * AV1 encoder speed (0 slowest ... 10 fastest) for every AVIF encode, chosen by measurement
     * (bench/run) against avifenc at its default speed 6 on 8 and 12 MP photos, on 2 cores: speed 8
     * took about 0.4x avifenc's time for 1.04x and 1.00x its bytes at equal SSIM. At equal
     * SSIMULACRA2 on single-threaded encodes, speed 6 saved 3 to 6 % of the bytes for 1.8x to 2.8x
     * the time, speed 7 saved nothing, speed 9 cost 8 to 9 % more bytes. Two tile columns did not
     * help on 2 cores.
     */
    static constexpr int kAVIFSpeed = 8;

    /// The encoded file's bytes; nothing when the encoder fails or the identifier is unknown.
    /// A failure is logged unless `logFailure` is false (an attempt that may fail for its input).
    static std::optional<QByteArray> encode(const vips::VImage& image, const QString& typeIdentifier,
                                            double quality, bool logFailure = true);

    /// Encodes and writes a new file at `destination` (never replacing one); false on failure.
    static bool writeEncoded(const vips::VImage& image, const QString& typeIdentifier,
                             const QString& destination, double quality);

    /// Byte length of the image as PNG; the largest qint64 when encoding fails.
    static qint64 encodedPNGSize(const vips::VImage& image);

private:
    static std::optional<QByteArray> encodeJPEG(const vips::VImage& image, double quality);
    static std::optional<QByteArray> encodePNG(const vips::VImage& image);
    static std::optional<QByteArray> encodeWebP(const vips::VImage& image, double quality);
    static std::optional<QByteArray> encodeAVIF(const vips::VImage& image, double quality);
};
