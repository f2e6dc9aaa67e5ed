#pragma once

#include <functional>

#include <QFuture>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>

#include "engine/CompressionSettings.h"
#include "engine/ImageCompressor.h"
#include "engine/SessionResult.h"

class BatchDisplay;
class CompressionState;

/**
 * Runs one batch per list of dropped files: snapshots the settings, drives the state, calls the
 * engine and hides the panel a few seconds after the batch ends.
 *
 * Batches are not serialised: a drop during a batch starts another at once, their progress
 * interleaves in the state, and the later completion wins. Everything runs on the main thread;
 * the engine's progress reports arrive from its worker and are each posted back as one queued
 * call, so a report may land after the batch has completed.
 * @code
 * BatchRunner runner(state, display);
 * runner.handleFiles({"/home/me/a.png", "/home/me/b.jpg"});
 * @endcode
 */
class BatchRunner final : public QObject
{
    Q_OBJECT

public:
    using Engine =
        std::function<QFuture<SessionResult>(const QStringList& paths, const CompressionSettings& settings,
                                             ImageCompressor::ProgressCallback progress)>;

    /// The automatic hide after a batch, in milliseconds.
    static constexpr int kDismissDelayMs = 3000;

    /// `state` and `display` must outlive the runner. Without `engine`, the shared compressor is used.
    BatchRunner(CompressionState& state, BatchDisplay& display, Engine engine = {},
                QObject* parent = nullptr);

    /// Runs the list through the engine exactly as given (no filtering, sorting or de-duplication).
    void handleFiles(const QStringList& paths);

    /**
     * The batch itself, for every entry point: beginBatch, the engine with `settings`, one queued
     * updateProgress per report, finishBatch, then `afterFinish` with the result (the hand-off
     * path posts its notification there).
     */
    void runBatch(const QStringList& paths, const CompressionSettings& settings,
                  std::function<void(const SessionResult&)> afterFinish = {});

    void beginBatch(qint64 total);
    /// One engine report; `total` is ignored.
    void updateProgress(qint64 current, qint64 total, const QString& fileName);
    void finishBatch(const SessionResult& result);

    /// Summary of the last finished batch; empty until one finishes.
    QString lastSessionSummary() const { return m_lastSessionSummary; }

signals:
    /// A batch's result has been applied to the state.
    void batchFinished(const QString& summary);

private:
    CompressionState& m_state;
    BatchDisplay& m_display;
    Engine m_engine;
    QString m_lastSessionSummary;
    QTimer m_dismissTimer;
};
