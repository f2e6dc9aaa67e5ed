#pragma once

#include <optional>

#include <QByteArray>
#include <QString>

/**
 * A persistent reference to a user-chosen folder, stored as data in the settings.
 *
 * Here a bookmark is the folder's absolute path in UTF-8; a sandboxed platform would store its
 * own opaque grant instead. Resolution does not check that the folder still exists (a stale
 * bookmark still resolves), so callers decide what a missing folder means.
 */
class FolderBookmark final
{
public:
    /// Bookmark data for an absolute path; nullopt for an empty or relative path.
    static std::optional<QByteArray> create(const QString& folderPath);
    /// The folder path of bookmark data; nullopt when the data is not a bookmark.
    static std::optional<QString> resolve(const QByteArray& data);
};
