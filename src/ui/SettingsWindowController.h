#pragma once

#include <QObject>
#include <QPointer>

#include "platform/BundleInfo.h"
#include "ui/LaunchAtLoginHooks.h"
#include "ui/SettingsView.h"
#include "ui/UpdateControl.h"

class QWidget;

/**
 * Owns the settings window: created on the first `showSettings()`, then kept and brought to the
 * front on every later call. Closing the window only hides it, so the form keeps its state.
 * @code
 * SettingsWindowController::shared().configure(&UpdateChecker::shared(), hooks);
 * SettingsWindowController::shared().showSettings();
 * @endcode
 */
class SettingsWindowController final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(SettingsWindowController)

public:
    /// Tests build their own; the application uses `shared()`.
    explicit SettingsWindowController(QObject* parent = nullptr);
    ~SettingsWindowController() override;

    /// The one controller of the process, created on first use and never destroyed.
    static SettingsWindowController& shared();

    /// Services the form uses; takes effect for a window not yet created.
    void configure(UpdateControl* updater, LaunchAtLoginHooks launchAtLogin);
    void setBundleInfo(const BundleInfo& bundle) { m_bundle = bundle; }
    /// Replaces the directory dialog (tests answer without a display).
    void setFolderChooser(SettingsView::FolderChooser chooser) { m_chooser = std::move(chooser); }

    void showSettings();

    /// Absent until the first `showSettings()`.
    QWidget* window() const { return m_window; }
    SettingsView* view() const { return m_view; }

private:
    QPointer<UpdateControl> m_updater;
    LaunchAtLoginHooks m_launchAtLogin;
    BundleInfo m_bundle = BundleInfo::main();
    SettingsView::FolderChooser m_chooser = &SettingsView::runFolderDialog;
    QPointer<QWidget> m_window;
    QPointer<SettingsView> m_view;
};
