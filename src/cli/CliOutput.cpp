#include "cli/CliOutput.h"

#include <cstdio>
#include <mutex>

#include <unistd.h>

namespace CliOutput {

namespace {

// Log lines come from the engine's worker threads as well as from the main thread.
std::mutex g_stderrMutex;
QString g_statusLine;

void writeErr(const QString& text)
{
    std::fputs(text.toUtf8().constData(), stderr);
    std::fflush(stderr);
}

const QString kClearLine = QStringLiteral("\r\x1b[2K");

} // namespace

void out(const QString& line)
{
    std::fputs(line.toUtf8().append('\n').constData(), stdout);
    std::fflush(stdout);
}

void err(const QString& line)
{
    const std::lock_guard lock(g_stderrMutex);
    if (g_statusLine.isEmpty())
        writeErr(line + u'\n');
    else
        writeErr(kClearLine + line + u'\n' + g_statusLine);
}

void setStatusLine(const QString& text)
{
    const std::lock_guard lock(g_stderrMutex);
    g_statusLine = text;
    writeErr(kClearLine + text);
}

void error(const QString& message)
{
    err(QStringLiteral("brevona-cli: ") + message);
}

bool stderrIsTerminal()
{
    return ::isatty(STDERR_FILENO) == 1;
}

void installLogHandler()
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext& context, const QString& message) {
        const QString category = context.category && qstrcmp(context.category, "default") != 0
                                     ? QString::fromLatin1(context.category) + QStringLiteral(": ")
                                     : QString();
        err(category + message);
    });
}

} // namespace CliOutput
