#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "pipeline/capture/CaptureTypes.h"

namespace uvc_client {
namespace capture {

// What to ask the camera for so that a stream can be made from it.
struct CaptureChoice {
    CaptureMode::Interval interval;  // chosen frame interval ({0,0} when the camera named none)
    uint32_t fourcc = 0, width = 0, height = 0;  // what to ask the camera for
    bool direct = false;  // same format and size as the target: one copy per frame
};

// The best of what the camera offers for the target; nullopt when nothing
// offered can be converted to the target (no YUYV/YU12/NV12/MJPEG mode, or
// the target format is not one of YUYV/YU12/NV12/MJPEG, or zero sizes).
// Modes of other formats or of a zero size are ignored.
//
// Modes are ranked, first key first:
//  1. size: the target's size; else the smallest (by area) that covers it in
//     both dimensions, so that the stream only scales down; else the largest.
//  2. format: the target's; then, for a raw target, another raw format before
//     MJPEG (decoding costs more than repacking); for an MJPEG target any raw
//     format (the picture has to be encoded either way).
// So the exact format and size wins, and a same-size MJPEG mode beats a raw
// mode that would have to be scaled. Among the modes of the best rank the
// interval is chosen from all their rates: the slowest that reaches the
// target's fps within 1 % (the stream repeats or skips frames, so a faster
// camera is only load; 29.97 serves 30); when none does, the fastest (frames
// repeat). Intervals with a zero numerator or denominator are unknown and
// chosen only when nothing else is named; a target of 0 fps takes the
// fastest rate. Ties go to the mode offered first.
std::optional<CaptureChoice> chooseCapture(const std::vector<CaptureMode>& offered,
                                           const CaptureTarget& target);

// The one log line saying what was chosen, e.g.
// "camera 1280x720 YUYV at 30 fps -> host 640x360 NV12 at 30 fps: converted and scaled".
// The closing words name the work per frame: "copied", or any of "decoded",
// "converted", "scaled", "encoded".
std::string describeChoice(const CaptureChoice& choice, const CaptureTarget& target);

}  // namespace capture
}  // namespace uvc_client
