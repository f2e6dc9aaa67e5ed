#pragma once

#include <array>
#include <optional>

#include <QString>

/// Target format of a batch; raw values are what the settings store holds.
enum class OutputFormat
{
    Jpeg,
    Png,
    Webp,
    Avif,
    Original
};

/// The per-case columns of OutputFormat.
namespace OutputFormats {
/// Every case, in display order.
constexpr std::array<OutputFormat, 5> all{OutputFormat::Jpeg, OutputFormat::Png, OutputFormat::Webp,
                                          OutputFormat::Avif, OutputFormat::Original};

QString rawValue(OutputFormat format);
std::optional<OutputFormat> fromRawValue(const QString& raw);
/// "Convert to JPEG", ..., "Keep original format".
QString title(OutputFormat format);
/// "jpg", "png", "webp", "avif"; empty for Original.
QString fileExtension(OutputFormat format);
/// "public.jpeg", "public.png", "webp", "public.avif"; empty for Original. The bare "webp" routes
/// an image to libwebp instead of the generic image writer.
QString typeIdentifier(OutputFormat format);
} // namespace OutputFormats
