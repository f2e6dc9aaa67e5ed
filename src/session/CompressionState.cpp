#include "session/CompressionState.h"

CompressionState::CompressionState(QObject* parent) : QObject(parent) {}

double CompressionState::progress() const
{
    if (m_total < 1)
        return 0.0;
    return static_cast<double>(m_current) / static_cast<double>(m_total);
}

void CompressionState::start(qint64 total)
{
    setTotal(total);
    setCurrent(0);
    setCurrentFile(QString());
    setIsComplete(false);
    setCompletionMessage(QString());
    setIsRunning(true);
}

void CompressionState::update(qint64 current, const QString& fileName)
{
    setCurrent(current);
    setCurrentFile(fileName);
}

void CompressionState::complete(const QString& message)
{
    setIsComplete(true);
    setCompletionMessage(message);
    setIsRunning(false);
}

void CompressionState::reset()
{
    setIsComplete(false);
    setCompletionMessage(QString());
    setIsRunning(false);
    setCurrent(0);
    setTotal(0);
    setCurrentFile(QString());
}

// Every assignment is announced, even when the value does not change: a published field
// notifies on each write, and observers rely on the sequence rather than on differences.
void CompressionState::setCurrent(qint64 value)
{
    m_current = value;
    emit currentChanged();
    emit progressChanged();
}

void CompressionState::setTotal(qint64 value)
{
    m_total = value;
    emit totalChanged();
    emit progressChanged();
}

void CompressionState::setCurrentFile(const QString& value)
{
    m_currentFile = value;
    emit currentFileChanged();
}

void CompressionState::setIsComplete(bool value)
{
    m_isComplete = value;
    emit isCompleteChanged();
}

void CompressionState::setCompletionMessage(const QString& value)
{
    m_completionMessage = value;
    emit completionMessageChanged();
}

void CompressionState::setIsRunning(bool value)
{
    m_isRunning = value;
    emit isRunningChanged();
}
