#include "engine/SessionResult.h"

#include <algorithm>

#include "engine/ByteCount.h"

namespace {
const QString kSeparator = QStringLiteral(" \u00B7 ");
}

qsizetype SessionResult::succeededCount() const
{
    return std::count_if(results.cbegin(), results.cend(),
                         [](const CompressionResult& r) { return r.succeeded(); });
}

qsizetype SessionResult::failedCount() const
{
    return results.size() - succeededCount();
}

qint64 SessionResult::totalSavedBytes() const
{
    qint64 total = 0;
    for (const CompressionResult& r : results)
        total += std::max<qint64>(r.originalSize - r.compressedSize, 0);
    return total;
}

QString SessionResult::summary() const
{
    const qsizetype succeeded = succeededCount();
    const qsizetype failed = failedCount();
    const qsizetype total = results.size();

    if (failed > 0 && succeeded > 0)
        return QString::number(succeeded) + u'/' + QString::number(total) + QStringLiteral(" optimized") +
               kSeparator + QString::number(failed) + QStringLiteral(" failed");

    if (failed == total) {
        QList<CompressorError> errors;
        for (const CompressionResult& r : results) {
            if (r.error)
                errors.append(*r.error);
        }
        const bool allDiscarded = std::all_of(errors.cbegin(), errors.cend(), [](CompressorError e) {
            return e == CompressorError::SavingsBelowThreshold;
        });
        if (allDiscarded)
            return QStringLiteral("Already optimized") + kSeparator + QStringLiteral("no changes needed");
        // The first error stands for the batch, whichever case it is.
        return QStringLiteral("Failed") + kSeparator + CompressorErrors::errorDescription(errors.first());
    }

    const bool allSmall = std::all_of(results.cbegin(), results.cend(),
                                      [](const CompressionResult& r) { return r.originalSize < 50'000; });
    if (allSmall)
        return QStringLiteral("Done") + kSeparator + QStringLiteral("files were already optimized");
    return QString::number(succeeded) +
           (succeeded == 1 ? QStringLiteral(" image") : QStringLiteral(" images")) +
           QStringLiteral(" optimized") + kSeparator + ByteCount::format(totalSavedBytes()) +
           QStringLiteral(" saved");
}
