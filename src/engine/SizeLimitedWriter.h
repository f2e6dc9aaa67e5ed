#pragma once

#include <functional>
#include <limits>
#include <optional>

#include <vips/vips8>

#include <QByteArray>
#include <QList>
#include <QString>

#include "engine/CompressionSettings.h"
#include "engine/OutputFormat.h"

class OutputTarget;

/**
 * Encodes an image and writes it once, squeezed under the settings' size limit when one is set.
 *
 * - No limit: one encode at the mode's quality (1.0 for PNG).
 * - PNG with a limit: only the dimensions shrink, never the colours. A first scale estimated from
 *   the size (0.85 x sqrt(target / size), at least 0.05), then 0.8 and 0.7 times smaller steps
 *   down to 0.03, each from the unscaled input.
 * - JPEG, WebP and AVIF with a limit: a bisection over quality between 0.05 and the mode's
 *   quality (at most 12 rounds, down to a window of 0.005); when nothing fits, the same
 *   bisection at scales 0.8, 0.7 ... 0.2.
 *
 * Every candidate is encoded in memory and the bytes of the last attempt are written once
 * through the target. The limit is best effort: when even the smallest attempt is too large,
 * that attempt is written and counts as a success.
 * @code
 * SizeLimitedWriter writer(OutputFormat::Jpeg, settings);
 * const std::optional<QString> written = writer.write(image, target);
 * @endcode
 */
class SizeLimitedWriter final
{
public:
    /// One encode: the scale of the input it was made from, the quality, the encoded length
    /// (the largest qint64 when the encoder failed).
    struct Attempt
    {
        double scale = 1.0;
        double quality = 1.0;
        qint64 size = 0;

        bool encoded() const { return size != std::numeric_limits<qint64>::max(); }
    };
    /// Encodes an image at a quality (0...1); nothing on failure.
    using Encoder = std::function<std::optional<QByteArray>(const vips::VImage& image, double quality)>;

    /// The lowest quality the lossy search tries.
    static constexpr double kMinQuality = 0.05;

    SizeLimitedWriter(OutputFormat format, const CompressionSettings& settings);
    /// With another encoder than the format's own (tests observe the search through it).
    SizeLimitedWriter(OutputFormat format, const CompressionSettings& settings, Encoder encoder);

    /// Writes `image` under the first free name of `target`; the path written, or nothing.
    std::optional<QString> write(const vips::VImage& image, const OutputTarget& target);
    /// The bytes `write` would write, without writing them; nothing when the encoder failed.
    std::optional<QByteArray> encoded(const vips::VImage& image);

    /// Every encode of the last write, in order.
    const QList<Attempt>& attempts() const { return m_attempts; }

    /// `maxFileSizeKB` x 1024, saturated at the ends of qint64 instead of overflowing.
    static qint64 targetBytes(qint64 maxFileSizeKB);

private:
    struct Search
    {
        std::optional<double> best;
        std::optional<QByteArray> bestBytes;
    };

    std::optional<QByteArray> encode(const vips::VImage& image, double scale, double quality);
    std::optional<QByteArray> writePNG(const vips::VImage& image, qint64 target);
    std::optional<QByteArray> writeLossy(const vips::VImage& image, qint64 target);
    Search bisect(const vips::VImage& image, double scale, qint64 target);

    OutputFormat m_format;
    double m_quality;
    bool m_limited;
    qint64 m_maxFileSizeKB;
    Encoder m_encoder;
    QList<Attempt> m_attempts;
    /// What the output would hold now if every candidate were written in turn: the last
    /// successfully encoded attempt of the search.
    std::optional<QByteArray> m_last;
};
