#pragma once

#include <functional>

#include <QObject>
#include <QTimer>

class QDBusServiceWatcher;

/**
 * Knows whether a tray host is there to take an icon, and says when that changes: a
 * status-notifier watcher on the session bus, or an XEmbed tray owning its selection. Tray hosts
 * often start after the application (login) and can restart or go away, so the answer is
 * re-checked when the bus name changes hands and once a second.
 * @code
 * TrayHostWatcher watcher;
 * connect(&watcher, &TrayHostWatcher::availabilityChanged, this, &Manager::switchMode);
 * @endcode
 */
class TrayHostWatcher final : public QObject
{
    Q_OBJECT

public:
    struct Hosts
    {
        bool statusNotifier = false;
        bool xembed = false;
        bool operator==(const Hosts&) const = default;
    };
    /// Looks the hosts up now; tests hand in a fake one.
    using Probe = std::function<Hosts()>;

    static constexpr int kPollIntervalMs = 1000;
    static inline const QString kWatcherService = QStringLiteral("org.kde.StatusNotifierWatcher");

    /// Without `probe`, the session bus and the X server are asked.
    explicit TrayHostWatcher(Probe probe = {}, QObject* parent = nullptr);

    Hosts hosts() const { return m_hosts; }
    bool isAvailable() const { return m_hosts.statusNotifier || m_hosts.xembed; }

    /// Probes again and announces a change of availability.
    void recheck();

    /// The probe used without a fake: the desktop's own hosts.
    static Hosts probeDesktop();

signals:
    void availabilityChanged(bool available);

private:
    Probe m_probe;
    Hosts m_hosts;
    QTimer m_poll;
    QDBusServiceWatcher* m_busWatcher = nullptr;
};
