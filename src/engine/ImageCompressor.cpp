#include "engine/ImageCompressor.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include <vips/vips8>

#include <QFile>
#include <QFileInfo>
#include <QThread>
#include <QtConcurrent/QtConcurrentRun>

#include "engine/FormatEncoder.h"
#include "engine/ImageDecoder.h"
#include "engine/ImageScaler.h"
#include "engine/LoaderWatch.h"
#include "engine/OutputTarget.h"
#include "engine/SizeLimitedWriter.h"
#include "engine/VipsRuntime.h"
#include "platform/Logging.h"
#include "platform/ScopedAccess.h"

namespace {

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

} // namespace

struct ImageCompressor::Job
{
    QString path;
    std::optional<int> pageIndex;
    /// The PDF a page job renders from, read once for all its pages.
    std::shared_ptr<const ImageDecoder::PdfDocument> document;
};

/// What a job's encoding hands to its commit: the result so far (with an error when the job
/// already failed), the bytes and where they go.
struct ImageCompressor::Encoded
{
    CompressionResult result;
    QByteArray bytes;
    QString baseName;
    QString extension;
    /// Pages of the PDF a page job came from (they share the document's size); 0 for an image.
    int pdfPages = 0;
};

ImageCompressor::ImageCompressor() : ImageCompressor(ImageEncoder()) {}

ImageCompressor::ImageCompressor(ImageEncoder encoder) : m_encoder(std::move(encoder))
{
    m_worker.setMaxThreadCount(1); // batches first in, first out
    m_worker.setExpiryTimeout(-1);
}

ImageCompressor::~ImageCompressor()
{
    m_worker.waitForDone();
    m_encoders.waitForDone();
}

ImageCompressor& ImageCompressor::shared()
{
    static ImageCompressor instance;
    return instance;
}

int ImageCompressor::defaultJobs()
{
    return std::max(1, QThread::idealThreadCount());
}

QFuture<SessionResult> ImageCompressor::compress(const QStringList& paths,
                                                 const CompressionSettings& settings,
                                                 ProgressCallback progress, int jobs)
{
    return QtConcurrent::run(&m_worker, [this, paths, settings, progress = std::move(progress), jobs] {
        return compressBatch(paths, settings, progress, jobs);
    });
}

SessionResult ImageCompressor::compressBatch(const QStringList& paths, const CompressionSettings& settings,
                                             const ProgressCallback& progress, int jobs)
{
    QList<Job> list;
    for (const QString& path : paths) {
        if (QFileInfo(path).suffix().toLower() != QLatin1String("pdf")) {
            list.append({path, std::nullopt});
            continue;
        }
        const ScopedAccess access(path);
        const auto document = std::make_shared<const ImageDecoder::PdfDocument>(ImageDecoder::openPDF(path));
        const int pages = document->pageCount;
        if (pages < 1)
            list.append({path, std::nullopt, nullptr}); // fails to decode as an image, giving one result
        for (int page = 0; page < pages; ++page)
            list.append({path, page, document});
    }
    const int total = static_cast<int>(list.size());
    const int parallel = std::clamp(jobs > 0 ? jobs : defaultJobs(), 1, std::max(total, 1));
    VipsRuntime::shareCores(parallel);
    m_encoders.setMaxThreadCount(parallel);

    // Jobs are handed out in order and committed in order. Encoded jobs waiting for an earlier
    // one to commit hold their bytes, so at most `parallel - 1` of them wait beside the running ones.
    const int window = 2 * parallel - 1;
    std::mutex mutex;
    std::condition_variable finished;
    std::vector<std::optional<Encoded>> encoded(list.size());
    int running = 0;
    qint64 bytesInFlight = 0;

    int estimated = -1; // the job `estimate` is for
    qint64 estimate = 0;
    int next = 0;
    SessionResult session;
    for (int done = 0; done < total; ++done) {
        std::unique_lock lock(mutex);
        while (!encoded[done]) {
            while (next < total && next - done < window) {
                const Job& job = list[next];
                if (estimated != next) {
                    // Pages of one PDF share the estimate of its first page.
                    const bool samePDF = next > 0 && job.pageIndex && *job.pageIndex > 0;
                    lock.unlock();
                    if (!samePDF)
                        estimate = job.document ? ImageDecoder::estimatedDecodedBytes(*job.document)
                                                : ImageDecoder::estimatedDecodedBytes(job.path);
                    estimated = next;
                    lock.lock();
                }
                if (running > 0 && (running >= parallel || bytesInFlight + estimate > kMemoryBudget))
                    break;
                ++running;
                bytesInFlight += estimate;
                lock.unlock();

                QString label = QFileInfo(job.path).fileName();
                if (job.pageIndex)
                    label += QStringLiteral(" p") + QString::number(*job.pageIndex + 1);
                if (progress)
                    progress(next, total, label);
                m_encoders.start([&, index = next, held = estimate] {
                    Encoded result = encode(list[index], settings);
                    const std::lock_guard guard(mutex);
                    encoded[index] = std::move(result);
                    --running;
                    bytesInFlight -= held;
                    finished.notify_one();
                });
                ++next;
                lock.lock();
            }
            if (!encoded[done])
                finished.wait(lock);
        }
        Encoded job = std::move(*encoded[done]);
        encoded[done].reset();
        lock.unlock();
        session.results.append(commit(std::move(job), settings));
    }
    m_encoders.waitForDone();
    if (progress)
        progress(total, total, QString());
    return session;
}

