#pragma once

#include <functional>

#include <QFuture>
#include <QStringList>
#include <QThreadPool>

#include "engine/CompressionResult.h"
#include "engine/CompressionSettings.h"
#include "engine/SessionResult.h"

/**
 * The engine: compresses a list of files with one settings snapshot.
 *
 * PDFs expand into one job per page. Jobs run one after another on a single worker thread, and
 * batches run first in, first out; libvips and the encoders may use more cores inside a job.
 * Nothing throws: every failure becomes a result with an error. Originals are never modified.
 * @code
 * QFuture<SessionResult> done = ImageCompressor::shared().compress(
 *     {"/home/me/a.png"}, CompressionSettings::current(),
 *     [](int current, int total, const QString& label) { ... }); // called on the worker thread
 * @endcode
 */
class ImageCompressor final
{
public:
    /// (index of the job about to run, number of jobs, label); last call is (total, total, "").
    using ProgressCallback = std::function<void(int current, int total, const QString& label)>;

    ImageCompressor();
    ~ImageCompressor();
    ImageCompressor(const ImageCompressor&) = delete;
    ImageCompressor& operator=(const ImageCompressor&) = delete;

    /// The process's one instance, created on first use.
    static ImageCompressor& shared();

    /// Queues a batch on the worker; progress is reported from the worker thread.
    QFuture<SessionResult> compress(const QStringList& paths, const CompressionSettings& settings,
                                    ProgressCallback progress);

    /// Runs a batch on the calling thread (the worker's body; tests call it directly).
    SessionResult compressBatch(const QStringList& paths, const CompressionSettings& settings,
                                const ProgressCallback& progress);

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
    QThreadPool m_worker;
};
