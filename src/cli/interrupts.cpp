#include "cli/interrupts.h"

#include <csignal>

#ifdef Q_OS_UNIX
#include <unistd.h>
#else
#include <cstdlib>
#endif

namespace cli {

namespace {

exporting::StopRequest *g_stop = nullptr;

extern "C" void onStopSignal(int signal)
{
    exporting::StopRequest *stop = g_stop;
    if (!stop)
        return;
    if (stop->requested()) // asked twice: no waiting for the clean end
#ifdef Q_OS_UNIX
        _exit(128 + signal);
#else
        std::_Exit(128 + signal);
#endif
    stop->request(signal);
#ifndef Q_OS_UNIX
    std::signal(signal, onStopSignal); // re-armed: the platform resets it on delivery
#endif
}

#ifdef Q_OS_UNIX
struct sigaction g_previous[2];
#else
void (*g_previous[2])(int) = {SIG_DFL, SIG_DFL};
#endif
const int kSignals[2] = {SIGINT, SIGTERM};

} // namespace

InterruptScope::InterruptScope(exporting::StopRequest &stop)
{
    g_stop = &stop;
    for (int i = 0; i < 2; ++i) {
#ifdef Q_OS_UNIX
        struct sigaction action = {};
        action.sa_handler = onStopSignal;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART; // reads and writes in flight go on; the flag is looked at between them
        sigaction(kSignals[i], &action, &g_previous[i]);
#else
        g_previous[i] = std::signal(kSignals[i], onStopSignal);
#endif
    }
}

InterruptScope::~InterruptScope()
{
    for (int i = 0; i < 2; ++i) {
#ifdef Q_OS_UNIX
        sigaction(kSignals[i], &g_previous[i], nullptr);
#else
        std::signal(kSignals[i], g_previous[i]);
#endif
    }
    g_stop = nullptr;
}

int interruptedStatus(const exporting::StopRequest &stop)
{
    return stop.requested() ? 128 + stop.why() : 0;
}

QString signalName(int signal)
{
    if (signal == SIGINT)
        return QStringLiteral("SIGINT");
    if (signal == SIGTERM)
        return QStringLiteral("SIGTERM");
    return QStringLiteral("a signal");
}

} // namespace cli
