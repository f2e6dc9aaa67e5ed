#include "platform/NotificationCenter.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QTimer>
#include <QVariantMap>

NotificationCenter::NotificationCenter(QObject* parent) : QObject(parent) {}

NotificationCenter::~NotificationCenter() = default;

NotificationCenter& NotificationCenter::current()
{
    static auto* instance = new NotificationCenter;
    return *instance;
}

void NotificationCenter::setFallback(Fallback fallback)
{
    m_fallback = std::move(fallback);
}

void NotificationCenter::requestAuthorization(std::function<void(bool granted)> completion)
{
    if (completion)
        QTimer::singleShot(0, this, [completion = std::move(completion)] { completion(true); });
}

void NotificationCenter::post(const QString& title, const QString& body)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        fallBack(title, body);
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(kService, kPath, kService, QStringLiteral("Notify"));
    const QVariantMap hints{
        {QStringLiteral("desktop-entry"), QStringLiteral("com.orvik.Brevona")},
        {QStringLiteral("sound-name"), QStringLiteral("complete")},
    };
    call << kAppName << uint(0) << kIconName << title << body << QStringList{} << hints << int(-1);

    // Asynchronous, so a slow or activating service never blocks the interface; a daemon that is
    // D-Bus activatable is started by this very call.
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, title, body] {
        watcher->deleteLater();
        if (watcher->isError())
            fallBack(title, body);
    });
}

void NotificationCenter::fallBack(const QString& title, const QString& body)
{
    if (m_fallback)
        m_fallback(title, body);
    emit fellBack();
}
