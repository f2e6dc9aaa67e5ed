#include <memory>

#include <QCoreApplication>

#include "cli/CommandLine.h"
#include "cli/CompressCommand.h"
#include "cli/SettingsCommand.h"

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("brevona-cli"));

    CommandLine commandLine;
    commandLine.add(std::make_unique<CompressCommand>());
    commandLine.add(std::make_unique<SettingsCommand>());
    return commandLine.run(QCoreApplication::arguments().mid(1));
}
