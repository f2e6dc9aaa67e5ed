#pragma once

#include <functional>
#include <memory>

#include <QObject>
#include <QPointer>
#include <QStringList>

#include "session/BatchRunner.h"

class FileCoordinator;
class MenuBarManager;
class NotificationCenter;
class OnboardingWindowController;

/**
 * Starts the application and runs the batches that the companion tool hands over.
 *
 * `applicationDidFinishLaunching()` runs the start-up sequence once, in this order: settings
 * defaults and their migration, the tray manager, notifications, the first-run welcome window,
 * the hand-off poll, the update schedule. Each list of handed-over files becomes one batch shown
 * like a drop, followed by a "⚡ Brevona" notification with its summary when the batch's
 * settings ask for notifications.
 * @code
 * AppDelegate delegate;
 * delegate.applicationDidFinishLaunching();
 * return app.exec();
 * @endcode
 */
class AppDelegate final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(AppDelegate)

public:
    /// The standard store's first-run flag.
    static inline const QString kHasShownOnboardingKey = QStringLiteral("hasShownOnboarding");
    static inline const QString kNotificationTitle = QStringLiteral("\u26A1 Brevona");

    /// What the delegate works with; tests replace parts. Empty members mean the process's own.
    struct Services
    {
        /// Compresses a hand-off batch (and the manager's drops); the shared compressor by default.
        BatchRunner::Engine engine;
        FileCoordinator* fileCoordinator = nullptr;
        NotificationCenter* notifications = nullptr;
        OnboardingWindowController* onboarding = nullptr;
        /// Starts the automatic update checks.
        std::function<void()> startUpdateChecks;
    };

    explicit AppDelegate(QObject* parent = nullptr);
    explicit AppDelegate(Services services, QObject* parent = nullptr);
    ~AppDelegate() override;

    /// Empty until start-up has created it, then set for the life of the delegate.
    MenuBarManager* menuBarManager() const { return m_menuBarManager.get(); }

    /// The start-up sequence; runs once, later calls do nothing.
    void applicationDidFinishLaunching();

    /// One batch over handed-over files: the manager's display, the engine, then the notification.
    void runHandOffBatch(const QStringList& paths);

    /// Shows the drop-zone panel, for a second launch of the application.
    void bringPanelForward();

signals:
    /// A hand-off batch has finished and its notification, if any, has been posted.
    void handOffBatchFinished(const QString& summary);

private:
    void setUpNotifications();
    void showOnboardingOnFirstRun();
    void startHandOff();
    void wireSettingsWindow();

    Services m_services;
    std::unique_ptr<MenuBarManager> m_menuBarManager;
    bool m_started = false;
};
