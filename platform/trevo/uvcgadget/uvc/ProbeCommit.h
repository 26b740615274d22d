#pragma once

#include <linux/usb/video.h>

#include <cstdint>

#include "uvc/GadgetFunction.h"

namespace uvc_gadget {

// The stream a commit chose, in the units the bridge hands on.
struct StreamFormat {
    uint32_t fourcc = 0;
    uint16_t width = 0;
    uint16_t height = 0;
    uint32_t interval = 0;      // 100 ns units
    uint32_t maxFrameSize = 0;  // bytes
    bool compressed = false;

    // Frames per second, rounded to the nearest whole number (at least 1).
    int32_t fps() const;
};

// The streaming interface's probe and commit controls of one function. The
// host proposes a format, frame and interval with SET_CUR(PROBE), reads back
// what the device makes of it with GET_CUR(PROBE), and fixes it with
// SET_CUR(COMMIT). Every proposal is answered with a declared combination:
// an unknown format or frame becomes the default one, an interval the
// nearest declared one. Not thread-safe; used on the bridge's event thread.
class ProbeCommit {
public:
    explicit ProbeCommit(const GadgetFunction& function);

    // The control the host gets for GET_DEF, GET_MIN and GET_MAX: the default
    // format and frame at their default interval, the first format's first
    // frame at its shortest interval, the last format's last frame at its
    // longest interval.
    uvc_streaming_control defaults() const;
    uvc_streaming_control minimum() const;
    uvc_streaming_control maximum() const;

    // The declared combination nearest to `request`, with the sizes filled.
    uvc_streaming_control negotiate(const uvc_streaming_control& request) const;

    void setProbe(const uvc_streaming_control& request) { probe_ = negotiate(request); }
    const uvc_streaming_control& probe() const { return probe_; }
    // Negotiates and stores the commit; returns what was committed.
    StreamFormat commit(const uvc_streaming_control& request);
    const uvc_streaming_control& committed() const { return commit_; }
    // The committed stream; the default one before any commit.
    const StreamFormat& committedFormat() const { return committedFormat_; }

    // Bytes of the control the function's UVC version uses (26 for 1.0,
    // 34 from 1.1 on): what GET_LEN answers and GET_CUR sends at most.
    uint16_t controlSize() const;

private:
    uvc_streaming_control make(const FormatDesc& format, const FrameDesc& frame,
                               uint32_t interval) const;
    StreamFormat formatOf(const uvc_streaming_control& control) const;

    const GadgetFunction& function_;
    uvc_streaming_control probe_;
    uvc_streaming_control commit_;
    StreamFormat committedFormat_;
};

}  // namespace uvc_gadget
