#include <thread>

#include <QApplication>
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include "ControlledEngine.h"
#include "IsolatedConfig.h"
#include "RecordedNotifications.h"
#include "app/AppDelegate.h"
#include "app/FileCoordinator.h"
#include "engine/AppGroupDefaults.h"
#include "platform/NotificationCenter.h"
#include "ui/MenuBarManager.h"
#include "ui/OnboardingWindowController.h"
#include "ui/SettingsWindowController.h"

namespace {

// A batch in which every file failed to decode.
SessionResult failedBatch(const QStringList& paths)
{
    SessionResult session;
    for (const QString& path : paths) {
        CompressionResult result;
        result.sourceURL = path;
        result.error = CompressorError::CannotDecode;
        session.results.append(result);
    }
    return session;
}

const QString kFailedSummary = QStringLiteral("Failed · Cannot decode image");

// What the start-up sequence has done at one moment.
struct StartupSnapshot
{
    bool defaultsRegistered = false;
    bool managerExists = false;
    bool onboardingFlagStored = false;
    bool onboardingVisible = false;
    bool handOffPolling = false;
    bool updatesStarted = false;

    bool operator==(const StartupSnapshot&) const = default;
};

char* toString(const StartupSnapshot& s)
{
    return qstrdup(QStringLiteral("defaults %1 manager %2 flag %3 onboarding %4 poll %5 updates %6")
                       .arg(s.defaultsRegistered)
                       .arg(s.managerExists)
                       .arg(s.onboardingFlagStored)
                       .arg(s.onboardingVisible)
                       .arg(s.handOffPolling)
                       .arg(s.updatesStarted)
                       .toUtf8()
                       .constData());
}

// Calls `onShow` when the welcome window is shown.
class ShowWatcher final : public QObject
{
public:
    std::function<void()> onShow;

protected:
    bool eventFilter(QObject* object, QEvent* event) override
    {
        if (event->type() == QEvent::Show && object->objectName() == QLatin1String("onboardingWindow") &&
            onShow)
            onShow();
        return false;
    }
};

void setSuite(const QString& key, const QVariant& value)
{
    Defaults suite = Defaults::suite();
    suite.set(key, value);
    suite.sync();
}

} // namespace

class TestAppDelegate : public QObject
{
    Q_OBJECT

    std::unique_ptr<IsolatedConfig> m_config;
    std::unique_ptr<FileCoordinator> m_coordinator;
    std::unique_ptr<NotificationCenter> m_notifications;
    std::unique_ptr<OnboardingWindowController> m_onboarding;
    ControlledEngine m_engine;
    bool m_updatesStarted = false;

    AppDelegate::Services services(bool realEngine = false)
    {
        AppDelegate::Services s;
        if (!realEngine)
            s.engine = m_engine.engine();
        s.fileCoordinator = m_coordinator.get();
        s.notifications = m_notifications.get();
        s.onboarding = m_onboarding.get();
        s.startUpdateChecks = [this] { m_updatesStarted = true; };
        return s;
    }

    StartupSnapshot snapshot(const AppDelegate& delegate) const
    {
        StartupSnapshot s;
        s.defaultsRegistered = !Defaults::suite().registeredDefaults().isEmpty();
        s.managerExists = delegate.menuBarManager() != nullptr;
        s.onboardingFlagStored = Defaults::standard().boolean(AppDelegate::kHasShownOnboardingKey);
        s.onboardingVisible = m_onboarding->window() && m_onboarding->window()->isVisible();
        s.handOffPolling = m_coordinator->timer() != nullptr;
        s.updatesStarted = m_updatesStarted;
        return s;
    }

    QString cli() const { return qEnvironmentVariable("BREVONA_CLI"); }

    bool send(const QStringList& paths) const
    {
        QProcess sender;
        sender.start(cli(), QStringList{QStringLiteral("send")} + paths);
        return sender.waitForFinished(30000) && sender.exitStatus() == QProcess::NormalExit &&
               sender.exitCode() == 0;
    }

private slots:
    void init()
    {
        m_config = std::make_unique<IsolatedConfig>();
        m_coordinator = std::make_unique<FileCoordinator>();
        m_notifications = std::make_unique<NotificationCenter>();
        m_onboarding = std::make_unique<OnboardingWindowController>();
        m_engine.calls.clear();
        m_updatesStarted = false;
    }

    void cleanup()
    {
        m_onboarding.reset();
        m_notifications.reset();
        m_coordinator.reset();
        m_config.reset();
    }

