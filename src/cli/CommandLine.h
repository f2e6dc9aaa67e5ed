#pragma once

#include <memory>
#include <vector>

#include <QStringList>

#include "cli/CliCommand.h"

/**
 * Picks the subcommand named by the first argument and runs it.
 *
 * "--verbose" anywhere turns the engine's debug log on. "help", "--help" and "-h" print usage on
 * stdout (for one command with "help COMMAND" or "COMMAND --help"), "--version" the version.
 * @code
 * CommandLine commandLine;
 * commandLine.add(std::make_unique<CompressCommand>());
 * return commandLine.run(arguments);
 * @endcode
 */
class CommandLine final
{
public:
    void add(std::unique_ptr<CliCommand> command);
    /// Runs with the arguments after the program name; answers the exit code.
    int run(QStringList arguments);
    QString usage() const;

private:
    const CliCommand* find(const QString& name) const;
    static QString commandHelp(const CliCommand& command);

    std::vector<std::unique_ptr<CliCommand>> m_commands;
};
