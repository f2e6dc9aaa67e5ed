#include "app/FileCoordinator.h"

#include <QDir>
#include <QTimer>
#include <QVariant>

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
    // A cheap look first; the list that is handed on is the one taken under the lock.
    Defaults suite = AppGroupDefaults::open();
    const std::optional<QStringList> seen = suite.stringArray(AppGroupDefaults::Keys::pendingFiles);
    if (!seen || seen->isEmpty())
        return;

    // Read and cleared in one step under the senders' lock, so a path appended meanwhile is
    // either taken now or kept for the next poll, never removed unread or taken twice.
    std::optional<QStringList> taken;
    const bool cleared = suite.update(AppGroupDefaults::Keys::pendingFiles, [&](const QVariant& stored) {
        if (stored.metaType().id() != QMetaType::QVariantList)
            return stored;
        QStringList list;
        for (const QVariant& entry : stored.toList()) {
            if (entry.metaType().id() != QMetaType::QString)
                return stored; // a value of another type is left alone, as when read unlocked
            list.append(entry.toString());
        }
        if (list.isEmpty())
            return stored;
        taken = list;
        return QVariant();
    });
    if (!cleared || !taken)
        return;

    QStringList paths;
    paths.reserve(taken->size());
    for (const QString& path : *taken)
        paths.append(QDir::isAbsolutePath(path) ? path : QDir::current().absoluteFilePath(path));

    if (m_onFiles)
        m_onFiles(paths);
}
