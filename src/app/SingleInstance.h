#pragma once

#include <memory>

#include <QLocalServer>
#include <QLockFile>
#include <QObject>
#include <QString>

/**
 * One running application per user and configuration folder.
 *
 * The first process takes a lock file and listens on a local socket beside it. A later process
 * finds the lock taken, tells the first one through the socket and should then exit; the first
 * one emits `activationRequested()`. A lock left by a crashed process is recognised as stale.
 * @code
 * SingleInstance instance(SingleInstance::defaultKey());
 * if (!instance.claim())
 *     return 0; // the running application has been asked to come forward
 * @endcode
 */
class SingleInstance final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(SingleInstance)

public:
    /// `key` names the lock file and the socket; a path of an existing folder may precede it.
    explicit SingleInstance(QString key, QObject* parent = nullptr);
    ~SingleInstance() override;

    /// Per user (the runtime folder, else the user id) and per settings folder, so that a
    /// separate configuration (tests, a second profile) runs its own instance.
    static QString defaultKey();

    /**
     * True when this process is now the running instance. False when another one holds it; that
     * one has then been asked to come forward (or could not be reached, which changes nothing).
     */
    bool claim();

    bool isPrimary() const { return m_server != nullptr; }

signals:
    /// A later launch asked this instance to come forward.
    void activationRequested();

private:
    void notifyRunningInstance();

    QString m_key;
    QLockFile m_lock;
    std::unique_ptr<QLocalServer> m_server;
};
