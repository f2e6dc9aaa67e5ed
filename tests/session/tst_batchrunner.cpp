#include <memory>

#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QTimer>

#include "ControlledEngine.h"
#include "IsolatedConfig.h"
#include "StateRecorder.h"
#include "engine/AppGroupDefaults.h"
#include "session/BatchDisplay.h"
#include "session/BatchRunner.h"
#include "session/CompressionState.h"

namespace {

/// Records the runner's display calls into a shared log.
class RecordingDisplay final : public BatchDisplay
{
public:
    explicit RecordingDisplay(QStringList& log) : m_log(log) {}
    void showPanelAnchored() override { m_log << QStringLiteral("show"); }
    void hidePanel() override { m_log << QStringLiteral("hide"); }
    void setIconPulsing(bool pulsing) override
    {
        m_log << (pulsing ? QStringLiteral("pulse on") : QStringLiteral("pulse off"));
    }

private:
    QStringList& m_log;
};

/// A runner over a controlled engine, recording what it asks of the display.
struct Rig
{
    ControlledEngine engine;
    QStringList log;
    RecordingDisplay display{log};
    CompressionState state;
    BatchRunner runner{state, display, engine.engine()};
};

SessionResult undecodable(int count)
{
    SessionResult result;
    for (int i = 0; i < count; ++i)
        result.results.append(
            {QStringLiteral("/x%1.jpg").arg(i), std::nullopt, 0, 0, CompressorError::CannotDecode});
    return result;
}

SessionResult optimized(qint64 original, qint64 compressed)
{
    return SessionResult{
        {{QStringLiteral("/a.png"), QStringLiteral("/a-web.jpg"), original, compressed, std::nullopt}}};
}

} // namespace

