#include "cli/CommandLine.h"

#include <QLoggingCategory>

#include "cli/CliOutput.h"

void CommandLine::add(std::unique_ptr<CliCommand> command)
{
    m_commands.push_back(std::move(command));
}

QString CommandLine::usage() const
{
    QString text = QStringLiteral("usage:");
    for (const auto& command : m_commands)
        text += QStringLiteral("\n  brevona-cli ") + command->synopsis();
    text += QStringLiteral("\n  (--verbose anywhere shows the engine's diagnostic log)");
    return text;
}

int CommandLine::run(QStringList arguments)
{
    const bool verbose = arguments.removeAll(QStringLiteral("--verbose")) > 0;
    // The engine's diagnostics are for the tray application's log; a terminal shows results.
    QLoggingCategory::setFilterRules(verbose ? QStringLiteral("com.orvik.app.compression.debug=true")
                                             : QStringLiteral("com.orvik.app.compression=false"));

    if (arguments.isEmpty() || arguments.first() == QLatin1String("--help") ||
        arguments.first() == QLatin1String("-h")) {
        (arguments.isEmpty() ? CliOutput::err : CliOutput::out)(usage());
        return arguments.isEmpty() ? CliCommand::UsageError : CliCommand::Success;
    }
    const QString name = arguments.takeFirst();
    for (const auto& command : m_commands) {
        if (command->name() == name)
            return command->run(arguments);
    }
    CliOutput::error(QStringLiteral("unknown command \"%1\"").arg(name));
    CliOutput::err(usage());
    return CliCommand::UsageError;
}
