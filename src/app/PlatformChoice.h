#pragma once

/**
 * Picks the windowing platform before the application object exists.
 *
 * Wayland compositors do not let a client place its own windows, so the panel could not open
 * under the tray icon. When XWayland is there (DISPLAY and WAYLAND_DISPLAY both set) and the user
 * has not chosen a platform (QT_QPA_PLATFORM unset), the X11 platform is used instead.
 */
class PlatformChoice final
{
public:
    /// Whether to switch to X11, given which of the three variables are set and non-empty.
    static bool shouldPreferXcb(bool hasWaylandDisplay, bool hasX11Display, bool platformChosen);
    /// Sets QT_QPA_PLATFORM=xcb when shouldPreferXcb() says so; call before QApplication.
    static void apply();
};
