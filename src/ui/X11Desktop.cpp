#include "ui/X11Desktop.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include <QGuiApplication>
#include <QWidget>

#if BREVONA_HAVE_XCB
#include <xcb/xcb.h>
#endif

#if BREVONA_HAVE_XCB
namespace {

xcb_connection_t* connection()
{
    if (!X11Desktop::isActive())
        return nullptr;
    auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    return x11 ? x11->connection() : nullptr;
}

int screenNumber()
{
    int screen = 0;
    char* host = nullptr;
    int display = 0;
    if (xcb_parse_display(nullptr, &host, &display, &screen) == 0)
        return 0;
    std::free(host);
    return screen;
}

xcb_window_t rootWindow(xcb_connection_t* c)
{
    xcb_screen_iterator_t it = xcb_setup_roots_iterator(xcb_get_setup(c));
    for (int i = screenNumber(); i > 0 && it.rem > 1; --i)
        xcb_screen_next(&it);
    return it.data ? it.data->root : XCB_NONE;
}

xcb_atom_t atom(xcb_connection_t* c, const QByteArray& name)
{
    const std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> reply(
        xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, uint16_t(name.size()), name.constData()), nullptr),
        &std::free);
    return reply ? reply->atom : XCB_NONE;
}

bool selectionOwned(const char* prefix)
{
    xcb_connection_t* c = connection();
    if (!c)
        return false;
    const xcb_atom_t selection = atom(c, QByteArray(prefix) + QByteArray::number(screenNumber()));
    if (selection == XCB_NONE)
        return false;
    const std::unique_ptr<xcb_get_selection_owner_reply_t, decltype(&std::free)> reply(
        xcb_get_selection_owner_reply(c, xcb_get_selection_owner(c, selection), nullptr), &std::free);
    return reply && reply->owner != XCB_NONE;
}

// A request to the window manager about a mapped window (EWMH client message to the root).
void sendToWindowManager(xcb_connection_t* c, xcb_window_t root, xcb_window_t window, xcb_atom_t type,
                         std::initializer_list<uint32_t> data)
{
    xcb_client_message_event_t event;
    std::memset(&event, 0, sizeof event);
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = window;
    event.type = type;
    int i = 0;
    for (const uint32_t value : data)
        event.data.data32[i++] = value;
    xcb_send_event(c, 0, root, XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&event));
}

} // namespace
#endif

bool X11Desktop::isActive()
{
    return QGuiApplication::platformName() == QLatin1String("xcb");
}

bool X11Desktop::hasSystemTray()
{
#if BREVONA_HAVE_XCB
    return selectionOwned("_NET_SYSTEM_TRAY_S");
#else
    return false;
#endif
}

bool X11Desktop::hasCompositor()
{
#if BREVONA_HAVE_XCB
    return selectionOwned("_NET_WM_CM_S");
#else
    return false;
#endif
}

void X11Desktop::makeFloatingPanel(QWidget* window, bool mapped)
{
#if BREVONA_HAVE_XCB
    xcb_connection_t* c = connection();
    if (!c || !window)
        return;
    const auto id = xcb_window_t(window->winId());
    const xcb_window_t root = rootWindow(c);
    const xcb_atom_t wmState = atom(c, "_NET_WM_STATE");
    const xcb_atom_t wmDesktop = atom(c, "_NET_WM_DESKTOP");
    const std::vector<xcb_atom_t> states{atom(c, "_NET_WM_STATE_SKIP_TASKBAR"),
                                         atom(c, "_NET_WM_STATE_SKIP_PAGER"),
                                         atom(c, "_NET_WM_STATE_STICKY")};
    constexpr uint32_t kAllDesktops = 0xFFFFFFFF;
    if (!mapped) {
        // Qt merges its own states into what is already there when it maps the window.
        xcb_change_property(c, XCB_PROP_MODE_APPEND, id, wmState, XCB_ATOM_ATOM, 32, uint32_t(states.size()),
                            states.data());
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, id, wmDesktop, XCB_ATOM_CARDINAL, 32, 1, &kAllDesktops);
    } else {
        constexpr uint32_t kAdd = 1;
        constexpr uint32_t kFromApplication = 1;
        sendToWindowManager(c, root, id, wmState, {kAdd, states[0], states[1], kFromApplication});
        sendToWindowManager(c, root, id, wmState, {kAdd, states[2], 0, kFromApplication});
        sendToWindowManager(c, root, id, wmDesktop, {kAllDesktops, kFromApplication});
    }
    xcb_flush(c);
#else
    Q_UNUSED(window);
    Q_UNUSED(mapped);
#endif
}
