#include "cli/CliOutput.h"

#include <cstdio>

#include <unistd.h>

namespace CliOutput {

void out(const QString& line)
{
    std::fputs(line.toUtf8().append('\n').constData(), stdout);
    std::fflush(stdout);
}

void err(const QString& line)
{
    errRaw(line + QLatin1Char('\n'));
}

void errRaw(const QString& text)
{
    std::fputs(text.toUtf8().constData(), stderr);
    std::fflush(stderr);
}

void error(const QString& message)
{
    err(QStringLiteral("brevona-cli: ") + message);
}

bool stderrIsTerminal()
{
    return ::isatty(STDERR_FILENO) == 1;
}

} // namespace CliOutput
