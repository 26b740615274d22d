#include "trevo/CompositorBridge.h"

#include <string>

#include "GadgetCore.h"

namespace trevo {

using uvc_gadget::GadgetCore;

CompositorBridge::CompositorBridge(BridgeContext context)
    : context_(context), token_(GadgetCore::instance().bridgeCreated()) {}

CompositorBridge::CompositorBridge(const CompositorBridge& other)
    : context_(other.context_), token_(GadgetCore::instance().bridgeCreated()) {}

CompositorBridge& CompositorBridge::operator=(const CompositorBridge& other) {
    // Each object keeps its own identity; only the connection kind is copied.
    context_ = other.context_;
    return *this;
}

CompositorBridge::~CompositorBridge() {
    GadgetCore::instance().bridgeDestroyed(token_);
}

int CompositorBridge::registerHotPlugHandler(HotPlugHandler& handler) {
    GadgetCore::instance().registerHandler(&handler, token_);
    return 0;
}

int CompositorBridge::registerProjector(unsigned int projector) {
    return GadgetCore::instance().registerProjector(projector);
}

HalUvcConfig CompositorBridge::getConfiguration(uint8_t stream_id, uint8_t stream_idx) {
    return GadgetCore::instance().configuration(stream_id, stream_idx);
}

int CompositorBridge::sendFrameBuffer(uint32_t /*channel*/, AHardwareBuffer* buffer, uint32_t size,
                                      uint8_t stream_id, uint8_t stream_idx, uint32_t /*flags*/) {
    return GadgetCore::instance().sendFrame(buffer, size, stream_id, stream_idx);
}

int CompositorBridge::onAppMessage(const std::string& message) {
    GadgetCore::instance().appMessage(message);
    return 0;
}

int CompositorBridge::onAppMessage(const char* message) {
    GadgetCore::instance().appMessage(message != nullptr ? message : "");
    return 0;
}

}  // namespace trevo
