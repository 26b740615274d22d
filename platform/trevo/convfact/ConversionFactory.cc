#include "trevo/ConversionFactory.h"

#include "StandInState.h"

namespace trevo {

int ConversionFactory::convert(GBuffer* frame, int format) {
    convfact_standin::countConvert();
    if (frame == nullptr || convfact_standin::takeConversionFailure())
        return -1;
    auto it = converters.find(std::make_pair(static_cast<int>(frame->format), format));
    if (it != converters.end() && it->second != nullptr) {
        return it->second->convert(frame, format);
    }
    // Nothing to convert: the frame already has the requested format.
    if (static_cast<int>(frame->format) == format) {
        onFrameConverted(frame);
        return 0;
    }
    return -2;
}

// The plainest delivery: every sink in turn, the mutex held throughout, so a
// sink that takes long holds up every other frame of every stream.
void ConversionFactory::onFrameConverted(GBuffer* frame) {
    if (!convfact_standin::deliverNow(&pluginManager, this, frame))
        return;
    std::lock_guard<std::mutex> guard(sinksMutex);
    for (FrameReceiver* sink : sinks) {
        sink->preProcessBuffer(frame);
        sink->processBuffer(frame);
        convfact_standin::countDelivery();
    }
}

}  // namespace trevo
