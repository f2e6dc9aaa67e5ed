#pragma once

#include <QString>

/// Where outputs go: beside the original, or into the chosen folder.
enum class OutputLocation
{
    SameFolder,
    CustomFolder
};

namespace OutputLocations {
QString rawValue(OutputLocation location);
/// Only the exact string "customFolder" selects the custom folder.
OutputLocation fromRawValue(const QString& raw);
} // namespace OutputLocations
