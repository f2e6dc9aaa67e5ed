#pragma once

#include <functional>

#include <QObject>
#include <QString>

/**
 * Posts desktop notifications through the freedesktop notification service on the session bus.
 *
 * When no service answers (no session bus, nothing owns org.freedesktop.Notifications, or the
 * call fails), the notification goes to the fallback, which the application points at its tray
 * icon's balloon. Every failure is silent. Asking for authorisation always succeeds: the
 * service has no such step.
 * @code
 * NotificationCenter& center = NotificationCenter::current();
 * center.setFallback([tray](const QString& title, const QString& body) { tray->showMessage(title, body); });
 * center.requestAuthorization();
 * center.post(QStringLiteral("⚡ Brevona"), summary);
 * @endcode
 */
class NotificationCenter final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(NotificationCenter)

public:
    using Fallback = std::function<void(const QString& title, const QString& body)>;

    static inline const QString kService = QStringLiteral("org.freedesktop.Notifications");
    static inline const QString kPath = QStringLiteral("/org/freedesktop/Notifications");
    static inline const QString kAppName = QStringLiteral("Brevona");
    /// Themed icon name of the installed application icon.
    static inline const QString kIconName = QStringLiteral("brevona");

    explicit NotificationCenter(QObject* parent = nullptr);
    ~NotificationCenter() override;

    /// The process's one centre, created on first use and never destroyed.
    static NotificationCenter& current();

    void setFallback(Fallback fallback);

    /// Calls `completion` with true on the event loop; nothing is ever refused here.
    void requestAuthorization(std::function<void(bool granted)> completion = {});

    /// Shows `title` and `body` at once; returns without waiting for the service.
    void post(const QString& title, const QString& body);

signals:
    /// The fallback was used for a notification (for tests and diagnostics).
    void fellBack();

private:
    void fallBack(const QString& title, const QString& body);

    Fallback m_fallback;
};
