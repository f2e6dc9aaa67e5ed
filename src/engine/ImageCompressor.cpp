#include "engine/ImageCompressor.h"

#include <algorithm>
#include <memory>
#include <optional>

#include <vips/vips8>

#include <QFileInfo>
#include <QtConcurrent/QtConcurrentRun>

#include "engine/ImageDecoder.h"
#include "engine/ImageScaler.h"
#include "engine/OutputTarget.h"
#include "engine/SizeLimitedWriter.h"
#include "platform/Logging.h"
#include "platform/ScopedAccess.h"

namespace {

struct Job
{
    QString path;
    std::optional<int> pageIndex;
    /// The PDF a page job renders from, read once for all its pages.
    std::shared_ptr<const ImageDecoder::PdfDocument> document;
};

/// Size in bytes of a file; 0 when it cannot be read.
qint64 fileSize(const QString& path)
{
    const QFileInfo info(path);
    return info.exists() ? info.size() : 0;
}

/// A result for `path` with only the source's side filled in.
CompressionResult resultFor(const QString& path)
{
    CompressionResult result;
    result.sourceURL = path;
    result.originalSize = fileSize(path);
    return result;
}

/// `result` marked as a file that cannot be decoded, logged under the file's name.
CompressionResult cannotDecode(CompressionResult result, const QString& fileName)
{
    qCWarning(lcCompression).noquote() << QStringLiteral("cannotDecode: %1").arg(fileName);
    result.error = CompressorError::CannotDecode;
    return result;
}

/// Encodes `image` as `format` and writes it to the first free name of `target`: one encode at the
/// mode's quality, or the size-limited search when `limitOutputFileSize` is on.
std::optional<QString> writeImage(const vips::VImage& image, OutputFormat format, const OutputTarget& target,
                                  const CompressionSettings& settings)
{
    return SizeLimitedWriter(format, settings).write(image, target);
}

/// One page of a PDF that was read once for all its pages.
CompressionResult compressPage(const ImageDecoder::PdfDocument& document, const QString& pdfPath,
                               int pageIndex, const CompressionSettings& settings)
{
    const QFileInfo source(pdfPath);
    const ScopedAccess sourceAccess(pdfPath);
    const ScopedAccess folderAccess(source.absolutePath());

    CompressionResult result = resultFor(pdfPath);

    if (document.input.isValid())
        result.originalSize = document.input.originalSize();
    // A page past the end fails to render.
    const std::optional<vips::VImage> page = ImageDecoder::renderPDFPage(document, pageIndex);
    if (!page)
        return cannotDecode(std::move(result), source.fileName());

    // Pages keep their rendered size; "original" has no page format to keep, so it means JPEG.
    const OutputFormat format =
        settings.outputFormat == OutputFormat::Original ? OutputFormat::Jpeg : settings.outputFormat;
    const OutputTarget target(ImageCompressor::outputFolder(pdfPath, settings),
                              source.completeBaseName() + settings.suffix + QStringLiteral("-p") +
                                  QString::number(pageIndex + 1),
                              OutputFormats::fileExtension(format));
    const std::optional<QString> written = writeImage(*page, format, target, settings);
    if (!written) {
        result.error = CompressorError::FinalizeFailed;
        return result;
    }
    result.originalSize /= std::max(document.pageCount, 1);
    result.compressedSize = fileSize(*written);
    result.outputURL = *written;
    return result;
}

} // namespace

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

QFuture<SessionResult> ImageCompressor::compress(const QStringList& paths,
                                                 const CompressionSettings& settings,
                                                 ProgressCallback progress)
{
    return QtConcurrent::run(&m_worker, [this, paths, settings, progress = std::move(progress)] {
        return compressBatch(paths, settings, progress);
    });
}

SessionResult ImageCompressor::compressBatch(const QStringList& paths, const CompressionSettings& settings,
                                             const ProgressCallback& progress)
{
    QList<Job> jobs;
    for (const QString& path : paths) {
        if (QFileInfo(path).suffix().toLower() != QLatin1String("pdf")) {
            jobs.append({path, std::nullopt});
            continue;
        }
        const ScopedAccess access(path);
        const auto document = std::make_shared<const ImageDecoder::PdfDocument>(ImageDecoder::openPDF(path));
        const int pages = document->pageCount;
        if (pages < 1)
            jobs.append({path, std::nullopt, nullptr}); // fails to decode as an image, giving one result
        for (int page = 0; page < pages; ++page)
            jobs.append({path, page, document});
    }

    SessionResult session;
    const int total = static_cast<int>(jobs.size());
    for (int i = 0; i < total; ++i) {
        const Job& job = jobs[i];
        QString label = QFileInfo(job.path).fileName();
        if (job.pageIndex)
            label += QStringLiteral(" p") + QString::number(*job.pageIndex + 1);
        if (progress)
            progress(i, total, label);
        session.results.append(job.pageIndex ? compressPage(*job.document, job.path, *job.pageIndex, settings)
                                             : compressOne(job.path, settings));
    }
    if (progress)
        progress(total, total, QString());
    return session;
}

