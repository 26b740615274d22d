#include "uvc/ProbeCommit.h"

#include <endian.h>

namespace uvc_gadget {

namespace {

// dwClockFrequency: the unit of presentation time stamps (none are sent).
constexpr uint32_t kClockFrequency = 48000000;
// bmFramingInfo: every payload carries the frame-id and end-of-frame bits.
constexpr uint8_t kFramingInfo = 0x03;

// A host that asks for no interval gets the frame's default. The answer is
// a declared interval even when the default is not (a function table that no
// reader checked): an interval of 0 would be a stream that never starts.
uint32_t nearestInterval(const FrameDesc& frame, uint32_t wanted) {
    return frame.nearestInterval(wanted != 0 ? wanted : frame.defaultInterval);
}

}  // namespace

int32_t StreamFormat::fps() const {
    if (interval == 0)
        return 0;
    const uint32_t rate = (10000000u + interval / 2) / interval;
    return rate == 0 ? 1 : static_cast<int32_t>(rate);
}

ProbeCommit::ProbeCommit(const GadgetFunction& function) : function_(function) {
    probe_ = defaults();
    commit_ = probe_;
    committedFormat_ = formatOf(commit_);
}

uvc_streaming_control ProbeCommit::make(const FormatDesc& format, const FrameDesc& frame,
                                        uint32_t interval) const {
    uvc_streaming_control c = {};
    c.bmHint = htole16(0);
    c.bFormatIndex = format.index;
    c.bFrameIndex = frame.index;
    c.dwFrameInterval = htole32(interval);
    c.dwMaxVideoFrameSize = htole32(frame.maxFrameSize);
    c.dwMaxPayloadTransferSize = htole32(function_.endpoint.bytesPerService());
    c.dwClockFrequency = htole32(kClockFrequency);
    c.bmFramingInfo = kFramingInfo;
    c.bPreferedVersion = 1;
    c.bMinVersion = 1;
    c.bMaxVersion = 1;
    return c;
}

uint16_t ProbeCommit::controlSize() const {
    // UVC 1.0 ends the control after dwMaxPayloadTransferSize.
    return function_.uvcVersion >= 0x0110 ? sizeof(uvc_streaming_control) : 26;
}

uvc_streaming_control ProbeCommit::defaults() const {
    if (function_.formats.empty())
        return uvc_streaming_control{};
    const FormatDesc& format = function_.formats.front();
    const FrameDesc* frame = format.frame(format.defaultFrameIndex);
    if (frame == nullptr)
        frame = &format.frames.front();
    return make(format, *frame, nearestInterval(*frame, 0));
}

uvc_streaming_control ProbeCommit::minimum() const {
    if (function_.formats.empty())
        return uvc_streaming_control{};
    const FrameDesc& frame = function_.formats.front().frames.front();
    return make(function_.formats.front(), frame, frame.intervals.front());
}

uvc_streaming_control ProbeCommit::maximum() const {
    if (function_.formats.empty())
        return uvc_streaming_control{};
    const FrameDesc& frame = function_.formats.back().frames.back();
    return make(function_.formats.back(), frame, frame.intervals.back());
}

uvc_streaming_control ProbeCommit::negotiate(const uvc_streaming_control& request) const {
    const FormatDesc* format = function_.format(request.bFormatIndex);
    if (format == nullptr) {
        if (function_.formats.empty())
            return uvc_streaming_control{};
        format = &function_.formats.front();
    }
    const FrameDesc* frame = format->frame(request.bFrameIndex);
    if (frame == nullptr)
        frame = format->frame(format->defaultFrameIndex);
    if (frame == nullptr)
        frame = &format->frames.front();
    return make(*format, *frame, nearestInterval(*frame, le32toh(request.dwFrameInterval)));
}

StreamFormat ProbeCommit::formatOf(const uvc_streaming_control& control) const {
    StreamFormat result;
    const FormatDesc* format = function_.format(control.bFormatIndex);
    const FrameDesc* frame = format != nullptr ? format->frame(control.bFrameIndex) : nullptr;
    if (frame == nullptr)
        return result;
    result.fourcc = format->fourcc;
    result.width = frame->width;
    result.height = frame->height;
    result.interval = le32toh(control.dwFrameInterval);
    result.maxFrameSize = frame->maxFrameSize;
    result.compressed = format->compressed;
    return result;
}

StreamFormat ProbeCommit::commit(const uvc_streaming_control& request) {
    commit_ = negotiate(request);
    committedFormat_ = formatOf(commit_);
    return committedFormat_;
}

}  // namespace uvc_gadget
