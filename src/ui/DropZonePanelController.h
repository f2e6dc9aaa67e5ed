#pragma once

#include <functional>
#include <memory>

#include <QPointer>
#include <QRect>
#include <QStringList>
#include <QTimer>

#include "session/CompressionState.h"
#include "ui/DropZonePanel.h"

/**
 * Owns the drop-zone panel: creates it once, places it under the tray icon, shows, hides and
 * toggles it, and repaints it ten times a second so that progress shows without observing the
 * state.
 * @code
 * auto& panel = DropZonePanelController::shared();
 * panel.setup(&state, [](const QStringList& paths) { ... }, onSettings, onQuit);
 * panel.toggle(trayIcon.geometry());
 * @endcode
 */
class DropZonePanelController final
{
public:
    static constexpr int kRedrawIntervalMs = 100;

    static DropZonePanelController& shared();

    /// Creates the panel (replacing an earlier one) and starts the redraw timer.
    void setup(CompressionState* state, std::function<void(const QStringList&)> onFiles,
               std::function<void()> onSettings, std::function<void()> onQuit,
               DropZonePanel::Mode mode = DropZonePanel::Mode::Floating);

    /**
     * Shows the panel under `anchor` (the tray icon's global geometry; an empty rectangle stands
     * for an icon whose place is unknown). A finished batch's state is reset first, so the panel
     * opens on the drop prompt.
     */
    void show(const QRect& anchor);
    /// Hides the panel if it is visible, otherwise shows it under `anchor`.
    void toggle(const QRect& anchor);
    /// Hides a floating panel. A windowed panel stays: it is the application's only surface.
    void hidePanel();

    /// Deletes the panel and the timer (before the application object goes).
    void teardown();

    DropZonePanel* panel() const { return m_panel.get(); }
    bool isVisible() const { return m_panel && m_panel->isVisible(); }

private:
    DropZonePanelController() = default;
    ~DropZonePanelController();

    std::unique_ptr<DropZonePanel> m_panel;
    std::unique_ptr<QTimer> m_timer;
    QPointer<CompressionState> m_state;
};