    void startUpRunsInOrder()
    {
        AppDelegate delegate(services());
        QVERIFY(!delegate.menuBarManager());

        std::optional<StartupSnapshot> atOnboarding;
        ShowWatcher watcher;
        watcher.onShow = [&] { atOnboarding = snapshot(delegate); };
        qApp->installEventFilter(&watcher);
        delegate.applicationDidFinishLaunching();
        qApp->removeEventFilter(&watcher);

        QVERIFY(atOnboarding);
        QCOMPARE(*atOnboarding, (StartupSnapshot{.defaultsRegistered = true,
                                                 .managerExists = true,
                                                 .onboardingFlagStored = true,
                                                 .onboardingVisible = true,
                                                 .handOffPolling = false,
                                                 .updatesStarted = false}));
        QCOMPARE(snapshot(delegate), (StartupSnapshot{true, true, true, true, true, true}));
        QCOMPARE(m_coordinator->timer()->interval(), FileCoordinator::kPollIntervalMs);

        // A second call does not start anything again.
        MenuBarManager* manager = delegate.menuBarManager();
        QTimer* timer = m_coordinator->timer();
        delegate.applicationDidFinishLaunching();
        QCOMPARE(delegate.menuBarManager(), manager);
        QCOMPARE(m_coordinator->timer(), timer);
    }

    void updatesStartAfterTheHandOffPoll()
    {
        AppDelegate::Services s = services();
        std::optional<StartupSnapshot> atUpdates;
        AppDelegate* self = nullptr;
        s.startUpdateChecks = [&] { atUpdates = snapshot(*self); };
        AppDelegate delegate(s);
        self = &delegate;
        delegate.applicationDidFinishLaunching();
        QVERIFY(atUpdates);
        QVERIFY(atUpdates->handOffPolling);
        QVERIFY(atUpdates->onboardingVisible);
    }

    void onboardingShowsOnceUntilTheFlagIsRemoved()
    {
        const auto launch = [this] {
            m_onboarding = std::make_unique<OnboardingWindowController>();
            m_coordinator = std::make_unique<FileCoordinator>();
            AppDelegate delegate(services());
            delegate.applicationDidFinishLaunching();
            return m_onboarding->window() != nullptr && m_onboarding->window()->isVisible();
        };
        QVERIFY(launch());
        QVERIFY(!launch());
        QVERIFY(!launch());
        // The flag lives in the application's own store, not in the shared suite.
        QVERIFY(Defaults::standard().hasStoredValue(AppDelegate::kHasShownOnboardingKey));
        QVERIFY(!Defaults::suite().hasStoredValue(AppDelegate::kHasShownOnboardingKey));

        Defaults standard = Defaults::standard();
        standard.remove(AppDelegate::kHasShownOnboardingKey);
        standard.sync();
        QVERIFY(launch());
        QVERIFY(!launch());
    }

