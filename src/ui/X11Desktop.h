#pragma once

class QWidget;

/**
 * The few X11 desktop conventions Qt offers no call for: whether a system tray or a compositing
 * manager owns its selection on the default screen, and the window-manager hints that keep a
 * floating panel off the taskbar and pager and on every workspace.
 *
 * Every call is a no-op (or answers false) when the application does not run on X11.
 */
class X11Desktop final
{
public:
    /// True on the xcb platform.
    static bool isActive();

    /// An XEmbed tray holds the `_NET_SYSTEM_TRAY_S<screen>` selection.
    static bool hasSystemTray();

    /// A compositing manager holds `_NET_WM_CM_S<screen>`, so translucent windows blend.
    static bool hasCompositor();

    /**
     * Marks `window` (a top-level) as skipping the taskbar and pager and as sticky on every
     * workspace: as properties while it is not `mapped` yet, as requests to the window manager
     * once it is.
     */
    static void makeFloatingPanel(QWidget* window, bool mapped);
};
