#pragma once

#include <functional>

#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QTimer>

/**
 * Collects the files that the companion tool leaves under "pendingFiles" in the shared suite.
 *
 * Twice a second it reads the key; a non-empty list of strings is removed from the suite (and the
 * suite synchronised) before it is handed on, so the same paths are never taken twice. Values of
 * any other type, and an empty list, are left where they are.
 * @code
 * FileCoordinator::shared().startPolling([](const QStringList& paths) { runBatch(paths); });
 * @endcode
 */
class FileCoordinator final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(FileCoordinator)

public:
    /// Receives absolute paths, in the order they were stored; never an empty list.
    using FilesHandler = std::function<void(const QStringList& paths)>;

    static constexpr int kPollIntervalMs = 500;

    explicit FileCoordinator(QObject* parent = nullptr);
    ~FileCoordinator() override;

    /// The process's one coordinator, created on first use and never destroyed.
    static FileCoordinator& shared();

    /**
     * Stores `handler` (replacing an earlier one) and starts a repeating 0.5 s poll on the
     * calling thread's event loop; the first poll comes one interval later. A timer started by an
     * earlier call keeps running.
     */
    void startPolling(FilesHandler handler);

    /// One look at the suite; the timer calls this.
    void poll();

    QTimer* timer() const { return m_timer; }

private:
    QPointer<QTimer> m_timer;
    FilesHandler m_onFiles;
};
