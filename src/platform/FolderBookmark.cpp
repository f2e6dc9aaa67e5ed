#include "platform/FolderBookmark.h"

#include <QDir>
#include <QStringDecoder>

std::optional<QByteArray> FolderBookmark::create(const QString& folderPath)
{
    if (folderPath.isEmpty() || !QDir::isAbsolutePath(folderPath))
        return std::nullopt;
    return QDir::cleanPath(folderPath).toUtf8();
}

std::optional<QString> FolderBookmark::resolve(const QByteArray& data)
{
    if (data.isEmpty() || data.contains('\0'))
        return std::nullopt;
    QStringDecoder decoder(QStringDecoder::Utf8);
    const QString path = decoder.decode(data);
    if (decoder.hasError() || !QDir::isAbsolutePath(path))
        return std::nullopt;
    return path;
}