CompressionResult ImageCompressor::compressOne(const QString& sourcePath, const CompressionSettings& settings)
{
    const QFileInfo source(sourcePath);
    const ScopedAccess sourceAccess(sourcePath);
    const ScopedAccess folderAccess(source.absolutePath());

    CompressionResult result = resultFor(sourcePath);
    qCDebug(lcCompression).noquote() << QStringLiteral("compressOne: %1").arg(source.fileName());
    const InputFile input = InputFile::read(sourcePath);
    if (input.failure() == InputFile::Failure::AmbiguousName) {
        qCWarning(lcCompression).noquote() << QStringLiteral("invalidFileName: %1").arg(source.fileName());
        result.originalSize = input.originalSize();
        result.error = CompressorError::InvalidFileName;
        return result;
    }
    if (input.isValid())
        result.originalSize = input.originalSize(); // the bytes this job compresses

    // One encode reads the pixels as they are decoded: no full copy to allocate, fault in and
    // fill (an eighth of a 24 MP JPEG's time). The size-limited search encodes many times, from memory.
    const bool streamed = !settings.limitOutputFileSize;
    const auto decoded = [&](bool lazily) {
        std::optional<vips::VImage> image =
            lazily ? ImageDecoder::decodeLazily(input) : ImageDecoder::decode(input);
        if (image && settings.limitLongestEdge)
            image = lazily ? ImageScaler::resizeLazily(*image, settings.longestEdgePx)
                           : ImageScaler::resize(*image, settings.longestEdgePx);
        return image;
    };
    std::optional<vips::VImage> image = decoded(streamed);
    if (!image)
        return cannotDecode(std::move(result), source.fileName());

    const OutputFormat format = resolvedFormat(settings.outputFormat, sourcePath);
    const OutputTarget target(outputFolder(sourcePath, settings), source.completeBaseName() + settings.suffix,
                              OutputFormats::fileExtension(format));
    SizeLimitedWriter writer(format, settings);
    std::optional<QString> written = writer.write(*image, target);
    if (!written && streamed && !writer.attempts().isEmpty() && !writer.attempts().last().encoded()) {
        // A streamed encode also fails when the decoder gives up halfway (a truncated file).
        // Running the job again from memory tells a bad input from a failing encoder.
        image = decoded(false);
        if (!image)
            return cannotDecode(std::move(result), source.fileName());
        written = writer.write(*image, target);
    }
    if (!written) {
        result.error = CompressorError::FinalizeFailed;
        return result;
    }

    result.compressedSize = fileSize(*written);
    if (!keepsOutput(result.originalSize, result.compressedSize, settings)) {
        QFile::remove(*written); // only the file this job wrote
        result.compressedSize = result.originalSize;
        result.error = CompressorError::SavingsBelowThreshold;
        return result;
    }
    result.outputURL = *written;
    return result;
}

CompressionResult ImageCompressor::compressPDFPage(const QString& pdfPath, int pageIndex,
                                                   const CompressionSettings& settings)
{
    const ScopedAccess sourceAccess(pdfPath);
    return compressPage(ImageDecoder::openPDF(pdfPath), pdfPath, pageIndex, settings);
}

OutputFormat ImageCompressor::resolvedFormat(OutputFormat chosen, const QString& sourcePath)
{
    if (chosen != OutputFormat::Original)
        return chosen;
    const QString extension = QFileInfo(sourcePath).suffix().toLower();
    if (extension == QLatin1String("png"))
        return OutputFormat::Png;
    if (extension == QLatin1String("webp"))
        return OutputFormat::Webp;
    if (extension == QLatin1String("avif"))
        return OutputFormat::Avif;
    return OutputFormat::Jpeg; // jpg and jpeg, and every format we do not write (heic, tiff, gif...)
}

bool ImageCompressor::keepsOutput(qint64 originalSize, qint64 compressedSize,
                                  const CompressionSettings& settings)
{
    if (!settings.requireMinSavingPercent || originalSize <= 0)
        return true;
    const double saving =
        static_cast<double>(originalSize - compressedSize) / static_cast<double>(originalSize) * 100.0;
    return static_cast<qint64>(saving) >= settings.minSavingPercent; // the cast truncates toward zero
}

QString ImageCompressor::outputFolder(const QString& sourcePath, const CompressionSettings& settings)
{
    if (settings.outputLocation == OutputLocation::CustomFolder && settings.customFolderURL) {
        const QString& folder = *settings.customFolderURL;
        ScopedAccess::startAccessing(folder); // held for the process
        if (QFileInfo::exists(folder))
            return folder;
    }
    return QFileInfo(sourcePath).absolutePath();
}
