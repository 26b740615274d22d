#include "cli/Interrupt.h"

#include <csignal>

namespace uvc_host {

namespace {

volatile std::sig_atomic_t gSignal = 0;

void onSignal(int signal) {
    gSignal = signal;
    std::signal(signal, SIG_DFL);
}

}  // namespace

void installInterruptHandler() {
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
}

bool interruptRequested() {
    return gSignal != 0;
}

int interruptExitStatus() {
    return gSignal != 0 ? 128 + int(gSignal) : 0;
}

void simulateInterrupt(int signal) {
    gSignal = signal;
}

}  // namespace uvc_host
