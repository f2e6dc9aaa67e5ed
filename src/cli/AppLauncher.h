#pragma once

#include <QString>

/**
 * Starts the tray application for brevona-cli send when none is running, so that handed-over
 * files are compressed now rather than at the next login.
 *
 * The application is found through BREVONA_APP, else beside brevona-cli, else on PATH. It is
 * started detached in its own session, with no terminal, so that the file manager that called
 * send neither waits for it nor takes it down. A lock of our own around the start makes
 * concurrent senders start one application between them.
 */
class AppLauncher final
{
public:
    enum class Outcome
    {
        AlreadyRunning,
        Started,
        NoDisplay,
        NotFound,
        StartFailed
    };

    static Outcome ensureRunning();
    /// Whether the application of this configuration runs (a live holder of its lock).
    static bool isRunning();
    /// The application to start; empty when there is none.
    static QString applicationPath();
};
