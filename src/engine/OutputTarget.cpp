#include "engine/OutputTarget.h"

#include <cerrno>
#include <cstdio>
#include <mutex>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSet>
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

std::nullopt_t fail(const QString& path, const QString& why)
{
    qCWarning(lcCompression).noquote() << QStringLiteral("Write FAILED path=%1 err=%2").arg(path, why);
    return std::nullopt;
}

bool writeAll(int fd, const QByteArray& bytes)
{
    const char* data = bytes.constData();
    qsizetype left = bytes.size();
    while (left > 0) {
        const ssize_t n = ::write(fd, data, static_cast<size_t>(left));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            if (n == 0)
                errno = EIO;
            return false;
        }
        data += n;
        left -= n;
    }
    return ::fdatasync(fd) == 0;
}

class FileDescriptor final
{
public:
    explicit FileDescriptor(int fd) : m_fd(fd) {}
    ~FileDescriptor()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const { return m_fd; }

private:
    int m_fd;
};

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

std::optional<QString> OutputTarget::checkWritable(const QString& folder, const QString& name)
{
    const QByteArray dir = QFile::encodeName(folder);
    struct stat info;
    if (::stat(dir.constData(), &info) != 0)
        return qt_error_string(errno);
    if (!S_ISDIR(info.st_mode))
        return qt_error_string(ENOTDIR);
    if (::access(dir.constData(), W_OK | X_OK) != 0)
        return qt_error_string(errno);
    const qsizetype nameBytes = QFile::encodeName(name).size();
    const long nameMax = ::pathconf(dir.constData(), _PC_NAME_MAX);
    const long pathMax = ::pathconf(dir.constData(), _PC_PATH_MAX);
    if ((nameMax > 0 && nameBytes > nameMax) || (pathMax > 0 && dir.size() + 1 + nameBytes >= pathMax))
        return qt_error_string(ENAMETOOLONG);
    struct statvfs space;
    if (::statvfs(dir.constData(), &space) == 0 && space.f_blocks > 0 &&
        (::geteuid() == 0 ? space.f_bfree : space.f_bavail) == 0)
        return qt_error_string(ENOSPC);
    return std::nullopt;
}

std::optional<QString> OutputTarget::checkWritable() const
{
    const QString path = pathFor(1);
    std::optional<QString> problem = checkWritable(m_folder, QFileInfo(path).fileName());
    if (problem)
        fail(path, *problem);
    return problem;
}

void OutputTarget::sweepLeftovers(const QString& folder)
{
    static const QRegularExpression kOurs(QStringLiteral("^\\.brevona-[A-Za-z0-9]{6}\\.tmp$"));
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const QFileInfoList candidates = QDir(folder).entryInfoList(
        {QStringLiteral(".brevona-*.tmp")}, QDir::Files | QDir::Hidden | QDir::NoSymLinks);
    for (const QFileInfo& file : candidates) {
        if (!kOurs.match(file.fileName()).hasMatch() || file.ownerId() != ::geteuid() ||
            file.lastModified().secsTo(now) < kLeftoverAge)
            continue;
        if (QFile::remove(file.filePath()))
            qCInfo(lcCompression).noquote() << QStringLiteral("removed leftover %1").arg(file.filePath());
    }
}

std::optional<QString> OutputTarget::write(const QByteArray& bytes) const
{
    if (std::optional<std::optional<QString>> written = writeUnnamed(bytes))
        return *written;
    return writeNamed(bytes);
}

std::optional<std::optional<QString>> OutputTarget::writeUnnamed(const QByteArray& bytes) const
{
#if defined(Q_OS_LINUX) && defined(O_TMPFILE)
    // Linked by its /proc name, which needs no privilege (unlike AT_EMPTY_PATH).
    if (::access("/proc/self/fd", X_OK) != 0)
        return std::nullopt;
    const FileDescriptor file(
        ::open(QFile::encodeName(m_folder).constData(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600));
    if (file.get() < 0) {
        if (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL)
            return std::nullopt; // no unnamed files here: the named way below
        return std::optional<QString>(fail(pathFor(1), qt_error_string(errno)));
    }
    if (!writeAll(file.get(), bytes) || ::fchmod(file.get(), 0644) != 0)
        return std::optional<QString>(fail(pathFor(1), qt_error_string(errno)));
    const QByteArray procName = "/proc/self/fd/" + QByteArray::number(file.get());
    const int attempts = m_numbered ? kMaxAttempts : 1;
    for (int n = 1; n <= attempts; ++n) {
        const QString path = pathFor(n);
        if (::linkat(AT_FDCWD, procName.constData(), AT_FDCWD, QFile::encodeName(path).constData(),
                     AT_SYMLINK_FOLLOW) == 0) {
            qCDebug(lcCompression).noquote()
                << QStringLiteral("Write OK → %1").arg(QFileInfo(path).fileName());
            return std::optional<QString>(path);
        }
        if (errno != EEXIST)
            return std::optional<QString>(fail(path, qt_error_string(errno)));
    }
    return std::optional<QString>(fail(pathFor(1), qt_error_string(EEXIST)));
#else
    Q_UNUSED(bytes);
    return std::nullopt;
#endif
}

std::optional<QString> OutputTarget::writeNamed(const QByteArray& bytes) const
{
    // Leftovers can only exist where writes go this way; a folder is looked at once per process.
    static std::mutex mutex;
    static QSet<QString> swept;
    {
        const std::lock_guard lock(mutex);
        if (!swept.contains(m_folder)) {
            swept.insert(m_folder);
            sweepLeftovers(m_folder);
        }
    }
    // A hidden name in the same folder, so the final move stays on one file system.
    QTemporaryFile temporary(QDir(m_folder).filePath(QStringLiteral(".brevona-XXXXXX.tmp")));
    if (!temporary.open())
        return fail(pathFor(1), qt_error_string(errno));
    if (!temporary.flush() || !writeAll(temporary.handle(), bytes))
        return fail(pathFor(1), qt_error_string(errno));
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
