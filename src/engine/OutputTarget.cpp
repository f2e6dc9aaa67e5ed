#include "engine/OutputTarget.h"

#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryFile>

#include "platform/Logging.h"

namespace {

// Far beyond any real folder; only stops a loop over an unwritable name pattern.
constexpr int kMaxAttempts = 100'000;

bool anythingAt(const QString& path)
{
    struct stat info;
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0; // dangling links count too
}

} // namespace

OutputTarget::OutputTarget(QString folder, QString baseName, QString extension)
    : m_folder(std::move(folder)), m_baseName(std::move(baseName)), m_extension(std::move(extension))
{
}

OutputTarget OutputTarget::exactly(const QString& path)
{
    const QFileInfo info(path);
    OutputTarget target(info.absolutePath(), info.fileName(), QString());
    target.m_numbered = false;
    return target;
}

QString OutputTarget::pathFor(int n) const
{
    QString name = n < 2 || !m_numbered ? m_baseName : m_baseName + QLatin1Char('_') + QString::number(n);
    if (!m_extension.isEmpty())
        name += QLatin1Char('.') + m_extension;
    return QDir(m_folder).filePath(name);
}

QString OutputTarget::candidatePath() const
{
    int n = 1;
    while (m_numbered && anythingAt(pathFor(n)) && n < kMaxAttempts)
        ++n;
    return pathFor(n);
}

OutputTarget::Placement OutputTarget::place(const QByteArray& temporary, const QByteArray& final, int* error)
{
#ifdef Q_OS_LINUX
    if (::renameat2(AT_FDCWD, temporary.constData(), AT_FDCWD, final.constData(), RENAME_NOREPLACE) == 0)
        return Placement::Placed;
    if (errno == EEXIST)
        return Placement::Taken;
    if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP) {
        *error = errno;
        return Placement::Failed;
    }
    // The file system cannot rename without replacing: a hard link fails just as safely.
#endif
    if (::link(temporary.constData(), final.constData()) == 0) {
        ::unlink(temporary.constData());
        return Placement::Placed;
    }
    if (errno == EEXIST)
        return Placement::Taken;
    *error = errno;
    return Placement::Failed;
}

std::optional<QString> OutputTarget::write(const QByteArray& bytes) const
{
    const auto fail = [](const QString& path, const QString& why) {
        qCWarning(lcCompression).noquote() << QStringLiteral("Write FAILED path=%1 err=%2").arg(path, why);
        return std::nullopt;
    };

    // A hidden name in the same folder, so the final move stays on one file system.
    QTemporaryFile temporary(QDir(m_folder).filePath(QStringLiteral(".brevona-XXXXXX.tmp")));
    if (!temporary.open())
        return fail(pathFor(1), temporary.errorString());
    if (temporary.write(bytes) != bytes.size() || !temporary.flush() || ::fdatasync(temporary.handle()) != 0)
        return fail(pathFor(1), temporary.errorString());
    temporary.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther);
    const QByteArray temporaryName = QFile::encodeName(temporary.fileName());

    const int attempts = m_numbered ? kMaxAttempts : 1;
    for (int n = 1; n <= attempts; ++n) {
        const QString path = pathFor(n);
        int error = 0;
        switch (place(temporaryName, QFile::encodeName(path), &error)) {
        case Placement::Placed:
            temporary.setAutoRemove(false);
            qCDebug(lcCompression).noquote()
                << QStringLiteral("Write OK → %1").arg(QFileInfo(path).fileName());
            return path;
        case Placement::Taken:
            continue;
        case Placement::Failed:
            return fail(path, qt_error_string(error));
        }
    }
    return fail(pathFor(1), qt_error_string(EEXIST));
}
