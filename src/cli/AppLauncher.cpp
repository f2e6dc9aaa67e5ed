#include "cli/AppLauncher.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QProcess>
#include <QStandardPaths>
#include <QThread>

#include <cerrno>

#include <signal.h>

#include "platform/InstanceKey.h"

namespace {

constexpr int kStartTimeoutMs = 15000;

bool isExecutableFile(const QString& path)
{
    const QFileInfo info(path);
    return info.isFile() && info.isExecutable();
}

} // namespace

bool AppLauncher::isRunning()
{
    // The application holds this lock for as long as it lives (SingleInstance); its first line
    // is the holder's process id. Reading it never disturbs an application that is starting.
    QFile lock(InstanceKey::defaultKey() + QStringLiteral(".lock"));
    if (!lock.open(QIODevice::ReadOnly))
        return false;
    bool ok = false;
    const qint64 pid = QString::fromLatin1(lock.readLine()).trimmed().toLongLong(&ok);
    return ok && pid > 0 && (::kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM);
}

QString AppLauncher::applicationPath()
{
    const QString chosen = qEnvironmentVariable("BREVONA_APP");
    if (!chosen.isEmpty())
        return isExecutableFile(chosen) ? chosen : QString();
    const QString beside = QCoreApplication::applicationDirPath() + QStringLiteral("/brevona");
    if (isExecutableFile(beside))
        return beside;
    return QStandardPaths::findExecutable(QStringLiteral("brevona"));
}

AppLauncher::Outcome AppLauncher::ensureRunning()
{
    if (isRunning())
        return Outcome::AlreadyRunning;
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        return Outcome::NoDisplay;
    const QString application = applicationPath();
    if (application.isEmpty())
        return Outcome::NotFound;

    // The application takes its own lock only once it is up; until then this one keeps a second
    // sender from starting another copy. A holder that died leaves a lock QLockFile breaks.
    QLockFile startLock(InstanceKey::defaultKey() + QStringLiteral(".start.lock"));
    startLock.setStaleLockTime(0);
    if (!startLock.tryLock(kStartTimeoutMs + 2000))
        return isRunning() ? Outcome::AlreadyRunning : Outcome::StartFailed;
    if (isRunning())
        return Outcome::AlreadyRunning;

    QProcess process;
    process.setProgram(application);
    process.setWorkingDirectory(QDir::homePath());
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    qint64 pid = 0;
    if (!process.startDetached(&pid))
        return Outcome::StartFailed;
    const QDeadlineTimer deadline(kStartTimeoutMs);
    while (!deadline.hasExpired()) {
        if (isRunning())
            return Outcome::Started;
        if (pid > 0 && ::kill(static_cast<pid_t>(pid), 0) != 0)
            return Outcome::StartFailed; // it exited before listening
        QThread::msleep(50);
    }
    return Outcome::StartFailed;
}
