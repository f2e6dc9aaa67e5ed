#pragma once

#include <QString>

/// Why a job produced no kept output.
enum class CompressorError
{
    CannotDecode,
    CannotCreateDestination,
    FinalizeFailed,
    SavingsBelowThreshold,
    /// The file's name is not valid UTF-8, so it may stand for another file: refused unread.
    InvalidFileName
};

namespace CompressorErrors {
/// "Cannot decode image", "Cannot create output file", "Failed to write image", "Already optimized",
/// "File name is not valid UTF-8".
QString errorDescription(CompressorError error);
} // namespace CompressorErrors
