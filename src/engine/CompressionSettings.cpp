#include "engine/CompressionSettings.h"

#include "engine/AppGroupDefaults.h"
#include "platform/Defaults.h"
#include "platform/FolderBookmark.h"

CompressionSettings CompressionSettings::current()
{
    return from(AppGroupDefaults::open());
}

CompressionSettings CompressionSettings::from(const Defaults& store)
{
    using Keys = AppGroupDefaults::Keys;
    CompressionSettings s;

    s.outputFormat = OutputFormats::fromRawValue(store.string(Keys::outputFormat).value_or(QString()))
                         .value_or(OutputFormat::Jpeg);

    // Unknown or missing modes deliberately fall back to lossless, not to the registered default.
    const QString mode = store.string(Keys::compressionMode).value_or(QString());
    s.compressionMode = mode == QLatin1StringView("balanced")     ? CompressionMode::Balanced
                        : mode == QLatin1StringView("aggressive") ? CompressionMode::Aggressive
                                                                  : CompressionMode::Lossless;

    s.outputLocation = OutputLocations::fromRawValue(store.string(Keys::outputLocation).value_or(QString()));

    s.customFolderURL.reset();
    if (const auto bookmark = store.data(Keys::customFolderBookmark))
        s.customFolderURL = FolderBookmark::resolve(*bookmark);

    s.quality = store.doubleValue(Keys::quality);
    s.limitLongestEdge = store.boolean(Keys::limitLongestEdge);
    s.limitOutputFileSize = store.boolean(Keys::limitOutputFileSize);
    s.requireMinSavingPercent = store.boolean(Keys::requireMinSavingPercent);
    s.showNotifications = store.boolean(Keys::showNotifications);

    // Zero cannot be a useful limit, so a stored 0 reads as the default.
    const auto positiveOr = [&](const QString& key, qint64 fallback) {
        const qint64 v = store.integer(key);
        return v == 0 ? fallback : v;
    };
    s.longestEdgePx = positiveOr(Keys::longestEdgePx, 2048);
    s.maxFileSizeKB = positiveOr(Keys::maxFileSizeKB, 500);
    s.minSavingPercent = positiveOr(Keys::minSavingPercent, 20);

    // Only a missing suffix falls back; an empty one is a deliberate choice.
    s.suffix = store.string(Keys::suffix).value_or(QStringLiteral("-web"));
    return s;
}
