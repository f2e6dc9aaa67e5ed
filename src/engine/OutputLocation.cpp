#include "engine/OutputLocation.h"

namespace OutputLocations {

QString rawValue(OutputLocation location)
{
    return location == OutputLocation::CustomFolder ? QStringLiteral("customFolder")
                                                    : QStringLiteral("sameFolder");
}

OutputLocation fromRawValue(const QString& raw)
{
    return raw == QLatin1StringView("customFolder") ? OutputLocation::CustomFolder
                                                    : OutputLocation::SameFolder;
}

} // namespace OutputLocations
