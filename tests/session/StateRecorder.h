#pragma once

#include <QObject>
#include <QStringList>

#include "session/CompressionState.h"

/// Records every field notification of a CompressionState as "field=value", in order.
class StateRecorder final
{
public:
    explicit StateRecorder(CompressionState& state)
    {
        auto record = [this, &state](const char* name) {
            const QVariant value = state.property(name);
            m_log << QStringLiteral("%1=%2").arg(QLatin1String(name), value.toString());
        };
        QObject::connect(&state, &CompressionState::currentChanged, [record] { record("current"); });
        QObject::connect(&state, &CompressionState::totalChanged, [record] { record("total"); });
        QObject::connect(&state, &CompressionState::currentFileChanged, [record] { record("currentFile"); });
        QObject::connect(&state, &CompressionState::isCompleteChanged, [record] { record("isComplete"); });
        QObject::connect(&state, &CompressionState::completionMessageChanged,
                         [record] { record("completionMessage"); });
        QObject::connect(&state, &CompressionState::isRunningChanged, [record] { record("isRunning"); });
    }

    QStringList take()
    {
        QStringList log = m_log;
        m_log.clear();
        return log;
    }

private:
    QStringList m_log;
};
