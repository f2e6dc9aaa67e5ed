#pragma once

#include <memory>
#include <vector>

#include <QStringList>

#include "cli/CliCommand.h"

/**
 * Picks the subcommand named by the first argument and runs it.
 *
 * "--verbose" anywhere turns the engine's debug log on; "--help" or no command prints usage.
 * @code
 * CommandLine commandLine;
 * commandLine.add(std::make_unique<CompressCommand>());
 * return commandLine.run(QCoreApplication::arguments().mid(1));
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
    std::vector<std::unique_ptr<CliCommand>> m_commands;
};
