#pragma once

#include <android/hardware_buffer.h>

#include <cstdint>
#include <string>

#include "trevo/BridgeContext.h"
#include "trevo/HalUvcConfig.h"
#include "trevo/HotPlugHandler.h"
#include "trevo/TrevoExport.h"

namespace trevo {

// Connection to the compositor. Every object, copies included, talks to the
// same compositor service; copies are cheap.
//
// The device's libcompositorbridge implements this class: the order of the
// virtual operations (sendFrameBuffer fourth) is its virtual table's and is
// checked by tests/platform/closed_layout_test.cc. Add no virtual operation
// and no member; an operation the device lacks would not link there.
class TREVO_EXPORT CompositorBridge {
public:
    explicit CompositorBridge(BridgeContext context);
    CompositorBridge(const CompositorBridge& other);
    CompositorBridge& operator=(const CompositorBridge& other);

    // Makes `handler` the receiver of hotplug and setting calls, replacing
    // any earlier one. See HotPlugHandler for the lifetime rule.
    virtual int registerHotPlugHandler(HotPlugHandler& handler);
    // Announces this process as projector `projector`; registering again
    // re-establishes a dropped connection to the UVC gadget.
    virtual int registerProjector(unsigned int projector);
    virtual HalUvcConfig getConfiguration(uint8_t stream_id, uint8_t stream_idx);
    // Hands a finished frame to the UVC gadget. The buffer is read during the
    // call only. Returns 0 when accepted, non-zero when the connection to the
    // gadget is lost. `channel` and `flags` are 0 for UVC streams.
    virtual int sendFrameBuffer(uint32_t channel, AHardwareBuffer* buffer, uint32_t size,
                                uint8_t stream_id, uint8_t stream_idx, uint32_t flags);
    // Sends a text message (JSON for replies) to the host application.
    virtual int onAppMessage(const std::string& message);
    virtual int onAppMessage(const char* message);
    // Ends the calls to the handler registered through this object, if any.
    virtual ~CompositorBridge();

private:
    BridgeContext context_;
    uint64_t token_;  // identifies this object to the compositor service
};

}  // namespace trevo
