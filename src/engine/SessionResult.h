#pragma once

#include <QList>
#include <QString>

#include "engine/CompressionResult.h"

/// The outcome of one batch: one result per job, in job order.
struct SessionResult
{
    QList<CompressionResult> results;

    /// Results with no error and an output.
    qsizetype succeededCount() const;
    qsizetype failedCount() const;
    /// Sum of max(original - compressed, 0) over all results.
    qint64 totalSavedBytes() const;
    /**
     * The one-line summary shown after a batch, for example "4 images optimized · 1.2 MB saved",
     * "3/5 optimized · 2 failed", "Failed · Cannot decode image" or
     * "Already optimized · no changes needed".
     */
    QString summary() const;
};