    void handedOverListsRunAsSeparateBatches()
    {
        AppDelegate delegate(services());
        delegate.applicationDidFinishLaunching();
        QSignalSpy finished(&delegate, &AppDelegate::handOffBatchFinished);
        CompressionState& state = delegate.menuBarManager()->compressionState();

        setSuite(AppGroupDefaults::Keys::pendingFiles,
                 QStringList{QStringLiteral("/x/a b.png"), QStringLiteral("/x/ç.jpg")});
        m_coordinator->poll();
        setSuite(AppGroupDefaults::Keys::pendingFiles, QStringList{QStringLiteral("/x/c.png")});
        m_coordinator->poll();
        QVERIFY(m_engine.calls.isEmpty()); // each list runs from the event loop, not inside the poll

        // The second batch starts while the first is still running.
        QTRY_COMPARE_WITH_TIMEOUT(m_engine.calls.size(), 2, 10000);
        QCOMPARE(m_engine.calls[0].paths,
                 (QStringList{QStringLiteral("/x/a b.png"), QStringLiteral("/x/ç.jpg")}));
        QCOMPARE(m_engine.calls[1].paths, QStringList{QStringLiteral("/x/c.png")});
        QCOMPARE(state.total(), 1);
        QVERIFY(state.isRunning());

        m_engine.finish(0, failedBatch(m_engine.calls[0].paths));
        m_engine.finish(1, failedBatch(m_engine.calls[1].paths));
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 2, 10000);
        QCOMPARE(finished.at(0).at(0).toString(), kFailedSummary);
        QVERIFY(state.isComplete());
        QCOMPARE(state.completionMessage(), kFailedSummary);
        QCOMPARE(delegate.menuBarManager()->lastSessionSummary(), kFailedSummary);
    }

    void progressFromTheWorkerReachesTheState()
    {
        AppDelegate delegate(services());
        delegate.applicationDidFinishLaunching();
        CompressionState& state = delegate.menuBarManager()->compressionState();
        const QStringList paths{QStringLiteral("/p/one.png"), QStringLiteral("/p/two.png")};
        delegate.runHandOffBatch(paths);
        QCOMPARE(state.total(), 2);
        QVERIFY(state.isRunning());
        QCOMPARE(m_engine.calls.size(), 1);

        std::thread worker([progress = m_engine.calls[0].progress] {
            progress(0, 2, QStringLiteral("one.png"));
            progress(1, 2, QStringLiteral("two.png"));
        });
        worker.join();
        QCOMPARE(state.currentFile(), QString()); // nothing applied on the worker
        QTRY_COMPARE_WITH_TIMEOUT(state.currentFile(), QStringLiteral("two.png"), 10000);
        QCOMPARE(state.current(), 1);
    }

    void settingsChoiceOpensTheSettingsWindow()
    {
        AppDelegate delegate(services());
        delegate.applicationDidFinishLaunching();
        emit delegate.menuBarManager()->settingsRequested();
        QWidget* window = SettingsWindowController::shared().window();
        QVERIFY(window);
        QVERIFY(window->isVisible());
        window->close();
    }

    void listArrivingAfterTheDelegateIsGoneIsDropped()
    {
        {
            AppDelegate delegate(services());
            delegate.applicationDidFinishLaunching();
        }
        setSuite(AppGroupDefaults::Keys::pendingFiles, QStringList{QStringLiteral("/late.png")});
        m_coordinator->poll();
        QCoreApplication::processEvents();
        QVERIFY(m_engine.calls.isEmpty());
        QVERIFY(!Defaults::suite().hasStoredValue(AppGroupDefaults::Keys::pendingFiles));
    }

    void notificationPerHandOffBatch_data()
    {
        QTest::addColumn<bool>("showNotifications");
        QTest::addColumn<int>("batches");
        QTest::newRow("on, one batch") << true << 1;
        QTest::newRow("on, two batches") << true << 2;
        QTest::newRow("off") << false << 2;
    }

    void notificationPerHandOffBatch()
    {
        QFETCH(bool, showNotifications);
        QFETCH(int, batches);
        if (!onPrivateSessionBus())
            QSKIP("needs the private session bus that CTest starts (dbus-run-session)");
        RecordedNotifications recorded(QStringLiteral(NOTIFICATION_RECORDER));
        QVERIFY(recorded.isReady());
        setSuite(AppGroupDefaults::Keys::showNotifications, showNotifications);

        AppDelegate delegate(services());
        delegate.applicationDidFinishLaunching();
        QSignalSpy finished(&delegate, &AppDelegate::handOffBatchFinished);
        for (int i = 0; i < batches; ++i) {
            setSuite(AppGroupDefaults::Keys::pendingFiles, QStringList{QStringLiteral("/n/%1.png").arg(i)});
            m_coordinator->poll();
        }
        QTRY_COMPARE_WITH_TIMEOUT(m_engine.calls.size(), batches, 10000);
        for (int i = 0; i < batches; ++i)
            m_engine.finish(i, failedBatch(m_engine.calls[i].paths));
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), batches, 20000);

        // Anything the delegate posted reaches the service before a marker posted afterwards.
        m_notifications->post(QStringLiteral("marker"), QString());
        QTRY_VERIFY_WITH_TIMEOUT(!recorded.calls().isEmpty() && recorded.calls().last().value(QStringLiteral(
                                                                    "summary")) == QLatin1String("marker"),
                                 20000);
        const QList<QJsonObject> calls = recorded.calls().mid(0, recorded.calls().size() - 1);
        QCOMPARE(calls.size(), showNotifications ? batches : 0);
        for (const QJsonObject& call : calls) {
            QCOMPARE(call.value(QStringLiteral("summary")).toString(), QStringLiteral("\u26A1 Brevona"));
            QCOMPARE(call.value(QStringLiteral("body")).toString(), kFailedSummary);
            QCOMPARE(call.value(QStringLiteral("appName")).toString(), QStringLiteral("Brevona"));
        }
    }

    void filesSentByTheCommandLineToolAreCompressedAndReported()
    {
        if (!onPrivateSessionBus())
            QSKIP("needs the private session bus that CTest starts (dbus-run-session)");
        if (!QFileInfo::exists(cli()))
            QSKIP("BREVONA_CLI does not name the built brevona-cli");
        RecordedNotifications recorded(QStringLiteral(NOTIFICATION_RECORDER));
        QVERIFY(recorded.isReady());
        QTemporaryDir work;
        const QStringList sources{work.filePath(QStringLiteral("mon profil ü.jpg")),
                                  work.filePath(QStringLiteral("radial.png"))};
        QVERIFY(
            QFile::copy(QStringLiteral(BREVONA_TEST_DATA "/exiv2-bug884b-monitor-profile.jpg"), sources[0]));
        QVERIFY(QFile::copy(QStringLiteral(BREVONA_TEST_DATA "/pil-radial_gradients.png"), sources[1]));

        AppDelegate delegate(services(true));
        delegate.applicationDidFinishLaunching();
        QSignalSpy finished(&delegate, &AppDelegate::handOffBatchFinished);
        QVERIFY(send(sources));

        QVERIFY(finished.wait(60000));
        QCOMPARE(delegate.menuBarManager()->compressionState().total(), 2);
        QTRY_COMPARE_WITH_TIMEOUT(recorded.calls().size(), 1, 20000);
        QCOMPARE(recorded.calls().first().value(QStringLiteral("body")).toString(),
                 delegate.menuBarManager()->lastSessionSummary());
        QVERIFY(QFileInfo::exists(work.filePath(QStringLiteral("mon profil ü-web.jpg"))));
        QVERIFY(!Defaults::suite().hasStoredValue(AppGroupDefaults::Keys::pendingFiles));
    }
};

QTEST_MAIN(TestAppDelegate)
#include "tst_appdelegate.moc"
