#pragma once

namespace uvc_host {

// Ctrl-C ends a running `stream` early with its summary instead of killing
// the tool mid-write. A second Ctrl-C kills it as usual.
void installInterruptHandler();
bool interruptRequested();

}  // namespace uvc_host
