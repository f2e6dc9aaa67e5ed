#pragma once

#include <optional>

#include <QString>

#include "engine/CompressionMode.h"
#include "engine/OutputFormat.h"
#include "engine/OutputLocation.h"

class Defaults;

/**
 * The options of one batch: an immutable copy taken from the shared suite when the batch starts.
 * @code
 * const CompressionSettings settings = CompressionSettings::current();
 * ImageCompressor::shared().compress(paths, settings, {});
 * @endcode
 */
struct CompressionSettings
{
    OutputFormat outputFormat = OutputFormat::Jpeg;
    CompressionMode compressionMode = CompressionMode::Balanced;
    /// The stored "quality" preference; encoders take their quality from compressionMode.
    double quality = 0.8;
    bool limitLongestEdge = false;
    qint64 longestEdgePx = 2048;
    bool limitOutputFileSize = false;
    /// The size limit in KiB.
    qint64 maxFileSizeKB = 500;
    bool requireMinSavingPercent = false;
    qint64 minSavingPercent = 20;
    QString suffix = QStringLiteral("-web");
    OutputLocation outputLocation = OutputLocation::SameFolder;
    /// Local path of the custom output folder; absent when none is stored or it cannot be resolved.
    std::optional<QString> customFolderURL;
    bool showNotifications = true;

    /// A snapshot of the shared suite.
    static CompressionSettings current();
    /// A snapshot of any store (tests pass their own).
    static CompressionSettings from(const Defaults& store);
};
