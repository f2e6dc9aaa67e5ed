#pragma once

#include <QString>
#include <QVariantMap>

#include "platform/Defaults.h"

/**
 * The shared settings suite and the list of keys the engine owns.
 *
 * Every access opens the suite afresh (`open()`), so a value written by the settings window or
 * by another process is seen at the next read.
 */
class AppGroupDefaults final
{
public:
    struct Keys
    {
        static inline const QString outputFormat = QStringLiteral("outputFormat");
        static inline const QString compressionMode = QStringLiteral("compressionMode");
        static inline const QString quality = QStringLiteral("quality");
        static inline const QString limitLongestEdge = QStringLiteral("limitLongestEdge");
        static inline const QString longestEdgePx = QStringLiteral("longestEdgePx");
        static inline const QString suffix = QStringLiteral("suffix");
        static inline const QString outputLocation = QStringLiteral("outputLocation");
        static inline const QString showNotifications = QStringLiteral("showNotifications");
        static inline const QString limitOutputFileSize = QStringLiteral("limitOutputFileSize");
        static inline const QString maxFileSizeKB = QStringLiteral("maxFileSizeKB");
        static inline const QString requireMinSavingPercent = QStringLiteral("requireMinSavingPercent");
        static inline const QString minSavingPercent = QStringLiteral("minSavingPercent");
        static inline const QString customFolderBookmark = QStringLiteral("customFolderBookmark");
        static inline const QString groupDefaultsMigrated = QStringLiteral("groupDefaultsMigrated_v1");
        static inline const QString pendingFiles = QStringLiteral("pendingFiles");
    };

    /// The shared suite (the standard store when the suite cannot be opened).
    static Defaults open();

    /// The twelve settings keys in registration order with their registered defaults.
    static const QList<QPair<QString, QVariant>>& defaultsTable();

    /**
     * Registers the defaults table on the suite and, once per installation, copies the twelve
     * settings that the standard store holds into the suite. The marker is written before the
     * copy, so an interrupted migration is never retried.
     */
    static void registerDefaults();
};
