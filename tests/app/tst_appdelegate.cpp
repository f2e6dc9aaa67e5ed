#include <QApplication>
#include <QFile>
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
#include "ui/DropZonePanelController.h"
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
    QStringList m_atUpdates;

    AppDelegate::Services services(bool realEngine = false)
    {
        AppDelegate::Services s;
        if (!realEngine)
            s.engine = m_engine.engine();
        s.fileCoordinator = m_coordinator.get();
        s.notifications = m_notifications.get();
        s.onboarding = m_onboarding.get();
        s.startUpdateChecks = [this] {
            m_atUpdates = snapshot();
            m_updatesStarted = true;
        };
        return s;
    }

    // What the start-up sequence has done so far.
    QStringList snapshot() const
    {
        QStringList done;
        const auto note = [&done](bool happened, const char* step) {
            if (happened)
                done << step;
        };
        note(!QGuiApplication::quitOnLastWindowClosed(), "closing a window does not quit");
        note(!Defaults::suite().registeredDefaults().isEmpty(), "defaults");
        note(DropZonePanelController::shared().panel(), "tray");
        note(Defaults::standard().boolean(AppDelegate::kHasShownOnboardingKey), "onboarding flag");
        note(m_onboarding->window() && m_onboarding->window()->isVisible(), "onboarding");
        note(m_coordinator->timer(), "hand-off poll");
        note(m_updatesStarted, "updates");
        return done;
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
        QGuiApplication::setQuitOnLastWindowClosed(true); // Qt's default
        AppDelegate delegate(services());
        QStringList atOnboarding;
        ShowWatcher watcher;
        watcher.onShow = [&] { atOnboarding = snapshot(); };
        qApp->installEventFilter(&watcher);
        delegate.applicationDidFinishLaunching();
        qApp->removeEventFilter(&watcher);

        const QStringList all{"closing a window does not quit",
                              "defaults",
                              "tray",
                              "onboarding flag",
                              "onboarding",
                              "hand-off poll",
                              "updates"};
        QCOMPARE(atOnboarding, all.mid(0, 5));
        QCOMPARE(m_atUpdates, all.mid(0, 6));
        QCOMPARE(snapshot(), all);
        QVERIFY(delegate.menuBarManager());

        // A second call does not start anything again.
        MenuBarManager* manager = delegate.menuBarManager();
        QTimer* timer = m_coordinator->timer();
        delegate.applicationDidFinishLaunching();
        QCOMPARE(delegate.menuBarManager(), manager);
        QCOMPARE(m_coordinator->timer(), timer);

        // The tray menu's Settings choice opens the settings window.
        emit delegate.menuBarManager()->settingsRequested();
        QWidget* settings = SettingsWindowController::shared().window();
        QVERIFY(settings && settings->isVisible());
        settings->close();
    }

    // The flag the first launch set (in the application's own store) keeps the window away.
    void onboardingShowsOnlyOnTheFirstLaunch()
    {
        AppDelegate(services()).applicationDidFinishLaunching();
        m_onboarding = std::make_unique<OnboardingWindowController>();
        AppDelegate(services()).applicationDidFinishLaunching();
        QVERIFY(!m_onboarding->window());
        QVERIFY(!Defaults::suite().hasStoredValue(AppDelegate::kHasShownOnboardingKey));
    }

    void listArrivingAfterTheDelegateIsGoneIsDropped()
    {
        AppDelegate(services()).applicationDidFinishLaunching();
        IsolatedConfig::store(AppGroupDefaults::Keys::pendingFiles, QStringList{QStringLiteral("/late.png")});
        m_coordinator->poll();
        QCoreApplication::processEvents();
        QVERIFY(m_engine.calls.isEmpty());
    }

    void notificationPerHandOffBatch_data()
    {
        QTest::addColumn<bool>("showNotifications");
        QTest::addColumn<int>("batches");
        QTest::addColumn<bool>("realEngine");
        QTest::newRow("on, two batches") << true << 2 << false;
        QTest::newRow("off") << false << 2 << false;
        QTest::newRow("real files through the engine") << true << 1 << true;
    }

    void notificationPerHandOffBatch()
    {
        QFETCH(bool, showNotifications);
        QFETCH(int, batches);
        QFETCH(bool, realEngine);
        if (!onPrivateSessionBus())
            QSKIP("needs the private session bus that CTest starts (dbus-run-session)");
        RecordedNotifications recorded(QStringLiteral(NOTIFICATION_RECORDER));
        QVERIFY(recorded.isReady());
        IsolatedConfig::store(AppGroupDefaults::Keys::showNotifications, showNotifications);

        QTemporaryDir work;
        QStringList paths{QStringLiteral("/n/a b.png"), QStringLiteral("/n/ç.jpg")};
        if (realEngine) {
            paths = {work.filePath(QStringLiteral("mon profil ü.jpg")),
                     work.filePath(QStringLiteral("radial.png"))};
            QVERIFY(QFile::copy(QStringLiteral(BREVONA_TEST_DATA "/exiv2-bug884b-monitor-profile.jpg"),
                                paths[0]));
            QVERIFY(QFile::copy(QStringLiteral(BREVONA_TEST_DATA "/pil-radial_gradients.png"), paths[1]));
        }

        AppDelegate delegate(services(realEngine));
        delegate.applicationDidFinishLaunching();
        QSignalSpy finished(&delegate, &AppDelegate::handOffBatchFinished);
        for (int i = 0; i < batches; ++i) {
            IsolatedConfig::store(AppGroupDefaults::Keys::pendingFiles, realEngine ? paths : paths.mid(i, 1));
            m_coordinator->poll();
        }
        if (!realEngine) { // each list is a batch of its own, the next starting while one runs
            QTRY_COMPARE_WITH_TIMEOUT(m_engine.calls.size(), batches, 10000);
            for (int i = 0; i < batches; ++i) {
                QCOMPARE(m_engine.calls[i].paths, paths.mid(i, 1));
                m_engine.finish(i, failedBatch(m_engine.calls[i].paths));
            }
        }
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), batches, 60000);

        // Anything the delegate posted reaches the service before a marker posted afterwards.
        m_notifications->post(QStringLiteral("marker"), QString());
        QTRY_VERIFY_WITH_TIMEOUT(!recorded.calls().isEmpty() && recorded.calls().last().value(QStringLiteral(
                                                                    "summary")) == QLatin1String("marker"),
                                 20000);
        const QList<QJsonObject> calls = recorded.calls().mid(0, recorded.calls().size() - 1);
        QCOMPARE(calls.size(), showNotifications ? batches : 0);
        const QString summary = delegate.menuBarManager()->lastSessionSummary();
        QCOMPARE(summary, realEngine ? finished.at(0).at(0).toString() : kFailedSummary);
        for (const QJsonObject& call : calls) {
            QCOMPARE(call.value(QStringLiteral("summary")).toString(), QStringLiteral("\u26A1 Brevona"));
            QCOMPARE(call.value(QStringLiteral("body")).toString(), summary);
        }
        if (realEngine) {
            QCOMPARE(delegate.menuBarManager()->compressionState().total(), 2);
            QVERIFY(QFileInfo::exists(work.filePath(QStringLiteral("mon profil ü-web.jpg"))));
        }
    }
};

QTEST_MAIN(TestAppDelegate)
#include "tst_appdelegate.moc"
