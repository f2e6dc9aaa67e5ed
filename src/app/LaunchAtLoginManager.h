#pragma once

#include <QString>

/**
 * Starting the application at login through an XDG autostart entry,
 * "<config>/autostart/brevona.desktop". The file is the only record: the entry is enabled
 * exactly when it exists and is not marked Hidden=true, which is how desktops switch an entry
 * off in their own settings. Failures are silent; the next read shows the truth.
 */
class LaunchAtLoginManager final
{
public:
    LaunchAtLoginManager() = delete;

    static bool isEnabled();
    /// True writes the entry afresh (even when already enabled); false removes it.
    static void setEnabled(bool enabled);

    /// Where the entry lives.
    static QString entryPath();
    /// The desktop entry's text for the given Exec command.
    static QByteArray entryText(const QString& exec);
    /// The command that starts this application: the bare name when the running executable is
    /// the `brevona` found on PATH, else its absolute path.
    static QString execCommand();
    /// One argument of an Exec line, quoted and escaped as desktop entries require.
    static QString quoteExecArgument(const QString& arg);
};
