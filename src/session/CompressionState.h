#pragma once

#include <QObject>
#include <QString>

/**
 * The observable record of the batch that is running or finished last.
 *
 * One instance lives for the whole process; the batch runner drives it and the views read it.
 * Each operation assigns its fields in a fixed order and every assignment announces one change,
 * so an observer recording the notifications sees exactly that order.
 * @code
 * state.start(4);              // Running, counters cleared
 * state.update(1, "a.jpg");
 * state.complete("4 images optimized · 1.2 MB saved"); // Finished
 * @endcode
 */
class CompressionState final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(qint64 current READ current NOTIFY currentChanged)
    Q_PROPERTY(qint64 total READ total NOTIFY totalChanged)
    Q_PROPERTY(QString currentFile READ currentFile NOTIFY currentFileChanged)
    Q_PROPERTY(bool isComplete READ isComplete NOTIFY isCompleteChanged)
    Q_PROPERTY(QString completionMessage READ completionMessage NOTIFY completionMessageChanged)
    Q_PROPERTY(bool isRunning READ isRunning NOTIFY isRunningChanged)
    Q_PROPERTY(double progress READ progress NOTIFY progressChanged)

public:
    explicit CompressionState(QObject* parent = nullptr);

    qint64 current() const { return m_current; }
    qint64 total() const { return m_total; }
    QString currentFile() const { return m_currentFile; }
    bool isComplete() const { return m_isComplete; }
    QString completionMessage() const { return m_completionMessage; }
    bool isRunning() const { return m_isRunning; }
    /// current / total; 0 when total is below 1; not clamped, so it may exceed 1.
    double progress() const;

    /// Starts a batch of `total` files: clears everything else and marks it running.
    void start(qint64 total);
    /// One progress report; leaves total and the flags alone.
    void update(qint64 current, const QString& fileName);
    /// Finishes the batch; the counters keep their last values.
    void complete(const QString& message);
    /// Back to idle with everything cleared.
    void reset();

signals:
    void currentChanged();
    void totalChanged();
    void currentFileChanged();
    void isCompleteChanged();
    void completionMessageChanged();
    void isRunningChanged();
    void progressChanged();

private:
    void setCurrent(qint64 value);
    void setTotal(qint64 value);
    void setCurrentFile(const QString& value);
    void setIsComplete(bool value);
    void setCompletionMessage(const QString& value);
    void setIsRunning(bool value);

    qint64 m_current = 0;
    qint64 m_total = 0;
    QString m_currentFile;
    bool m_isComplete = false;
    QString m_completionMessage;
    bool m_isRunning = false;
};
