#include <memory>

#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
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

QTimer* hideTimer(BatchRunner& runner)
{
    return runner.findChild<QTimer*>(QString(), Qt::FindDirectChildrenOnly);
}

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

    // A batch of four through the real engine: the state sees start, one update per report (sent
    // from the engine's worker threads, applied here in order), then completion keeping the last
    // report's values.
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
        QCOMPARE(recorder.take().first(), QStringLiteral("total=4")); // how a start reads is the state's own
        QVERIFY(finished.wait(120000));

        QStringList expected;
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
        QVERIFY(hideTimer(runner)->isActive());
    }

    // The list reaches the engine untouched, with the settings stored when the batch began.
    void listsPassedAsGiven_data()
    {
        QTest::addColumn<QStringList>("paths");
        QTest::newRow("empty") << QStringList{};
        QTest::newRow("unsorted, repeated, not images")
            << QStringList{"/p/b.png", "/p/a.png", "/p/b.png", "/p/notes.txt", "/p/folder"};
    }
    void listsPassedAsGiven()
    {
        QFETCH(QStringList, paths);
        IsolatedConfig::store(AppGroupDefaults::Keys::maxFileSizeKB, qint64(777));
        Rig rig;
        auto& [engine, displayLog, display, state, runner] = rig;
        runner.handleFiles(paths);
        IsolatedConfig::store(AppGroupDefaults::Keys::maxFileSizeKB, qint64(100)); // too late for this batch
        QCOMPARE(engine.calls.at(0).paths, paths);
        QCOMPARE(engine.calls.at(0).settings.maxFileSizeKB, 777);
        QVERIFY(state.isRunning());
        QCOMPARE(state.total(), paths.size());
        QCOMPARE(state.progress(), 0.0);
        engine.finish(0, SessionResult{});
        QTRY_VERIFY(state.isComplete());
        QCOMPARE(state.completionMessage(), SessionResult{}.summary());
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
        QCoreApplication::processEvents();
        QCoreApplication::processEvents();
        QCOMPARE(state.current(), 0);
        QVERIFY(state.isRunning());
    }

    // The panel hides 3 s after the last completion: each completion re-arms the hide, a new
    // batch does not cancel it, and progress does not bring the panel back.
    void hideAfterTheLastCompletion()
    {
        Rig rig;
        auto& [engine, log, display, state, runner] = rig;
        QTimer* hide = hideTimer(runner);
        QCOMPARE(hide->interval(), BatchRunner::kDismissDelayMs);
        QCOMPARE(BatchRunner::kDismissDelayMs, 3000);
        QVERIFY(hide->isSingleShot() && !hide->isActive());
        runner.handleFiles({"/a.jpg"});
        QVERIFY(!hide->isActive());
        engine.finish(0, optimized(100000, 10000));
        QTRY_VERIFY(hide->isActive());
        runner.handleFiles({"/b.jpg", "/c.jpg"});
        QTest::qWait(600); // the first countdown runs on; the next completion starts it again
        runner.finishBatch(optimized(100000, 20000));
        QVERIFY2(hide->remainingTime() > 2700, qPrintable(QString::number(hide->remainingTime())));
        runner.handleFiles({"/d.jpg"}); // a new batch leaves the pending hide alone
        QVERIFY(hide->isActive());
        hide->setInterval(0);
        QTRY_VERIFY(log.contains("hide"));
        engine.calls[2].progress(1, 2, QStringLiteral("d.jpg"));
        QTRY_COMPARE(state.current(), 1);
        QCOMPARE(log, (QStringList{"pulse on", "show", "pulse off", "pulse on", "show", "pulse off",
                                   "pulse on", "show", "hide"}));
    }

private:
    std::unique_ptr<IsolatedConfig> m_config;
};

QTEST_GUILESS_MAIN(TestBatchRunner)
#include "tst_batchrunner.moc"
