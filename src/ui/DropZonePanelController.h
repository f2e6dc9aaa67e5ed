#pragma once

#include <functional>
#include <memory>
#include <optional>

#include <QPoint>
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

    /// Who opens the panel: the user takes keyboard focus with it, a batch does not.
    enum class Opening
    {
        ByUser,
        ByBatch
    };

    static DropZonePanelController& shared();

    /// Creates the panel (replacing an earlier one) and starts the redraw timer.
    void setup(CompressionState* state, std::function<void(const QStringList&)> onFiles,
               std::function<void()> onSettings, std::function<void()> onQuit,
               DropZonePanel::Mode mode = DropZonePanel::Mode::Floating);

    /// Replaces the panel by one of `mode` with the same state and callbacks, hidden; nothing
    /// happens when it already has that mode.
    void setMode(DropZonePanel::Mode mode);

    /**
     * Shows the panel under `anchor` (the tray icon's global geometry; an empty rectangle stands
     * for an icon whose place is unknown, and then `click`, the pointer position of the click
     * that opened it, is the anchor). A finished batch's state is reset first, so the panel opens
     * on the drop prompt. Only a panel the user opens becomes the active window.
     */
    void show(const QRect& anchor, std::optional<QPoint> click = {}, Opening opening = Opening::ByUser);
    /// Hides the panel if it is visible, otherwise shows it (for the user) under `anchor`.
    void toggle(const QRect& anchor, std::optional<QPoint> click = {});
    /// Hides a floating panel. A windowed panel stays: it is the application's only surface.
    void hidePanel();

    /// Deletes the panel and the timer (before the application object goes).
    void teardown();

    DropZonePanel* panel() const { return m_panel.get(); }
    /// Repaints the panel every kRedrawIntervalMs once set up.
    const QTimer* redrawTimer() const { return m_timer.get(); }
    bool isVisible() const { return m_panel && m_panel->isVisible(); }

private:
    DropZonePanelController() = default;
    ~DropZonePanelController();

    void createPanel(DropZonePanel::Mode mode);

    std::unique_ptr<DropZonePanel> m_panel;
    std::function<void(const QStringList&)> m_onFiles;
    std::function<void()> m_onSettings;
    std::function<void()> m_onQuit;
    std::unique_ptr<QTimer> m_timer;
    QPointer<CompressionState> m_state;
};
