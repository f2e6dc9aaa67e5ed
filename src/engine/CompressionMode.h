#pragma once

#include <array>
#include <optional>

#include <QString>

#include "engine/OutputFormat.h"

/// How hard to compress; selects the encoder quality per target format.
enum class CompressionMode
{
    Lossless,
    Balanced,
    Aggressive
};

namespace CompressionModes {
constexpr std::array<CompressionMode, 3> all{CompressionMode::Lossless, CompressionMode::Balanced,
                                             CompressionMode::Aggressive};

QString rawValue(CompressionMode mode);
std::optional<CompressionMode> fromRawValue(const QString& raw);
/// "Lossless", "Balanced", "Aggressive".
QString title(CompressionMode mode);
/**
 * Encoder quality (0...1) of a mode for a target format. JPEG gets its own, lower column
 * (0.95 / 0.80 / 0.65); PNG, WebP and AVIF share 1.0 / 0.82 / 0.65.
 */
double quality(CompressionMode mode, OutputFormat format);
} // namespace CompressionModes
