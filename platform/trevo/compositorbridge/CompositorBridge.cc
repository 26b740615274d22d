#include "trevo/CompositorBridge.h"

#include <string>

#include "HostCore.h"

namespace trevo {

using trevo_standin::HostCore;

CompositorBridge::CompositorBridge(BridgeContext context)
    : context_(context), token_(HostCore::instance().bridgeCreated()) {}

CompositorBridge::CompositorBridge(const CompositorBridge& other)
    : context_(other.context_), token_(HostCore::instance().bridgeCreated()) {}

CompositorBridge& CompositorBridge::operator=(const CompositorBridge& other) {
    // Each object keeps its own identity; only the connection kind is copied.
    context_ = other.context_;
    return *this;
}

CompositorBridge::~CompositorBridge() {
    HostCore::instance().bridgeDestroyed(token_);
}

int CompositorBridge::registerHotPlugHandler(HotPlugHandler& handler) {
    HostCore::instance().registerHandler(&handler, token_);
    return 0;
}

int CompositorBridge::registerProjector(unsigned int projector) {
    HostCore::instance().recordCall("registerProjector(" + std::to_string(projector) + ")");
    return 0;
}

HalUvcConfig CompositorBridge::getConfiguration(uint8_t stream_id, uint8_t stream_idx) {
    return HostCore::instance().configuration(stream_id, stream_idx, true);
}

int CompositorBridge::sendFrameBuffer(uint32_t /*channel*/, AHardwareBuffer* buffer, uint32_t size,
                                      uint8_t stream_id, uint8_t stream_idx, uint32_t /*flags*/) {
    return HostCore::instance().receiveFrame(buffer, size, stream_id, stream_idx);
}

int CompositorBridge::onAppMessage(const std::string& message) {
    HostCore::instance().recordAppMessage(message);
    return 0;
}

int CompositorBridge::onAppMessage(const char* message) {
    HostCore::instance().recordAppMessage(message != nullptr ? message : "");
    return 0;
}

}  // namespace trevo
