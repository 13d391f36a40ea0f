#pragma once
// SIGINT and SIGTERM while an export runs: the first asks the run to stop (it ends cleanly, with
// exit status 128 + the signal's number), a second ends the process at once.
//
// Threads: made and destroyed on the main thread around the run. The handler may run on any
// thread; it only sets the stop request (or calls _exit), which is async-signal-safe.

#include "export/stoprequest.h"

#include <QString>

namespace cli {

class InterruptScope {
public:
    explicit InterruptScope(exporting::StopRequest &stop);
    ~InterruptScope(); // the signals' earlier handling is back
    InterruptScope(const InterruptScope &) = delete;
    InterruptScope &operator=(const InterruptScope &) = delete;
};

// 128 + the signal that stopped the run; 0 when none did.
int interruptedStatus(const exporting::StopRequest &stop);
// "SIGINT", "SIGTERM" (or "a signal").
QString signalName(int signal);

} // namespace cli
