#pragma once

#include <QByteArray>
#include <QTemporaryDir>
#include <QtGlobal>

#include "platform/Defaults.h"

/// Points XDG_CONFIG_HOME (and so every settings store) at a fresh folder while it lives.
class IsolatedConfig final
{
public:
    IsolatedConfig()
        : m_old(qgetenv("XDG_CONFIG_HOME")), m_hadOld(qEnvironmentVariableIsSet("XDG_CONFIG_HOME"))
    {
        qputenv("XDG_CONFIG_HOME", m_dir.path().toUtf8());
    }
    ~IsolatedConfig()
    {
        if (m_hadOld)
            qputenv("XDG_CONFIG_HOME", m_old);
        else
            qunsetenv("XDG_CONFIG_HOME");
    }
    IsolatedConfig(const IsolatedConfig&) = delete;
    IsolatedConfig& operator=(const IsolatedConfig&) = delete;

    QString path() const { return m_dir.path(); }

    /// Stores `value` under `key` in the shared suite and writes it out, as another process would.
    static void store(const QString& key, const QVariant& value)
    {
        Defaults suite = Defaults::suite();
        suite.set(key, value);
        suite.sync();
    }

private:
    QTemporaryDir m_dir;
    QByteArray m_old;
    bool m_hadOld;
};
