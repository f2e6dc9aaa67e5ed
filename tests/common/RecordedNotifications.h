#pragma once

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QProcess>
#include <QTemporaryDir>

/// Runs the notification-recorder test service on the session bus while it lives and reads back
/// the Notify calls it received. Tests that use it run under their own dbus-run-session.
class RecordedNotifications final
{
public:
    explicit RecordedNotifications(const QString& recorderPath)
        : m_log(m_dir.filePath(QStringLiteral("notify.jsonl")))
    {
        m_process.start(recorderPath, {m_log});
        m_ready = m_process.waitForReadyRead(30000) && m_process.readLine().trimmed() == "ready";
    }
    ~RecordedNotifications()
    {
        m_process.terminate();
        m_process.waitForFinished(10000);
    }
    RecordedNotifications(const RecordedNotifications&) = delete;
    RecordedNotifications& operator=(const RecordedNotifications&) = delete;

    bool isReady() const { return m_ready; }

    QList<QJsonObject> calls() const
    {
        QList<QJsonObject> out;
        QFile file(m_log);
        if (!file.open(QIODevice::ReadOnly))
            return out;
        while (!file.atEnd()) {
            const QByteArray line = file.readLine().trimmed();
            if (!line.isEmpty())
                out.append(QJsonDocument::fromJson(line).object());
        }
        return out;
    }

private:
    QTemporaryDir m_dir;
    QString m_log;
    QProcess m_process;
    bool m_ready = false;
};

/// Whether this test runs on the private session bus that CTest starts for it.
inline bool onPrivateSessionBus()
{
    return qEnvironmentVariableIsSet("BREVONA_PRIVATE_SESSION_BUS");
}
