#pragma once

#include <QByteArray>
#include <QSettings>

/**
 * A JSON file format for QSettings that keeps value types apart.
 *
 * The file is one JSON object. Strings, booleans, numbers and arrays map to their JSON forms.
 * Qt's JSON parser reads every integral number as an integer, so a double with an integral value
 * is written as {"$double": 2} to come back as a double; binary data is written as
 * {"$data": "<base64>"}. Reading a file that is not a JSON object fails the QSettings read, which
 * QSettings reports as FormatError.
 */
class JsonSettingsFormat final
{
public:
    /// The registered format (registered on first use, thread-safe).
    static QSettings::Format format();

    static bool read(QIODevice& device, QSettings::SettingsMap& map);
    static bool write(QIODevice& device, const QSettings::SettingsMap& map);

    /// Serialises a map as the file would hold it; exposed for tests and the CLI.
    static QByteArray toJson(const QSettings::SettingsMap& map);
    static bool fromJson(const QByteArray& json, QSettings::SettingsMap& map);
};
