#include <memory>

#include <QCoreApplication>

#include "cli/ArgumentText.h"
#include "cli/CommandLine.h"
#include "cli/CompressCommand.h"
#include "cli/InstallActionsCommand.h"
#include "cli/SendCommand.h"
#include "cli/SettingsCommand.h"

int main(int argc, char* argv[])
{
    // From argv rather than QCoreApplication::arguments(), which turns bytes that are not UTF-8
    // into U+FFFD and so could name a different file.
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments.append(ArgumentText::decoded(QByteArray(argv[i])));

    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("brevona-cli"));

    CommandLine commandLine;
    commandLine.add(std::make_unique<CompressCommand>());
    commandLine.add(std::make_unique<SendCommand>());
    commandLine.add(std::make_unique<SettingsCommand>());
    commandLine.add(std::make_unique<InstallActionsCommand>());
    return commandLine.run(arguments);
}
