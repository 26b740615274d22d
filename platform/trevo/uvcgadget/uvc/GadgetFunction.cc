#include "uvc/GadgetFunction.h"

#include <cstdlib>

namespace uvc_gadget {

uint32_t FrameDesc::nearestInterval(uint32_t wanted) const {
    uint32_t best = intervals.front();
    for (uint32_t i : intervals) {
        if (std::llabs(int64_t(i) - wanted) < std::llabs(int64_t(best) - wanted))
            best = i;
    }
    return best;
}

const FrameDesc* FormatDesc::frame(uint8_t frameIndex) const {
    for (const FrameDesc& f : frames) {
        if (f.index == frameIndex)
            return &f;
    }
    return nullptr;
}

const FormatDesc* GadgetFunction::format(uint8_t formatIndex) const {
    for (const FormatDesc& f : formats) {
        if (f.index == formatIndex)
            return &f;
    }
    return nullptr;
}

FunctionSource::~FunctionSource() = default;

}  // namespace uvc_gadget
