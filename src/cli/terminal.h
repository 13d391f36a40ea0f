#pragma once
// The few things the command line needs from the console, kept apart because they differ per
// platform.

#include <QString>

namespace cli {

bool stderrIsTerminal();
// Width of the terminal behind stderr; 80 when it cannot be told.
int terminalColumns();

// Writes text as the console expects it (UTF-8 here, the console's code page on Windows).
void writeOut(const QString &text);
void writeErr(const QString &text);

// Whether every write to standard output and standard error so far reached them.
bool outputFailed();
// Flushes both streams; false when anything written could not be delivered.
bool flushOutput();

// A name as it may be shown on a terminal: control characters escaped (\x1b, \n, \t, ...), so
// a name can neither drive the terminal nor split a line. keepLineEnds leaves line feeds alone
// (for multi-line texts such as error reports).
QString printable(const QString &text, bool keepLineEnds = false);

// One line from standard input without its line end; false when the input ended before any
// character of a line came.
bool readStdinLine(QString *line);

} // namespace cli
