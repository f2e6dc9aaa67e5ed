#pragma once

#include <QColor>
#include <QHash>
#include <QIcon>
#include <QMenu>
#include <optional>

#include <QObject>
#include <QPoint>
#include <QPointer>
#include <QStringList>
#include <QSystemTrayIcon>
#include <QVariantAnimation>

#include "session/BatchDisplay.h"
#include "session/BatchRunner.h"
#include "session/CompressionState.h"
#include "ui/ProgressPopoverView.h"
#include "ui/TrayHostWatcher.h"

/**
 * The tray icon and everything hanging from it: the drop-zone panel (left click), the progress
 * popover (middle click), the menu ("Last session: ...", "Settings...", "Quit Brevona"), the
 * pulse while a batch runs, the one CompressionState and the batch runner fed by the panel.
 *
 * Without a system tray the panel opens at once as an ordinary window, so the application is
 * usable on any desktop; a tray host that appears later gets the icon and the window goes, and
 * one that vanishes brings the window back. "Settings..." is only announced
 * (settingsRequested()); the application decides what opens.
 */
class MenuBarManager final : public QObject, public BatchDisplay
{
    Q_OBJECT

public:
    /// Frames of the pulse: the icon is re-rendered only when the opacity moves by this step.
    static constexpr double kPulseStep = 0.05;

    /// Without `engine`, batches go to the shared compressor; without `trayProbe`, the desktop's
    /// tray hosts are watched.
    explicit MenuBarManager(BatchRunner::Engine engine = {}, TrayHostWatcher::Probe trayProbe = {},
                            QObject* parent = nullptr);
    ~MenuBarManager() override;

    CompressionState& compressionState() { return m_compressionState; }
    BatchRunner& batchRunner() { return m_runner; }
    QString lastSessionSummary() const { return m_runner.lastSessionSummary(); }

    /// Starts a batch with paths from a drop target.
    void handleFiles(const QStringList& paths);

    /// The tray icon's menu; its items are rebuilt every time it is about to open.
    QMenu* menu() { return &m_menu; }
    QSystemTrayIcon* trayIcon() { return m_trayIcon; }
    ProgressPopoverView* popover() const { return m_popover.data(); }

    /// The tray icon's place on screen; empty when the tray does not tell.
    QRect anchorRect() const;
    /// Where the pointer was at the last click on the icon, if there was one.
    std::optional<QPoint> lastClick() const { return m_lastClick; }
    TrayHostWatcher& trayHosts() { return m_trayHosts; }

    // BatchDisplay
    void showPanelAnchored() override;
    void hidePanel() override;
    void setIconPulsing(bool pulsing) override;

    void togglePanel();
    void togglePopover();

signals:
    /// "Settings..." was chosen in the menu or on the panel.
    void settingsRequested();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void setTrayAvailable(bool available);
    void sampleTrayBackground();
    void rebuildMenu();
    void onActivated(QSystemTrayIcon::ActivationReason reason);
    void setIconOpacity(double opacity);
    QIcon iconAt(double opacity);
    void quit();

    QMenu m_menu;
    CompressionState m_compressionState;
    BatchRunner m_runner;
    QSystemTrayIcon* m_trayIcon = nullptr;
    QVariantAnimation m_pulse;
    double m_iconOpacity = 1.0;
    QHash<int, QIcon> m_iconCache;
    /// The colour pixel-only trays get the bolt in, judged from their background.
    QColor m_tint;
    std::optional<QPoint> m_lastClick;
    QPointer<ProgressPopoverView> m_popover;
    TrayHostWatcher m_trayHosts;
};
