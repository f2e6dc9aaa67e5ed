#pragma once

#include <QString>

/// Why a job produced no kept output.
enum class CompressorError
{
    CannotDecode,
    CannotCreateDestination,
    FinalizeFailed,
    SavingsBelowThreshold
};

namespace CompressorErrors {
/// "Cannot decode image", "Cannot create output file", "Failed to write image", "Already optimized".
QString errorDescription(CompressorError error);
} // namespace CompressorErrors
