#pragma once

#include <optional>

#include <QByteArray>
#include <QString>

/// The release record published on the update feed.
struct AppRelease
{
    QString version;
    qint64 buildNumber = 0;
    QString releaseNotes;
    QString zipURL;
    bool criticalUpdate = false;

    /**
     * Decodes one JSON object holding all five fields with their exact JSON types: strings for
     * the texts, a whole number within 64 bits for "buildNumber" (a string of digits fails) and
     * a boolean for "criticalUpdate". Extra fields are ignored; anything else is nullopt.
     */
    static std::optional<AppRelease> decode(const QByteArray& json);

    friend bool operator==(const AppRelease&, const AppRelease&) = default;
};
