#include "session/BatchRunner.h"

#include <QCoreApplication>
#include <QFutureWatcher>
#include <QPointer>

#include "session/BatchDisplay.h"
#include "session/CompressionState.h"

BatchRunner::BatchRunner(CompressionState& state, BatchDisplay& display, Engine engine, QObject* parent)
    : QObject(parent), m_state(state), m_display(display), m_engine(std::move(engine)), m_dismissTimer(this)
{
    if (!m_engine) {
        m_engine = [](const QStringList& paths, const CompressionSettings& settings,
                      ImageCompressor::ProgressCallback progress) {
            return ImageCompressor::shared().compress(paths, settings, std::move(progress));
        };
    }
    m_dismissTimer.setSingleShot(true);
    m_dismissTimer.setInterval(kDismissDelayMs);
    connect(&m_dismissTimer, &QTimer::timeout, this, [this] { m_display.hidePanel(); });
}

void BatchRunner::handleFiles(const QStringList& paths)
{
    // Settings are read once per batch; a change made meanwhile applies from the next batch on.
    runBatch(paths, CompressionSettings::current());
}

void BatchRunner::runBatch(const QStringList& paths, const CompressionSettings& settings,
                           std::function<void(const SessionResult&)> afterFinish)
{
    beginBatch(paths.size());

    // Called on the engine's worker: only posts the report to the main thread. The guard is
    // copied there and read only on the main thread, where the runner may have been destroyed.
    const QPointer<BatchRunner> guard(this);
    auto progress = [guard](int current, int total, const QString& label) {
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [guard, current, total, label] {
                if (guard)
                    guard->updateProgress(current, total, label);
            },
            Qt::QueuedConnection);
    };

    auto* watcher = new QFutureWatcher<SessionResult>(this);
    connect(watcher, &QFutureWatcher<SessionResult>::finished, this,
            [this, watcher, afterFinish = std::move(afterFinish)] {
                watcher->deleteLater();
                const SessionResult result = watcher->future().result();
                finishBatch(result);
                if (afterFinish)
                    afterFinish(result);
            });
    watcher->setFuture(m_engine(paths, settings, std::move(progress)));
}

void BatchRunner::beginBatch(qint64 total)
{
    m_state.start(total);
    m_display.setIconPulsing(true);
    m_display.showPanelAnchored();
}

void BatchRunner::updateProgress(qint64 current, qint64, const QString& fileName)
{
    m_state.update(current, fileName);
}

void BatchRunner::finishBatch(const SessionResult& result)
{
    m_lastSessionSummary = result.summary();
    m_state.complete(m_lastSessionSummary);
    m_display.setIconPulsing(false);
    // Each completion re-arms the hide, so it fires after the last of overlapping batches.
    m_dismissTimer.stop();
    m_dismissTimer.start();
    emit batchFinished(m_lastSessionSummary);
}
