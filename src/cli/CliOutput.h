#pragma once

#include <QString>

/// Plain writers for the terminal streams (UTF-8, flushed at once).
namespace CliOutput {
void out(const QString& line);
void err(const QString& line);
/// "brevona-cli: <message>" on stderr.
void error(const QString& message);
/// Whether stderr is an interactive terminal.
bool stderrIsTerminal();
/**
 * Shows `text` (one line, no break) as the line redrawn in place at the bottom of stderr, such as
 * a progress bar; an empty text clears it. Lines written through err() meanwhile appear above it.
 */
void setStatusLine(const QString& text);
/// Routes Qt's log messages through err(), so they never run into the status line.
void installLogHandler();
} // namespace CliOutput
