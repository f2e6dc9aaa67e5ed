#include "app/SingleInstance.h"

#include <QLocalSocket>

#include "platform/InstanceKey.h"

namespace {

constexpr int kTimeoutMs = 2000;
const QByteArray kActivate = QByteArrayLiteral("activate\n");

} // namespace

SingleInstance::SingleInstance(QString key, QObject* parent)
    : QObject(parent), m_key(std::move(key)), m_lock(m_key + QStringLiteral(".lock"))
{
    // The running instance holds the lock for as long as it lives; only a dead holder is stale.
    m_lock.setStaleLockTime(0);
}

SingleInstance::~SingleInstance() = default;

QString SingleInstance::defaultKey()
{
    return InstanceKey::defaultKey();
}

bool SingleInstance::claim()
{
    if (m_server)
        return true;
    if (!m_lock.tryLock(0)) {
        notifyRunningInstance();
        return false;
    }
    auto server = std::make_unique<QLocalServer>();
    server->setSocketOptions(QLocalServer::UserAccessOption);
    const QString socketName = m_key + QStringLiteral(".socket");
    QLocalServer::removeServer(socketName); // left by a crashed instance; the lock is ours now
    if (!server->listen(socketName))
        qWarning("Brevona: cannot listen on %s: %s", qPrintable(socketName),
                 qPrintable(server->errorString()));
    connect(server.get(), &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket* socket = m_server->nextPendingConnection()) {
            connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
                if (socket->canReadLine() && socket->readLine() == kActivate)
                    emit activationRequested();
            });
        }
    });
    m_server = std::move(server);
    return true;
}

void SingleInstance::notifyRunningInstance()
{
    QLocalSocket socket;
    socket.connectToServer(m_key + QStringLiteral(".socket"));
    if (!socket.waitForConnected(kTimeoutMs))
        return;
    socket.write(kActivate);
    socket.waitForBytesWritten(kTimeoutMs);
    socket.disconnectFromServer();
    if (socket.state() != QLocalSocket::UnconnectedState)
        socket.waitForDisconnected(kTimeoutMs);
}
