#include "app/FileCoordinator.h"

#include <QDir>
#include <QTimer>

#include "engine/AppGroupDefaults.h"

FileCoordinator::FileCoordinator(QObject* parent) : QObject(parent) {}

FileCoordinator::~FileCoordinator() = default;

FileCoordinator& FileCoordinator::shared()
{
    // Lives until the process ends, like the timer it owns.
    static auto* instance = new FileCoordinator;
    return *instance;
}

void FileCoordinator::startPolling(FilesHandler handler)
{
    m_onFiles = std::move(handler);
    // Children of the coordinator: releasing it silences its timers, and an earlier timer is
    // left running on purpose (a poll that finds nothing does nothing).
    auto* timer = new QTimer(this);
    timer->setInterval(kPollIntervalMs);
    connect(timer, &QTimer::timeout, this, &FileCoordinator::poll);
    timer->start();
    m_timer = timer;
}

void FileCoordinator::poll()
{
    Defaults suite = AppGroupDefaults::open();
    const std::optional<QStringList> stored = suite.stringArray(AppGroupDefaults::Keys::pendingFiles);
    if (!stored || stored->isEmpty())
        return;

    // Cleared and written out before anything else, so the sender sees the key gone at once.
    suite.remove(AppGroupDefaults::Keys::pendingFiles);
    suite.sync();

    QStringList paths;
    paths.reserve(stored->size());
    for (const QString& path : *stored)
        paths.append(QDir::isAbsolutePath(path) ? path : QDir::current().absoluteFilePath(path));

    if (m_onFiles)
        m_onFiles(paths);
}
