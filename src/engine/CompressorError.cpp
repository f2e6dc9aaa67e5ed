#include "engine/CompressorError.h"

namespace CompressorErrors {

QString errorDescription(CompressorError error)
{
    switch (error) {
    case CompressorError::CannotDecode:
        return QStringLiteral("Cannot decode image");
    case CompressorError::CannotCreateDestination:
        return QStringLiteral("Cannot create output file");
    case CompressorError::FinalizeFailed:
        return QStringLiteral("Failed to write image");
    case CompressorError::SavingsBelowThreshold:
        return QStringLiteral("Already optimized");
    case CompressorError::InvalidFileName:
        return QStringLiteral("File name is not valid UTF-8");
    }
    return {};
}

} // namespace CompressorErrors
