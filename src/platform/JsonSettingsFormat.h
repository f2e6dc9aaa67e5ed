#pragma once

#include <QByteArray>
#include <QVariantMap>

/**
 * The settings stores' JSON file format, which keeps value types apart.
 *
 * The file is one JSON object. Strings, booleans, numbers and arrays map to their JSON forms.
 * Qt's JSON parser reads every integral number as an integer, so a double with an integral value
 * is written as {"$double": 2} to come back as a double; binary data is written as
 * {"$data": "<base64>"}. A file that is not a JSON object fails to read.
 */
class JsonSettingsFormat final
{
public:
    /// Serialises a map as the file holds it.
    static QByteArray toJson(const QVariantMap& map);
    /// Adds the file's values to `map`; false when `json` is not one JSON object.
    static bool fromJson(const QByteArray& json, QVariantMap& map);
};
