#include "session/AcceptedFiles.h"

#include <QFileInfo>
#include <QMimeData>
#include <QUrl>

namespace AcceptedFiles {

const QSet<QString>& imageExts()
{
    static const QSet<QString> exts{QStringLiteral("jpg"),  QStringLiteral("jpeg"), QStringLiteral("png"),
                                    QStringLiteral("heic"), QStringLiteral("heif"), QStringLiteral("tiff"),
                                    QStringLiteral("tif"),  QStringLiteral("bmp"),  QStringLiteral("gif"),
                                    QStringLiteral("webp"), QStringLiteral("avif"), QStringLiteral("cr2"),
                                    QStringLiteral("arw"),  QStringLiteral("nef"),  QStringLiteral("dng"),
                                    QStringLiteral("raw"),  QStringLiteral("pdf")};
    return exts;
}

namespace {
QString pathExtension(QString path)
{
    // A folder URL may end in a slash; its extension is that of the last component.
    while (path.size() > 1 && path.endsWith(QLatin1Char('/')))
        path.chop(1);
    return QFileInfo(path).suffix();
}
} // namespace

QStringList acceptedFileURLs(const QMimeData* mime)
{
    if (!mime || !mime->hasUrls())
        return {};
    QStringList paths;
    const QList<QUrl> urls = mime->urls();
    for (const QUrl& url : urls) {
        if (!imageExts().contains(pathExtension(url.path()).toLower()))
            continue;
        // The engine reads local paths only; a web address reaches it as text and fails alone.
        paths.append(url.isLocalFile() ? url.toLocalFile() : url.toString());
    }
    return paths;
}

} // namespace AcceptedFiles
