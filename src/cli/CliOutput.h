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
/// Text on stderr without a line break (for a progress bar redrawn in place).
void errRaw(const QString& text);
} // namespace CliOutput
