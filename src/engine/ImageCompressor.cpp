#include "engine/ImageCompressor.h"

#include <QFileInfo>
#include <QtConcurrent/QtConcurrentRun>

ImageCompressor::ImageCompressor()
{
    m_worker.setMaxThreadCount(1); // jobs strictly in sequence, batches first in, first out
    m_worker.setExpiryTimeout(-1);
}

ImageCompressor::~ImageCompressor()
{
    m_worker.waitForDone();
}

ImageCompressor& ImageCompressor::shared()
{
    static ImageCompressor instance;
    return instance;
}

QFuture<SessionResult> ImageCompressor::compress(const QStringList& paths, const CompressionSettings& settings,
                                                 ProgressCallback progress)
{
    return QtConcurrent::run(&m_worker, [this, paths, settings, progress = std::move(progress)] {
        return compressBatch(paths, settings, progress);
    });
}

// Placeholder bodies until the decoding and encoding pipeline lands.
SessionResult ImageCompressor::compressBatch(const QStringList& paths, const CompressionSettings& settings,
                                             const ProgressCallback& progress)
{
    SessionResult session;
    const int total = static_cast<int>(paths.size());
    for (int i = 0; i < total; ++i) {
        if (progress)
            progress(i, total, QFileInfo(paths[i]).fileName());
        session.results.append(compressOne(paths[i], settings));
    }
    if (progress)
        progress(total, total, QString());
    return session;
}

CompressionResult ImageCompressor::compressOne(const QString& sourcePath, const CompressionSettings&)
{
    CompressionResult r;
    r.sourceURL = sourcePath;
    r.error = CompressorError::CannotDecode;
    return r;
}

CompressionResult ImageCompressor::compressPDFPage(const QString& pdfPath, int, const CompressionSettings&)
{
    CompressionResult r;
    r.sourceURL = pdfPath;
    r.error = CompressorError::CannotDecode;
    return r;
}
