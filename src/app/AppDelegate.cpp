#include "app/AppDelegate.h"

#include <QGuiApplication>
#include <QIcon>
#include <QSystemTrayIcon>

#include "app/FileCoordinator.h"
#include "app/LaunchAtLoginManager.h"
#include "app/UpdateChecker.h"
#include "engine/AppGroupDefaults.h"
#include "engine/CompressionSettings.h"
#include "engine/ImageCompressor.h"
#include "engine/VipsRuntime.h"
#include "platform/Defaults.h"
#include "platform/NotificationCenter.h"
#include "ui/DropZonePanelController.h"
#include "ui/MenuBarManager.h"
#include "ui/OnboardingWindowController.h"
#include "ui/SettingsWindowController.h"

AppDelegate::AppDelegate(QObject* parent) : AppDelegate(Services{}, parent) {}

AppDelegate::AppDelegate(Services services, QObject* parent)
    : QObject(parent), m_services(std::move(services))
{
    if (!m_services.engine) {
        m_services.engine = [](const QStringList& paths, const CompressionSettings& settings,
                               ImageCompressor::ProgressCallback progress) {
            return ImageCompressor::shared().compress(paths, settings, std::move(progress));
        };
    }
    if (!m_services.fileCoordinator)
        m_services.fileCoordinator = &FileCoordinator::shared();
    if (!m_services.notifications)
        m_services.notifications = &NotificationCenter::current();
    if (!m_services.onboarding)
        m_services.onboarding = &OnboardingWindowController::shared();
    if (!m_services.startUpdateChecks)
        m_services.startUpdateChecks = [] { UpdateChecker::shared().start(); };
}

AppDelegate::~AppDelegate()
{
    m_services.notifications->setFallback({});
}

void AppDelegate::applicationDidFinishLaunching()
{
    if (m_started)
        return;
    m_started = true;

    // The tray icon keeps the application alive; closing a window is not quitting.
    QGuiApplication::setQuitOnLastWindowClosed(false);
    // A tray application runs all day: what a batch used goes back to the system afterwards.
    VipsRuntime::preferReturningMemory();
    // Every later step reads settings from the suite.
    AppGroupDefaults::registerDefaults();
    m_menuBarManager = std::make_unique<MenuBarManager>(m_services.engine);
    wireSettingsWindow();
    setUpNotifications();
    showOnboardingOnFirstRun();
    startHandOff();
    m_services.startUpdateChecks();
}

void AppDelegate::wireSettingsWindow()
{
    SettingsWindowController& settings = SettingsWindowController::shared();
    settings.configure(&UpdateChecker::shared(), LaunchAtLoginHooks{&LaunchAtLoginManager::isEnabled,
                                                                    &LaunchAtLoginManager::setEnabled});
    connect(m_menuBarManager.get(), &MenuBarManager::settingsRequested, this,
            [] { SettingsWindowController::shared().showSettings(); });
}

void AppDelegate::setUpNotifications()
{
    // Without a notification service the summary goes to the tray icon's balloon, if there is one.
    const QPointer<MenuBarManager> manager(m_menuBarManager.get());
    m_services.notifications->setFallback([manager](const QString& title, const QString& body) {
        if (manager && manager->trayIcon())
            manager->trayIcon()->showMessage(title, body, QIcon::fromTheme(NotificationCenter::kIconName));
    });
    m_services.notifications->requestAuthorization([](bool) {});
}

void AppDelegate::showOnboardingOnFirstRun()
{
    Defaults standard = Defaults::standard();
    if (standard.boolean(kHasShownOnboardingKey))
        return;
    // Set before the window shows, so quitting while it is open does not bring it back.
    standard.set(kHasShownOnboardingKey, true);
    standard.sync();
    m_services.onboarding->show();
}

void AppDelegate::startHandOff()
{
    const QPointer<AppDelegate> guard(this);
    m_services.fileCoordinator->startPolling([guard](const QStringList& paths) {
        if (!guard)
            return;
        QMetaObject::invokeMethod(
            guard.data(), [guard, paths] { guard->runHandOffBatch(paths); }, Qt::QueuedConnection);
    });
}

void AppDelegate::runHandOffBatch(const QStringList& paths)
{
    const CompressionSettings settings = CompressionSettings::current();
    if (!m_menuBarManager)
        qFatal("AppDelegate: hand-off batch before start-up");
    // Only files that arrive from outside are confirmed by a notification.
    m_menuBarManager->batchRunner().runBatch(paths, settings, [this, settings](const SessionResult& result) {
        const QString summary = result.summary();
        if (settings.showNotifications)
            m_services.notifications->post(kNotificationTitle, summary);
        emit handOffBatchFinished(summary);
    });
}

void AppDelegate::bringPanelForward()
{
    if (!m_menuBarManager)
        return;
    // A second launch is the user asking for the panel, so it takes the keyboard focus.
    DropZonePanelController::shared().show(m_menuBarManager->anchorRect(), m_menuBarManager->lastClick(),
                                           DropZonePanelController::Opening::ByUser);
}
