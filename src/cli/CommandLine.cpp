#include "cli/CommandLine.h"

#include <QLoggingCategory>

#include "cli/CliOutput.h"
#include "platform/BundleInfo.h"

namespace {

bool isHelpWord(const QString& word)
{
    return word == QLatin1String("--help") || word == QLatin1String("-h") || word == QLatin1String("help");
}

/// Whether "--help" or "-h" comes before the end of the options ("--").
bool asksForHelp(const QStringList& arguments)
{
    for (const QString& argument : arguments) {
        if (argument == QLatin1String("--"))
            return false;
        if (argument == QLatin1String("--help") || argument == QLatin1String("-h"))
            return true;
    }
    return false;
}

} // namespace

void CommandLine::add(std::unique_ptr<CliCommand> command)
{
    m_commands.push_back(std::move(command));
}

QString CommandLine::usage() const
{
    QString text = QStringLiteral("usage:");
    for (const auto& command : m_commands)
        text += QStringLiteral("\n  brevona-cli ") + command->synopsis();
    text += QStringLiteral("\n  brevona-cli help [COMMAND] | --help | --version"
                           "\n\n--verbose anywhere shows the engine's diagnostic log."
                           "\n\"brevona-cli help COMMAND\" describes one command.");
    return text;
}

const CliCommand* CommandLine::find(const QString& name) const
{
    for (const auto& command : m_commands) {
        if (command->name() == name)
            return command.get();
    }
    return nullptr;
}

QString CommandLine::commandHelp(const CliCommand& command)
{
    return QStringLiteral("usage: brevona-cli ") + command.synopsis() + QStringLiteral("\n\n") +
           command.help();
}

int CommandLine::run(QStringList arguments)
{
    const qsizetype separator = arguments.indexOf(QStringLiteral("--"));
    bool verbose = false;
    for (qsizetype i = (separator < 0 ? arguments.size() : separator) - 1; i >= 0; --i) {
        if (arguments[i] == QLatin1String("--verbose")) {
            arguments.removeAt(i);
            verbose = true;
        }
    }
    // The engine's diagnostics are for the tray application's log; a terminal shows results.
    QLoggingCategory::setFilterRules(verbose ? QStringLiteral("com.orvik.app.compression.debug=true")
                                             : QStringLiteral("com.orvik.app.compression=false"));

    if (arguments.isEmpty()) {
        CliOutput::err(usage());
        return CliCommand::UsageError;
    }
    if (arguments.first() == QLatin1String("--version")) {
        CliOutput::out(QStringLiteral("brevona-cli ") +
                       BundleInfo::main().shortVersion().value_or(QStringLiteral("(unknown version)")));
        return CliCommand::Success;
    }
    if (isHelpWord(arguments.first())) {
        if (arguments.size() == 1) {
            CliOutput::out(usage());
            return CliCommand::Success;
        }
        if (const CliCommand* command = find(arguments[1]); command && arguments.size() == 2) {
            CliOutput::out(commandHelp(*command));
            return CliCommand::Success;
        }
        CliOutput::error(QStringLiteral("no help for \"%1\"").arg(arguments.mid(1).join(u' ')));
        CliOutput::err(usage());
        return CliCommand::UsageError;
    }
    const QString name = arguments.takeFirst();
    for (const auto& command : m_commands) {
        if (command->name() != name)
            continue;
        if (asksForHelp(arguments)) {
            CliOutput::out(commandHelp(*command));
            return CliCommand::Success;
        }
        return command->run(arguments);
    }
    CliOutput::error(QStringLiteral("unknown command \"%1\"").arg(name));
    CliOutput::err(usage());
    return CliCommand::UsageError;
}