CompressionResult ImageCompressor::compressOne(const QString& sourcePath, const CompressionSettings& settings)
{
    return commit(encodeImage(sourcePath, settings), settings);
}

CompressionResult ImageCompressor::compressPDFPage(const QString& pdfPath, int pageIndex,
                                                   const CompressionSettings& settings)
{
    const ScopedAccess access(pdfPath);
    const Job job{pdfPath, pageIndex,
                  std::make_shared<const ImageDecoder::PdfDocument>(ImageDecoder::openPDF(pdfPath))};
    return commit(encodePDFPage(job, settings), settings);
}

ImageCompressor::Encoded ImageCompressor::encode(const Job& job, const CompressionSettings& settings) const
{
    try {
        return job.pageIndex ? encodePDFPage(job, settings) : encodeImage(job.path, settings);
    } catch (const std::exception& error) { // out of memory, most likely: this job fails, the batch goes on
        qCWarning(lcCompression).noquote() << QStringLiteral("encode FAILED: %1").arg(error.what());
        Encoded failed{resultFor(job.path)};
        failed.result.error = CompressorError::CannotDecode;
        return failed;
    }
}

ImageCompressor::Encoded ImageCompressor::encodeImage(const QString& sourcePath,
                                                      const CompressionSettings& settings) const
{
    const QFileInfo source(sourcePath);
    const ScopedAccess sourceAccess(sourcePath);
    const OutputFormat format = resolvedFormat(settings.outputFormat, sourcePath);
    Encoded job{resultFor(sourcePath),
                {},
                source.completeBaseName() + settings.suffix,
                OutputFormats::fileExtension(format)};
    qCDebug(lcCompression).noquote() << QStringLiteral("compressOne: %1").arg(source.fileName());

    if (m_encoder) {
        std::optional<QByteArray> bytes = m_encoder(sourcePath, settings);
        if (!bytes)
            job.result = cannotDecode(std::move(job.result), source.fileName());
        else
            job.bytes = std::move(*bytes);
        return job;
    }

    const InputFile input = InputFile::read(sourcePath);
    if (input.failure() == InputFile::Failure::AmbiguousName) {
        qCWarning(lcCompression).noquote() << QStringLiteral("invalidFileName: %1").arg(source.fileName());
        job.result.originalSize = input.originalSize();
        job.result.error = CompressorError::InvalidFileName;
        return job;
    }
    if (input.isValid())
        job.result.originalSize = input.originalSize(); // the bytes this job compresses

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
    if (!image) {
        job.result = cannotDecode(std::move(job.result), source.fileName());
        return job;
    }
    if (unwritable(sourcePath, job, settings)) // said before a whole encode is spent on it
        return job;
    SizeLimitedWriter writer(format, settings);
    std::optional<QByteArray> bytes;
    if (streamed) {
        // A streamed encode also fails when the decoder gives up halfway (a truncated file), so
        // its failure is not the encoder's to log. The loader's watch knows a bad input for
        // certain, even when libvips handed the encode black lines and it succeeded; any other
        // failure is told apart by running the job again from memory.
        const QString typeIdentifier = OutputFormats::typeIdentifier(format);
        bytes =
            SizeLimitedWriter(format, settings,
                              [&typeIdentifier](const vips::VImage& streamedImage, double quality) {
                                  return FormatEncoder::encode(streamedImage, typeIdentifier, quality, false);
                              })
                .encoded(*image);
        if (LoaderWatch::failed(*image)) {
            job.result = cannotDecode(std::move(job.result), source.fileName());
            return job;
        }
        if (!bytes) {
            image = decoded(false);
            if (!image) {
                job.result = cannotDecode(std::move(job.result), source.fileName());
                return job;
            }
        }
    }
    if (!bytes)
        bytes = writer.encoded(*image);
    if (!bytes)
        job.result.error = CompressorError::FinalizeFailed;
    else
        job.bytes = std::move(*bytes);
    return job;
}

