#pragma once
// The headless face of the parcelwise executable: with a command it runs without a display.

namespace cli {

// True when the arguments ask for a command (or the command line's help) rather than the window.
bool isCommandLine(int argc, char **argv);
// Without a display, the command line's usage goes to stderr (exit 2) where the window would open.
// Whether a window could be shown: a platform chosen that needs no display (offscreen, ...), or
// the display its platform needs. Decided without Qt, which aborts when it finds none.
bool displayAvailable(int argc, char **argv);
// Runs the command and returns the process exit status. Creates only a QCoreApplication.
int runCommandLine(int argc, char **argv);

} // namespace cli
