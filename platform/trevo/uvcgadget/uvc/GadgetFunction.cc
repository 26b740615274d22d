#include "uvc/GadgetFunction.h"

namespace uvc_gadget {

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
