#pragma once

#include <cstdint>
#include <string>

#include "trevo/ConnectionStatus.h"
#include "trevo/TrevoExport.h"

namespace trevo {

// Callback interface of the compositor bridge. Both calls arrive on the
// bridge's own threads.
//
// Lifetime rule: a handler is called until it is unregistered
// (CompositorBridge::unregisterHotPlugHandler), until the bridge object it was
// registered through is destroyed, or until another handler is registered.
// Each of these waits for a call already running on the handler to return
// (unless it is made from inside that call) and no call starts afterwards. A
// derived class must therefore unregister first thing in its destructor:
// this base destructor also unregisters, but by then the derived part is gone.
class TREVO_EXPORT HotPlugHandler {
public:
    virtual void hotplug(ConnectionStatus status, uint8_t stream_id, uint8_t stream_idx) = 0;
    virtual void setting(std::string message, uint8_t stream_id, uint8_t stream_idx) = 0;
    virtual ~HotPlugHandler();
};

}  // namespace trevo
