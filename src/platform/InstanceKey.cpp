#include "platform/InstanceKey.h"

#include <QCryptographicHash>
#include <QDir>
#include <QStandardPaths>

#include "platform/Defaults.h"

#ifdef Q_OS_UNIX
#include <unistd.h>
#endif

QString InstanceKey::defaultKey()
{
    const QByteArray config = QCryptographicHash::hash(QDir(Defaults::directory()).absolutePath().toUtf8(),
                                                       QCryptographicHash::Sha1)
                                  .toHex()
                                  .left(12);
    const QString name = QStringLiteral("brevona-") + QString::fromLatin1(config);
    // The runtime folder is private to the user and emptied at logout; without it, the user id
    // keeps users apart in the shared temporary folder.
    // Without XDG_RUNTIME_DIR (a text console) Qt would warn and make a folder of its own.
#ifdef Q_OS_LINUX
    const bool hasRuntime = !qEnvironmentVariableIsEmpty("XDG_RUNTIME_DIR");
#else
    const bool hasRuntime = true;
#endif
    const QString runtime =
        hasRuntime ? QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation) : QString();
    if (!runtime.isEmpty() && QDir(runtime).exists())
        return runtime + u'/' + name;
#ifdef Q_OS_UNIX
    return QDir::tempPath() + QStringLiteral("/brevona-%1-").arg(::getuid()) + QString::fromLatin1(config);
#else
    return QDir::tempPath() + u'/' + qEnvironmentVariable("USERNAME") + u'-' + name;
#endif
}
