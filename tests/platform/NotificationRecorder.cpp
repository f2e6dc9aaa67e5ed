// A stand-in notification service for tests: owns org.freedesktop.Notifications on the session
// bus and appends each Notify call as one JSON line to the file named by its argument. Prints
// "ready" once the name is owned.
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextStream>
#include <QVariantMap>

class NotificationRecorder final : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    explicit NotificationRecorder(QString logPath) : m_log(std::move(logPath)) {}

public slots:
    uint Notify(const QString& appName, uint replacesId, const QString& appIcon, const QString& summary,
                const QString& body, const QStringList&, const QVariantMap&, int)
    {
        QJsonObject call{{QStringLiteral("appName"), appName},
                         {QStringLiteral("replacesId"), qint64(replacesId)},
                         {QStringLiteral("appIcon"), appIcon},
                         {QStringLiteral("summary"), summary},
                         {QStringLiteral("body"), body}};
        QFile file(m_log);
        if (file.open(QIODevice::Append))
            file.write(QJsonDocument(call).toJson(QJsonDocument::Compact) + '\n');
        return ++m_lastId;
    }

private:
    QString m_log;
    uint m_lastId = 0;
};

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    if (argc < 2)
        return 2;
    NotificationRecorder recorder(QString::fromLocal8Bit(argv[1]));
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.registerObject(QStringLiteral("/org/freedesktop/Notifications"), &recorder,
                            QDBusConnection::ExportAllSlots) ||
        !bus.registerService(QStringLiteral("org.freedesktop.Notifications")))
        return 1;
    QTextStream(stdout) << "ready" << Qt::endl;
    return app.exec();
}

#include "NotificationRecorder.moc"