ImageCompressor::Encoded ImageCompressor::encodePDFPage(const Job& page, const CompressionSettings& settings)
{
    const QString& pdfPath = page.path;
    const int pageIndex = *page.pageIndex;
    const ImageDecoder::PdfDocument& document = *page.document;
    const QFileInfo source(pdfPath);
    const ScopedAccess sourceAccess(pdfPath);
    // Pages keep their rendered size; "original" has no page format to keep, so it means JPEG.
    const OutputFormat format =
        settings.outputFormat == OutputFormat::Original ? OutputFormat::Jpeg : settings.outputFormat;
    Encoded job{resultFor(pdfPath),
                {},
                source.completeBaseName() + settings.suffix + QStringLiteral("-p") +
                    QString::number(pageIndex + 1),
                OutputFormats::fileExtension(format)};

    if (document.input.isValid())
        job.result.originalSize = document.input.originalSize();
    // A page past the end fails to render.
    const std::optional<vips::VImage> rendered = ImageDecoder::renderPDFPage(document, pageIndex);
    if (!rendered) {
        job.result = cannotDecode(std::move(job.result), source.fileName());
        return job;
    }
    job.pdfPages = std::max(document.pageCount, 1);
    if (unwritable(pdfPath, job, settings))
        return job;
    std::optional<QByteArray> bytes = SizeLimitedWriter(format, settings).encoded(*rendered);
    if (!bytes)
        job.result.error = CompressorError::FinalizeFailed;
    else
        job.bytes = std::move(*bytes);
    return job;
}

bool ImageCompressor::unwritable(const QString& sourcePath, Encoded& job, const CompressionSettings& settings)
{
    if (!OutputTarget(outputFolder(sourcePath, settings), job.baseName, job.extension).checkWritable())
        return false;
    job.result.error = CompressorError::FinalizeFailed;
    return true;
}

CompressionResult ImageCompressor::commit(Encoded encoded, const CompressionSettings& settings)
{
    CompressionResult result = std::move(encoded.result);
    if (result.error)
        return result;
    const ScopedAccess folderAccess(QFileInfo(result.sourceURL).absolutePath());
    const OutputTarget target(outputFolder(result.sourceURL, settings), encoded.baseName, encoded.extension);
    const std::optional<QString> written = target.write(encoded.bytes);
    if (!written) {
        result.error = CompressorError::FinalizeFailed;
        return result;
    }
    result.compressedSize = fileSize(*written);
    if (encoded.pdfPages > 0) {
        result.originalSize /= encoded.pdfPages;
    } else if (!keepsOutput(result.originalSize, result.compressedSize, settings)) {
        QFile::remove(*written); // only the file this job wrote
        result.compressedSize = result.originalSize;
        result.error = CompressorError::SavingsBelowThreshold;
        return result;
    }
    result.outputURL = *written;
    return result;
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
