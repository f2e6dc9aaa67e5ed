#include "ui/TrayHostWatcher.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusServiceWatcher>
#include <QGuiApplication>
#include <QSystemTrayIcon>

#include "ui/X11Desktop.h"

namespace {
// Desktops whose tray hosts speak the freedesktop protocols; elsewhere Qt knows the one tray.
bool isFreedesktopPlatform()
{
    const QString platform = QGuiApplication::platformName();
    return platform == QLatin1String("xcb") || platform.startsWith(QLatin1String("wayland"));
}
} // namespace

TrayHostWatcher::TrayHostWatcher(Probe probe, QObject* parent) : QObject(parent), m_probe(std::move(probe))
{
    if (!m_probe) {
        m_probe = &TrayHostWatcher::probeDesktop;
        QDBusConnection bus =
            isFreedesktopPlatform() ? QDBusConnection::sessionBus() : QDBusConnection(QString());
        if (bus.isConnected()) {
            m_busWatcher =
                new QDBusServiceWatcher(kWatcherService, bus, QDBusServiceWatcher::WatchForOwnerChange, this);
            connect(m_busWatcher, &QDBusServiceWatcher::serviceOwnerChanged, this, &TrayHostWatcher::recheck);
        }
    }
    m_hosts = m_probe();
    // XEmbed trays announce themselves only to clients that watch the root window; a cheap poll
    // covers that and a watcher that registers before its host is ready.
    m_poll.setInterval(kPollIntervalMs);
    connect(&m_poll, &QTimer::timeout, this, &TrayHostWatcher::recheck);
    m_poll.start();
}

void TrayHostWatcher::recheck()
{
    const bool was = isAvailable();
    m_hosts = m_probe();
    if (isAvailable() != was)
        emit availabilityChanged(isAvailable());
}

TrayHostWatcher::Hosts TrayHostWatcher::probeDesktop()
{
    if (!isFreedesktopPlatform())
        return {false, QSystemTrayIcon::isSystemTrayAvailable()};
    Hosts hosts;
    const QDBusConnection bus = QDBusConnection::sessionBus();
    if (bus.isConnected() && bus.interface())
        hosts.statusNotifier = bus.interface()->isServiceRegistered(kWatcherService).value();
    hosts.xembed = X11Desktop::hasSystemTray();
    return hosts;
}
