#include <QCoreApplication>
#include <QTextStream>

#include "cli/SendCommand.h"

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QTextStream err(stderr);
    const QStringList args = QCoreApplication::arguments().mid(1);
    if (args.value(0) == QLatin1String("send"))
        return SendCommand::run(args.mid(1), err);
    err << "usage: brevona-cli send FILE...\n";
    return 2;
}
