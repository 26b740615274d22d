#pragma once

namespace hidl_uvc_client {

// True from an accepted init() until the client it started has been
// destroyed. For tests and tools that start and stop clients in turn.
bool clientRunning();

}  // namespace hidl_uvc_client
