#include "cli/InstallActionsCommand.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

#include "cli/CliOutput.h"

namespace {

const QByteArray kUniqueId = QByteArrayLiteral("<unique-id>brevona-optimize-1</unique-id>");

QByteArray resource(const QString& name)
{
    QFile file(QStringLiteral(":/filemanager/") + name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// Single quotes for the shell; a ' inside becomes '\''.
QString shellQuoted(QString text)
{
    return u'\'' + text.replace(u'\'', QStringLiteral("'\\''")) + u'\'';
}

QString xmlEscaped(const QString& text)
{
    return text.toHtmlEscaped();
}

bool writeFile(const QString& path, const QByteArray& bytes, QFileDevice::Permissions permissions)
{
    if (!QDir().mkpath(QFileInfo(path).absolutePath()))
        return false;
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit())
        return false;
    return QFile::setPermissions(path, permissions);
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

QString InstallActionsCommand::help() const
{
    return QStringLiteral(
        "Adds \"Optimize with Brevona\" to Nautilus (a script in ~/.local/share/nautilus/scripts)\n"
        "and to Thunar (an action merged into ~/.config/Thunar/uca.xml, keeping your own\n"
        "actions). Running it again changes nothing. Dolphin's action comes with the package.\n"
        "Restart Thunar (thunar -q) to see its new action.");
}

QString InstallActionsCommand::cliCommand()
{
    const QString running = QFileInfo(QCoreApplication::applicationFilePath()).canonicalFilePath();
    const QString onPath = QStandardPaths::findExecutable(QStringLiteral("brevona-cli"));
    if (running.isEmpty() || (!onPath.isEmpty() && QFileInfo(onPath).canonicalFilePath() == running))
        return QStringLiteral("brevona-cli");
    return shellQuoted(running);
}

QByteArray InstallActionsCommand::mergedUca(const QByteArray& existing, const QByteArray& action)
{
    if (existing.trimmed().isEmpty())
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<actions>\n" + action + "</actions>\n";
    if (existing.contains(kUniqueId))
        return existing;
    const qsizetype end = existing.lastIndexOf("</actions>");
    if (end < 0)
        return {};
    QByteArray merged = existing;
    merged.insert(end, action);
    return merged;
}

int InstallActionsCommand::run(const QStringList& arguments)
{
    if (!arguments.isEmpty()) {
        CliOutput::error(QStringLiteral("usage: brevona-cli ") + synopsis());
        return UsageError;
    }
    const QString command = cliCommand();
    int result = Success;

    const QString script = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                           QStringLiteral("/nautilus/scripts/Optimize with Brevona");
    QByteArray scriptText = resource(QStringLiteral("nautilus-optimize-with-brevona"));
    scriptText.replace("exec brevona-cli ", "exec " + command.toUtf8() + ' ');
    if (writeFile(script, scriptText,
                  QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner |
                      QFileDevice::ReadGroup | QFileDevice::ExeGroup | QFileDevice::ReadOther |
                      QFileDevice::ExeOther)) {
        CliOutput::out(QStringLiteral("Nautilus: ") + script);
    } else {
        CliOutput::error(QStringLiteral("cannot write ") + script);
        result = Failure;
    }

    const QString uca = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
                        QStringLiteral("/Thunar/uca.xml");
    QByteArray action = resource(QStringLiteral("thunar-uca-action.xml"));
    action.replace("<command>brevona-cli ", "<command>" + xmlEscaped(command).toUtf8() + ' ');
    const QByteArray existing = readFile(uca);
    const QByteArray merged = mergedUca(existing, action);
    if (merged.isEmpty()) {
        CliOutput::error(QStringLiteral("%1 holds no </actions>; left as it is").arg(uca));
        result = Failure;
    } else if (merged == existing) {
        CliOutput::out(QStringLiteral("Thunar: ") + uca + QStringLiteral(" (already there)"));
    } else if (writeFile(uca, merged,
                         QFileInfo::exists(uca) ? QFile::permissions(uca)
                                                : QFileDevice::ReadOwner | QFileDevice::WriteOwner)) {
        CliOutput::out(QStringLiteral("Thunar: ") + uca);
    } else {
        CliOutput::error(QStringLiteral("cannot write ") + uca);
        result = Failure;
    }
    return result;
}
