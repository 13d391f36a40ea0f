#pragma once
// The headless face of the parcelwise executable: with a command it runs without a display.

namespace cli {

// True when the arguments ask for a command (or the command line's help) rather than the window.
bool isCommandLine(int argc, char **argv);
// Runs the command and returns the process exit status. Creates only a QCoreApplication.
int runCommandLine(int argc, char **argv);

} // namespace cli
