#pragma once

#include <optional>

#include <QString>

#include "engine/CompressorError.h"

/// The outcome of one job (an image file, or one page of a PDF). Paths are local file paths.
struct CompressionResult
{
    /// The input file (for a PDF page: the PDF).
    QString sourceURL;
    /// The written file; absent when nothing was kept.
    std::optional<QString> outputURL;
    /// Input size in bytes (for a PDF page: the PDF's size divided by its page count).
    qint64 originalSize = 0;
    /// Output size in bytes; 0 on failure; equal to originalSize when the saving was too small.
    qint64 compressedSize = 0;
    std::optional<CompressorError> error;

    bool succeeded() const { return !error && outputURL.has_value(); }
};
