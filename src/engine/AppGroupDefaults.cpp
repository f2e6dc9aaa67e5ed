#include "engine/AppGroupDefaults.h"

Defaults AppGroupDefaults::open()
{
    return Defaults::suite();
}

const QList<QPair<QString, QVariant>>& AppGroupDefaults::defaultsTable()
{
    static const QList<QPair<QString, QVariant>> table{
        {Keys::outputFormat, QStringLiteral("jpeg")},
        {Keys::compressionMode, QStringLiteral("balanced")},
        {Keys::quality, 0.8},
        {Keys::limitLongestEdge, false},
        {Keys::longestEdgePx, qint64(2048)},
        {Keys::suffix, QStringLiteral("-web")},
        {Keys::outputLocation, QStringLiteral("sameFolder")},
        {Keys::showNotifications, true},
        {Keys::limitOutputFileSize, false},
        {Keys::maxFileSizeKB, qint64(500)},
        {Keys::requireMinSavingPercent, false},
        {Keys::minSavingPercent, qint64(20)},
    };
    return table;
}

void AppGroupDefaults::registerDefaults()
{
    Defaults suite = open();
    QVariantMap registered;
    for (const auto& [key, value] : defaultsTable())
        registered.insert(key, value);
    suite.registerDefaults(registered);

    if (suite.boolean(Keys::groupDefaultsMigrated))
        return;
    suite.set(Keys::groupDefaultsMigrated, true);
    suite.sync();

    const Defaults standard = Defaults::standard();
    for (const auto& entry : defaultsTable()) {
        if (standard.hasStoredValue(entry.first))
            suite.set(entry.first, standard.object(entry.first));
    }
    suite.sync();
}
