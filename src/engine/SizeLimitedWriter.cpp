#include "engine/SizeLimitedWriter.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "engine/CompressionMode.h"
#include "engine/FormatEncoder.h"
#include "engine/ImageScaler.h"
#include "engine/OutputTarget.h"
#include "platform/Logging.h"

namespace {

constexpr int kMaxRounds = 12;
constexpr double kWindow = 0.005;
constexpr double kPNGFirstScaleFloor = 0.05;
constexpr double kPNGScaleFloor = 0.03;
constexpr qint64 kUnknownSize = std::numeric_limits<qint64>::max();

qint64 longestEdge(const vips::VImage& image)
{
    return std::max(image.width(), image.height());
}

/// The input resampled so that its longest edge is trunc(scale x its longest edge).
vips::VImage scaled(const vips::VImage& input, double scale)
{
    return ImageScaler::resize(input, static_cast<qint64>(scale * static_cast<double>(longestEdge(input))));
}

SizeLimitedWriter::Encoder formatEncoder(OutputFormat format)
{
    return [uti = OutputFormats::typeIdentifier(format)](const vips::VImage& image, double quality) {
        return FormatEncoder::encode(image, uti, quality);
    };
}

} // namespace

SizeLimitedWriter::SizeLimitedWriter(OutputFormat format, const CompressionSettings& settings)
    : SizeLimitedWriter(format, settings, formatEncoder(format))
{
}

SizeLimitedWriter::SizeLimitedWriter(OutputFormat format, const CompressionSettings& settings,
                                     Encoder encoder)
    : m_format(format),
      m_quality(format == OutputFormat::Png ? 1.0
                                            : CompressionModes::quality(settings.compressionMode, format)),
      m_limited(settings.limitOutputFileSize), m_maxFileSizeKB(settings.maxFileSizeKB),
      m_encoder(std::move(encoder))
{
}

qint64 SizeLimitedWriter::targetBytes(qint64 maxFileSizeKB)
{
    constexpr qint64 kMax = std::numeric_limits<qint64>::max();
    constexpr qint64 kMin = std::numeric_limits<qint64>::min();
    if (maxFileSizeKB > kMax / 1024)
        return kMax;
    if (maxFileSizeKB < kMin / 1024)
        return kMin;
    return maxFileSizeKB * 1024;
}

std::optional<QString> SizeLimitedWriter::write(const vips::VImage& image, const OutputTarget& target)
{
    const std::optional<QByteArray> bytes = encoded(image);
    if (!bytes)
        return std::nullopt;
    return target.write(*bytes);
}

std::optional<QByteArray> SizeLimitedWriter::encoded(const vips::VImage& image)
{
    m_attempts.clear();
    m_last.reset();
    if (!m_limited)
        return encode(image, 1.0, m_quality);
    if (m_format == OutputFormat::Png)
        return writePNG(image, targetBytes(m_maxFileSizeKB));
    return writeLossy(image, targetBytes(m_maxFileSizeKB));
}

std::optional<QByteArray> SizeLimitedWriter::encode(const vips::VImage& image, double scale, double quality)
{
    std::optional<QByteArray> bytes = m_encoder(image, quality);
    m_attempts.append({scale, quality, bytes ? static_cast<qint64>(bytes->size()) : kUnknownSize});
    return bytes;
}

std::optional<QByteArray> SizeLimitedWriter::writePNG(const vips::VImage& image, qint64 target)
{
    std::optional<QByteArray> bytes = encode(image, 1.0, 1.0);
    const qint64 encoded = m_attempts.last().size;
    qCDebug(lcCompression).noquote()
        << QStringLiteral("PNG size limit: encoded=%1 target=%2").arg(encoded).arg(target);

    qint64 size = encoded;
    vips::VImage chosen = image;
    if (encoded > target) {
        // A negative target (a negative stored limit) fits nothing; go straight to the floor.
        const double ratio = static_cast<double>(std::max<qint64>(target, 0)) / static_cast<double>(encoded);
        double scale = std::max(0.85 * std::sqrt(ratio), kPNGFirstScaleFloor);
        chosen = scaled(image, scale);
        bytes = encode(chosen, scale, 1.0);
        size = m_attempts.last().size;
        qCDebug(lcCompression).noquote()
            << QStringLiteral("PNG after scale %1: size=%2").arg(scale, 0, 'f', 2).arg(size);
        scale *= 0.8;
        // Always from the unscaled input, so resampling errors do not pile up.
        while (size > target && scale >= kPNGScaleFloor) {
            chosen = scaled(image, scale);
            bytes = encode(chosen, scale, 1.0);
            size = m_attempts.last().size;
            if (size <= target)
                break;
            scale *= 0.7;
        }
    }
    qCDebug(lcCompression).noquote() << QStringLiteral("PNG writing final size=%1").arg(size);
    if (!bytes) // the chosen candidate failed to encode; writing it means trying once more
        bytes = encode(chosen, m_attempts.last().scale, 1.0);
    return bytes;
}

std::optional<QByteArray> SizeLimitedWriter::writeLossy(const vips::VImage& image, qint64 target)
{
    const Search full = bisect(image, 1.0, target);
    if (full.bestBytes)
        return full.bestBytes;
    if (std::optional<QByteArray> floor = encode(image, 1.0, kMinQuality))
        m_last = std::move(floor);

    // Decreasing by repeated subtraction, so the scales are exactly 0.8, 0.7000000000000001 ...
    for (double f = 0.8; f >= 0.2; f -= 0.1) {
        const vips::VImage smaller = scaled(image, f);
        const Search search = bisect(smaller, f, target);
        if (search.bestBytes)
            return search.bestBytes;
        if (std::optional<QByteArray> floor = encode(smaller, f, kMinQuality))
            m_last = std::move(floor);
    }
    return m_last;
}

SizeLimitedWriter::Search SizeLimitedWriter::bisect(const vips::VImage& image, double scale, qint64 target)
{
    Search search;
    double lo = kMinQuality;
    double hi = m_quality;
    for (int round = 0; round < kMaxRounds; ++round) {
        const double mid = (lo + hi) / 2;
        std::optional<QByteArray> bytes = encode(image, scale, mid);
        if (!bytes)
            break;
        m_last = bytes;
        if (bytes->size() > target) {
            hi = mid;
        } else {
            search.best = mid;
            search.bestBytes = std::move(bytes);
            lo = mid;
        }
        if (hi - lo < kWindow)
            break;
    }
    return search;
}