class TestBatchRunner : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_config = std::make_unique<IsolatedConfig>(); }
    void cleanup() { m_config.reset(); }

    // A batch of four through the real engine: the state sees start, one update per report,
    // then completion keeping the last report's values.
    void fourFilesThroughTheEngine()
    {
        AppGroupDefaults::registerDefaults();
        QTemporaryDir dir;
        QStringList paths;
        const QStringList sources{QStringLiteral("orient1-360x240.jpg"), QStringLiteral("rgba-32x32.png")};
        for (int i = 0; i < 4; ++i) {
            const QString target = dir.filePath(QStringLiteral("in%1-%2").arg(i).arg(sources[i % 2]));
            QVERIFY(QFile::copy(QStringLiteral(BREVONA_TEST_DATA "/") + sources[i % 2], target));
            paths << target;
        }

        QStringList displayLog;
        RecordingDisplay display(displayLog);
        CompressionState state;
        StateRecorder recorder(state);
        BatchRunner runner(state, display);
        QSignalSpy finished(&runner, &BatchRunner::batchFinished);
        runner.handleFiles(paths);
        QVERIFY(finished.wait(120000));

        QStringList expected{"total=4",          "current=0",          "currentFile=",
                             "isComplete=false", "completionMessage=", "isRunning=true"};
        for (int i = 0; i < 4; ++i)
            expected << QStringLiteral("current=%1").arg(i)
                     << QStringLiteral("currentFile=%1").arg(QFileInfo(paths[i]).fileName());
        expected << "current=4"
                 << "currentFile=";
        const QString summary = finished.at(0).at(0).toString();
        expected << "isComplete=true" << QStringLiteral("completionMessage=%1").arg(summary)
                 << "isRunning=false";
        QCOMPARE(recorder.take(), expected);
        QCOMPARE(state.current(), 4);
        QCOMPARE(runner.lastSessionSummary(), state.completionMessage());
        // The stored settings reached the engine: JPEG outputs with the default suffix beside each input.
        QCOMPARE(QDir(dir.path()).entryList({QStringLiteral("*-web.jpg")}).size(), 4);
        QCOMPARE(displayLog, (QStringList{"pulse on", "show", "pulse off"}));
        QVERIFY(runner.isDismissPending());
    }

    void emptyListStillRuns()
    {
        Rig rig;
        auto& [engine, displayLog, display, state, runner] = rig;
        runner.handleFiles({});
        QCOMPARE(engine.calls.size(), 1);
        QVERIFY(engine.calls[0].paths.isEmpty());
        QVERIFY(state.isRunning());
        QCOMPARE(state.total(), 0);
        QCOMPARE(state.progress(), 0.0);
        engine.finish(0, SessionResult{});
        QTRY_VERIFY(state.isComplete());
        QCOMPARE(state.completionMessage(), SessionResult{}.summary());
    }

    // The list reaches the engine untouched, with the settings stored when the batch began.
    void listAndSettingsPassedAsGiven()
    {
        Defaults suite = AppGroupDefaults::open();
        suite.set(AppGroupDefaults::Keys::maxFileSizeKB, qint64(777));
        suite.sync();
        Rig rig;
        auto& [engine, displayLog, display, state, runner] = rig;
        const QStringList paths{"/p/b.png", "/p/a.png", "/p/b.png", "/p/notes.txt", "/p/folder"};
        runner.handleFiles(paths);
        suite.set(AppGroupDefaults::Keys::maxFileSizeKB, qint64(100)); // too late for this batch
        suite.sync();
        QCOMPARE(engine.calls.at(0).paths, paths);
        QCOMPARE(engine.calls.at(0).settings.maxFileSizeKB, 777);
        QCOMPARE(state.total(), 5);
    }

    void overlappingBatches()
    {
        Rig rig;
        auto& [engine, displayLog, display, state, runner] = rig;
        runner.handleFiles({"/a.jpg", "/b.jpg", "/c.jpg"});
        engine.calls[0].progress(1, 3, QStringLiteral("b.jpg"));
        QTRY_COMPARE(state.current(), 1);

        // A second drop resets the counters at once, without waiting for the first batch.
        runner.handleFiles({"/d.jpg", "/e.jpg"});
        QCOMPARE(state.current(), 0);
        QCOMPARE(state.total(), 2);
        QCOMPARE(engine.calls.size(), 2);

        // Reports interleave; the later completion wins.
        engine.calls[0].progress(2, 3, QStringLiteral("c.jpg"));
        QTRY_COMPARE(state.currentFile(), QStringLiteral("c.jpg"));
        engine.finish(1, optimized(300000, 100000));
        QTRY_VERIFY(state.isComplete());
        const QString second = state.completionMessage();
        engine.finish(0, undecodable(3));
        QTRY_COMPARE(state.completionMessage(), undecodable(3).summary());
        QVERIFY(second != state.completionMessage());
        QCOMPARE(runner.lastSessionSummary(), state.completionMessage());
        QCOMPARE(displayLog, (QStringList{"pulse on", "show", "pulse on", "show", "pulse off", "pulse off"}));
    }

    void lateReportOnlyRewritesCounters()
    {
        Rig rig;
        auto& [engine, displayLog, display, state, runner] = rig;
        runner.handleFiles({"/a.jpg", "/b.jpg"});
        engine.finish(0, optimized(200000, 50000));
        QTRY_VERIFY(state.isComplete());
        const QString message = state.completionMessage();
        engine.calls[0].progress(2, 2, QString());
        QTRY_COMPARE(state.current(), 2);
        QVERIFY(state.isComplete());
        QVERIFY(!state.isRunning());
        QCOMPARE(state.completionMessage(), message);
    }

    // Reports come from the engine's worker thread and are applied on the main thread.
    void reportsFromAnotherThread()
    {
        Rig rig;
        auto& [engine, displayLog, display, state, runner] = rig;
        runner.handleFiles({"/a.jpg", "/b.jpg"});
        QThread* worker = QThread::create([progress = engine.calls[0].progress] {
            progress(0, 2, QStringLiteral("a.jpg"));
            progress(1, 2, QStringLiteral("b.jpg"));
        });
        worker->start();
        QVERIFY(worker->wait(10000));
        delete worker;
        QCOMPARE(state.current(), 0); // nothing applied until the main loop runs
        QTRY_COMPARE(state.currentFile(), QStringLiteral("b.jpg"));
        QCOMPARE(state.current(), 1);
    }

    void reportsAfterTheRunnerIsGoneAreDropped()
    {
        ControlledEngine engine;
        QStringList displayLog;
        RecordingDisplay display(displayLog);
        CompressionState state;
        auto runner = std::make_unique<BatchRunner>(state, display, engine.engine());
        runner->handleFiles({"/a.jpg"});
        runner.reset();
        engine.calls[0].progress(1, 1, QStringLiteral("a.jpg"));
        engine.finish(0, optimized(100000, 10000));
        QTest::qWait(50);
        QCOMPARE(state.current(), 0);
        QVERIFY(state.isRunning());
    }

    // Two completions: the panel is hidden once, a full delay after the second. The marker is
    // armed after the second completion for less than the delay, so it must come before the hide
    // if the second completion re-armed it, and after it if only the first had armed it.
    void hideReArmedByTheNextCompletion()
    {
        constexpr int delay = 400;
        Rig rig;
        auto& [engine, log, display, state, runner] = rig;
        runner.setDismissDelay(delay);
        runner.beginBatch(1);
        runner.finishBatch(optimized(100000, 10000));
        log << "first done";
        QTimer::singleShot(delay / 2, this, [&] {
            runner.finishBatch(optimized(100000, 20000));
            log << "second done";
            QTimer::singleShot(delay * 3 / 4, this, [&] { log << "marker"; });
        });
        QTRY_VERIFY_WITH_TIMEOUT(log.contains("hide"), 10000);
        QTest::qWait(delay);
        QCOMPARE(log, (QStringList{"pulse on", "show", "pulse off", "first done", "pulse off", "second done",
                                   "marker", "hide"}));
        QCOMPARE(state.completionMessage(), optimized(100000, 20000).summary());
    }

    // A hide that fires during a later batch hides the panel; progress does not bring it back.
    void hideIsNotCancelledByANewBatch()
    {
        Rig rig;
        auto& [engine, log, display, state, runner] = rig;
        runner.setDismissDelay(50);
        runner.handleFiles({"/a.jpg"});
        engine.finish(0, optimized(100000, 10000));
        QTRY_VERIFY(state.isComplete());
        runner.handleFiles({"/b.jpg", "/c.jpg"});
        QTRY_VERIFY(log.contains("hide"));
        engine.calls[1].progress(1, 2, QStringLiteral("c.jpg"));
        QTRY_COMPARE(state.current(), 1);
        QCOMPARE(log, (QStringList{"pulse on", "show", "pulse off", "pulse on", "show", "hide"}));
    }

private:
    std::unique_ptr<IsolatedConfig> m_config;
};

QTEST_GUILESS_MAIN(TestBatchRunner)
#include "tst_batchrunner.moc"
