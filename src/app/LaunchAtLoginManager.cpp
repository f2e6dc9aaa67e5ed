#include "app/LaunchAtLoginManager.h"

#include <algorithm>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

namespace {

const QString kExecutableName = QStringLiteral("brevona");

} // namespace

// Reserved characters need double quotes, and inside them ", `, $ and \ take a backslash; the
// value's own escaping then doubles every backslash. % is doubled so it is not read as a field
// code.
QString LaunchAtLoginManager::quoteExecArgument(const QString& arg)
{
    static const QString reserved = QStringLiteral(" \t\n\"'\\><~|&;$*?#()`");
    const bool needsQuotes =
        std::any_of(arg.begin(), arg.end(), [](QChar c) { return reserved.contains(c); });
    QString out;
    for (const QChar c : arg) {
        if (c == u'%')
            out += QStringLiteral("%%");
        else if (needsQuotes && c == u'\\')
            out += QStringLiteral("\\\\\\\\");
        else if (needsQuotes && (c == u'"' || c == u'`' || c == u'$'))
            out += QStringLiteral("\\\\") + c;
        else
            out += c;
    }
    return needsQuotes ? u'"' + out + u'"' : out;
}

namespace {

bool isHidden(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return false;
    bool inMainGroup = false;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.startsWith(u'[')) {
            inMainGroup = line == QLatin1String("[Desktop Entry]");
            continue;
        }
        if (!inMainGroup)
            continue;
        const qsizetype eq = line.indexOf(u'=');
        if (eq > 0 && line.left(eq).trimmed() == QLatin1String("Hidden"))
            return line.mid(eq + 1).trimmed() == QLatin1String("true");
    }
    return false;
}

} // namespace

QString LaunchAtLoginManager::entryPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/autostart/brevona.desktop");
}

bool LaunchAtLoginManager::isEnabled()
{
    const QString path = entryPath();
    return QFileInfo(path).isFile() && !isHidden(path);
}

QString LaunchAtLoginManager::execCommand()
{
    // A bare name survives upgrades and moves of an installed package; a build run from its own
    // folder is not on PATH and needs its absolute path.
    const QString running = QFileInfo(QCoreApplication::applicationFilePath()).canonicalFilePath();
    const QString onPath = QStandardPaths::findExecutable(kExecutableName);
    if (!onPath.isEmpty() && QFileInfo(onPath).canonicalFilePath() == running)
        return kExecutableName;
    return quoteExecArgument(running.isEmpty() ? kExecutableName : running);
}

QByteArray LaunchAtLoginManager::entryText(const QString& exec)
{
    // TryExec names the program itself, unquoted, so that desktops skip the entry once the
    // program is removed instead of failing at every login.
    QString program = exec == kExecutableName
                          ? kExecutableName
                          : QFileInfo(QCoreApplication::applicationFilePath()).canonicalFilePath();
    program.replace(u'\\', QStringLiteral("\\\\"));
    return QStringLiteral("[Desktop Entry]\n"
                          "Type=Application\n"
                          "Name=Brevona\n"
                          "Comment=Image optimiser in the system tray\n"
                          "TryExec=%2\n"
                          "Exec=%1\n"
                          "Icon=brevona\n"
                          "Terminal=false\n"
                          "X-GNOME-Autostart-enabled=true\n")
        .arg(exec, program)
        .toUtf8();
}

void LaunchAtLoginManager::setEnabled(bool enabled)
{
    const QString path = entryPath();
    if (!enabled) {
        QFile::remove(path);
        return;
    }
    if (!QDir().mkpath(QFileInfo(path).absolutePath()))
        return;
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return;
    file.write(entryText(execCommand()));
    file.commit();
}
