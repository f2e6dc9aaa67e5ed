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
        // The engine reads local paths only; a list it cannot take whole is refused whole.
        if (!url.isLocalFile())
            return {};
        const QString path = url.toLocalFile();
        if (imageExts().contains(pathExtension(path).toLower()))
            paths.append(path);
    }
    return paths;
}

} // namespace AcceptedFiles
