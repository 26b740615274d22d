#pragma once

namespace uvc_host {

// SIGINT (Ctrl-C) and SIGTERM end a running command early with its summary
// instead of killing the tool mid-write. A second signal of the same kind
// kills it as usual.
void installInterruptHandler();
bool interruptRequested();
// The exit status of a run ended by a signal: 128 + its number, as a shell
// reports a process killed by it (130 for SIGINT, 143 for SIGTERM); 0 when
// no signal came.
int interruptExitStatus();
// For tests: as if `signal` had arrived (0 forgets it).
void simulateInterrupt(int signal);

}  // namespace uvc_host
