#pragma once

#include <cstdint>
#include <string>

#include "trevo/ConnectionStatus.h"
#include "trevo/TrevoExport.h"

namespace trevo {

// Callback interface of the compositor bridge. Both calls arrive on the
// bridge's own threads.
//
// Lifetime rule: a handler is called until the bridge object it was
// registered through is destroyed or another handler is registered. Each of
// these waits for a call already running on the handler to return (unless it
// is made from inside that call) and no call starts afterwards. The bridge
// offers no other way to stop the calls, and this base destructor does
// nothing about them: a derived class must register another handler first
// thing in its destructor, while its own members still exist.
class TREVO_EXPORT HotPlugHandler {
public:
    virtual void hotplug(ConnectionStatus status, uint8_t stream_id, uint8_t stream_idx) = 0;
    virtual void setting(std::string message, uint8_t stream_id, uint8_t stream_idx) = 0;
    virtual ~HotPlugHandler();
};

}  // namespace trevo
