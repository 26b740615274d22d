#pragma once

#include "cli/CommandOptions.h"
#include "cli/HostIo.h"
#include "link/UvcLink.h"

namespace uvc_host {

// `uvc-host control`: sends camera-control messages, one after the other,
// and prints every reply the library sends back, one per line; or, with
// get, set or list, reads and writes settings by name (SettingCommands).
class ControlSession {
public:
    ControlSession(const ControlOptions& options, UvcLinkFactory factory, HostIo io);

    // kExitFailed for setting names the library does not have, kExitUsage
    // for messages that are not JSON (both before anything is sent),
    // kExitFailed when a message was not delivered in time.
    int run();

private:
    int loadMessages();  // an exit status
    int sendMessages(UvcLink& link);

    ControlOptions options_;
    UvcLinkFactory factory_;
    HostIo io_;
};

}  // namespace uvc_host
