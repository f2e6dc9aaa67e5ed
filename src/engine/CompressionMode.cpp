#include "engine/CompressionMode.h"

namespace {
struct Row
{
    CompressionMode mode;
    const char* raw;
    const char* title;
    double jpegQuality;
    double otherQuality;
};

constexpr std::array<Row, 3> kRows{{
    {CompressionMode::Lossless, "lossless", "Lossless", 0.95, 1.0},
    {CompressionMode::Balanced, "balanced", "Balanced", 0.80, 0.82},
    {CompressionMode::Aggressive, "aggressive", "Aggressive", 0.65, 0.65},
}};

const Row& row(CompressionMode mode)
{
    return kRows[static_cast<std::size_t>(mode)];
}
} // namespace

namespace CompressionModes {

QString rawValue(CompressionMode mode)
{
    return QString::fromLatin1(row(mode).raw);
}

std::optional<CompressionMode> fromRawValue(const QString& raw)
{
    for (const Row& r : kRows) {
        if (raw == QLatin1StringView(r.raw))
            return r.mode;
    }
    return std::nullopt;
}

QString title(CompressionMode mode)
{
    return QString::fromLatin1(row(mode).title);
}

double quality(CompressionMode mode, OutputFormat format)
{
    return format == OutputFormat::Jpeg ? row(mode).jpegQuality : row(mode).otherQuality;
}

} // namespace CompressionModes
