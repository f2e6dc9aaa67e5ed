#include "engine/OutputFormat.h"

namespace {
struct Row
{
    OutputFormat format;
    const char* raw;
    const char* title;
    const char* extension;
    const char* typeIdentifier;
};

constexpr std::array<Row, 5> kRows{{
    {OutputFormat::Jpeg, "jpeg", "Convert to JPEG", "jpg", "public.jpeg"},
    {OutputFormat::Png, "png", "Convert to PNG", "png", "public.png"},
    {OutputFormat::Webp, "webp", "Convert to WebP", "webp", "webp"},
    {OutputFormat::Avif, "avif", "Convert to AVIF (best compression)", "avif", "public.avif"},
    {OutputFormat::Original, "original", "Keep original format", "", ""},
}};

const Row& row(OutputFormat format)
{
    return kRows[static_cast<std::size_t>(format)];
}
} // namespace

namespace OutputFormats {

QString rawValue(OutputFormat format)
{
    return QString::fromLatin1(row(format).raw);
}

std::optional<OutputFormat> fromRawValue(const QString& raw)
{
    for (const Row& r : kRows) {
        if (raw == QLatin1StringView(r.raw))
            return r.format;
    }
    return std::nullopt;
}

QString title(OutputFormat format)
{
    return QString::fromLatin1(row(format).title);
}

QString fileExtension(OutputFormat format)
{
    return QString::fromLatin1(row(format).extension);
}

QString typeIdentifier(OutputFormat format)
{
    return QString::fromLatin1(row(format).typeIdentifier);
}

} // namespace OutputFormats
