#pragma once

#include <cstdint>
#include <vector>

#include "media/FrameSize.h"

namespace uvc_host {

// A planar YUV 4:2:0 picture showing its frame number in large digits on a
// background that shifts with the number, so that a viewer sees both the
// count and the motion.
class TestImage {
public:
    TestImage(FrameSize size, uint64_t number);

    FrameSize size() const { return size_; }
    const uint8_t* plane(int i) const { return planes_[i].data(); }
    int stride(int i) const { return i == 0 ? int(size_.width) : int((size_.width + 1) / 2); }
    // Y, U and V planes back to back (the layout of an I420 file).
    std::vector<uint8_t> packed() const;

private:
    FrameSize size_;
    std::vector<uint8_t> planes_[3];
};

}  // namespace uvc_host
