#pragma once

#include <QString>

/**
 * Holds access to a file or folder for as long as it lives.
 *
 * Sandboxed builds need explicit access grants for user-chosen paths; an unsandboxed Linux build
 * has nothing to grant, so starting always succeeds. The seam keeps the engine's access pattern
 * (source, its folder, the output folder) in one place for a platform that needs it.
 */
class ScopedAccess final
{
public:
    explicit ScopedAccess(QString path);
    ~ScopedAccess();
    ScopedAccess(const ScopedAccess&) = delete;
    ScopedAccess& operator=(const ScopedAccess&) = delete;

    /// Whether access was granted (and will be released at destruction).
    bool started() const { return m_started; }

    /// Starts access without a matching stop; for grants that last for the process.
    static bool startAccessing(const QString& path);
    static void stopAccessing(const QString& path);

private:
    QString m_path;
    bool m_started = false;
};
