#pragma once

#include <functional>
#include <optional>

#include <QByteArray>
#include <QFuture>
#include <QStringList>
#include <QThreadPool>

#include "engine/CompressionResult.h"
#include "engine/CompressionSettings.h"
#include "engine/SessionResult.h"

/**
 * The engine: compresses a list of files with one settings snapshot.
 *
 * PDFs expand into one job per page. Batches run first in, first out. Inside a batch, up to
 * `jobs` images are decoded, scaled and encoded at once (one per core by default) while the
 * decoded pixels in flight stay within `kMemoryBudget`; each job's output is then named, written
 * and kept or deleted strictly in job order, so names, bytes, results and progress reports are
 * the same as when jobs run one at a time.
 * Nothing throws: every failure becomes a result with an error. Originals are never modified.
 * @code
 * QFuture<SessionResult> done = ImageCompressor::shared().compress(
 *     {"/home/me/a.png"}, CompressionSettings::current(),
 *     [](int current, int total, const QString& label) { ... }); // called on the batch's thread
 * @endcode
 */
class ImageCompressor final
{
public:
    /// (index of the job about to start, number of jobs, label); last call is (total, total, "").
    using ProgressCallback = std::function<void(int current, int total, const QString& label)>;
    /// Decode, scale and encode of one image file in one: the output's bytes, or nothing when the
    /// file cannot be decoded.
    using ImageEncoder = std::function<std::optional<QByteArray>(const QString& sourcePath,
                                                                 const CompressionSettings& settings)>;

    /// Decoded pixels (as `ImageDecoder::estimatedDecodedBytes` estimates them) that the jobs of a
    /// batch may hold at once; a job that alone needs more runs alone.
    static constexpr qint64 kMemoryBudget = 1'000'000'000;

    ImageCompressor();
    /// An engine that turns image files into bytes with `encoder` (tests make jobs finish out of
    /// order with it); naming, writing and PDF pages stay the engine's own.
    explicit ImageCompressor(ImageEncoder encoder);
    ~ImageCompressor();
    ImageCompressor(const ImageCompressor&) = delete;
    ImageCompressor& operator=(const ImageCompressor&) = delete;

    /// The process's one instance, created on first use.
    static ImageCompressor& shared();
    /// Jobs of a batch encoded at once unless told otherwise: one per core.
    static int defaultJobs();

    /// Queues a batch; `jobs` < 1 means `defaultJobs()`. Progress is reported from the batch's thread.
    QFuture<SessionResult> compress(const QStringList& paths, const CompressionSettings& settings,
                                    ProgressCallback progress, int jobs = 0);

    /// Runs a batch, its jobs' encoding on up to `jobs` threads (< 1: `defaultJobs()`), reporting
    /// progress and committing outputs from the calling thread (the worker's body; tests call it directly).
    SessionResult compressBatch(const QStringList& paths, const CompressionSettings& settings,
                                const ProgressCallback& progress, int jobs = 0);

    /// One image file: decode, scale, name, encode, write, apply the minimum-saving rule.
    CompressionResult compressOne(const QString& sourcePath, const CompressionSettings& settings);
    /// One page (zero-based) of a PDF, rendered at twice its size on white.
    CompressionResult compressPDFPage(const QString& pdfPath, int pageIndex,
                                      const CompressionSettings& settings);

    /// The concrete format for a source: `original` follows the source's extension (jpg, jpeg,
    /// png, webp, avif), anything else becomes JPEG; other choices are kept.
    static OutputFormat resolvedFormat(OutputFormat chosen, const QString& sourcePath);
    /// Whether the minimum-saving rule keeps an output: always when the rule is off or the
    /// original's size is unknown (0), else when the saving in whole percent (truncated toward
    /// zero) reaches `minSavingPercent`. A larger output is a negative saving.
    static bool keepsOutput(qint64 originalSize, qint64 compressedSize, const CompressionSettings& settings);
    /// The folder outputs of `sourcePath` go to: the custom folder when chosen and present, else
    /// the source's own folder.
    static QString outputFolder(const QString& sourcePath, const CompressionSettings& settings);

private:
    struct Job;
    struct Encoded;

    /// The part of a job that may run beside others: everything up to the output's bytes.
    Encoded encode(const Job& job, const CompressionSettings& settings) const;
    Encoded encodeImage(const QString& sourcePath, const CompressionSettings& settings) const;
    static Encoded encodePDFPage(const Job& page, const CompressionSettings& settings);
    /// Marks `job` failed when its output folder cannot take the file (logged with the reason).
    static bool unwritable(const QString& sourcePath, Encoded& job, const CompressionSettings& settings);
    /// The part that runs in job order: name, write, measure, keep or delete.
    static CompressionResult commit(Encoded encoded, const CompressionSettings& settings);

    ImageEncoder m_encoder;
    QThreadPool m_worker;   // batches, one at a time
    QThreadPool m_encoders; // the jobs of the running batch
};
