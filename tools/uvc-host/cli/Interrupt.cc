#include "cli/Interrupt.h"

#include <csignal>

namespace uvc_host {

namespace {

volatile std::sig_atomic_t gInterrupted = 0;

void onInterrupt(int) {
    gInterrupted = 1;
    std::signal(SIGINT, SIG_DFL);
}

}  // namespace

void installInterruptHandler() {
    std::signal(SIGINT, onInterrupt);
}

bool interruptRequested() {
    return gInterrupted != 0;
}

}  // namespace uvc_host
