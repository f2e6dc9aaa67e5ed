#pragma once

#include <QString>
#include <QStringList>

/**
 * One subcommand of brevona-cli ("compress", "settings", ...).
 *
 * A command receives the arguments that follow its name and answers the process's exit code.
 * It writes results to stdout and diagnostics to stderr; it never calls exit() itself.
 */
class CliCommand
{
public:
    enum ExitCode
    {
        Success = 0,
        Failure = 1,
        UsageError = 2
    };

    virtual ~CliCommand() = default;

    /// The word that selects the command.
    virtual QString name() const = 0;
    /// One line of usage after the program name, for example "compress [options] FILE...".
    virtual QString synopsis() const = 0;
    /// What the command does and its options, shown by "--help" after the synopsis.
    virtual QString help() const = 0;
    virtual int run(const QStringList& arguments) = 0;
};
