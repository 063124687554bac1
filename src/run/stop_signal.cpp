#include "run/stop_signal.h"

#include <unistd.h>

#include <csignal>
#include <initializer_list>

#include "base/ranks.h"

namespace voxlith {

namespace {

// The one variable that a signal handler may set.
volatile std::sig_atomic_t lastSignal = 0;

constexpr int signalStatus = 128;

void endAtOnce(int signal) {
    ::_exit(signalStatus + signal);
}

void record(int signal) {
    lastSignal = signal;
}

void handle(void (*handler)(int), int flags) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    ::sigemptyset(&action.sa_mask);
    for (const int signal : {SIGINT, SIGTERM, SIGUSR1}) {
        struct sigaction present {};
        // What the caller of the program switched off stays so: nohup, and background work of a shell.
        if (::sigaction(signal, nullptr, &present) == 0 && present.sa_handler != SIG_IGN) {
            ::sigaction(signal, &action, nullptr);
        }
    }
}

}  // namespace

void watchSignals() {
    handle(endAtOnce, 0);
}

void keepIterations() {
    // Reset on the first signal, so that a second one has its usual effect. Writes go on after an interruption.
    handle(record, static_cast<int>(SA_RESETHAND | SA_RESTART));
}

int signalOfRanks() {
    return static_cast<int>(largestOfRanks(lastSignal));
}

}  // namespace voxlith
