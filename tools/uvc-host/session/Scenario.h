#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "link/StreamKey.h"
#include "media/FrameSize.h"
#include "media/VideoFormat.h"

namespace uvc_host {

// One line of a scenario file. Each line is a JSON object with one action
// and, optionally, "at_ms": the time after the start at which it runs (a
// time already past runs it at once). Actions:
//   {"configure":{"stream":"0:0","size":"640x480","fps":30,"format":"YUYV","streaming":true}}
//   {"hotplug":{"status":4,"stream":"0:0"}}          "stream":"all" sends stream id 255
//   {"control":"{\"msg_type\":...}","stream":"0:0"}  text or a JSON object
//   {"wait_ms":500}
//   {"fail_sends":3}                                  next 3 hand-overs lose the connection
//   {"expect":{"frames":{"stream":"0:0","min":10,"max":100}}}
//   {"expect":{"reply_contains":"brightness"}}        in a reply to the last control/hotplug
//   {"expect":{"replies":{"min":1,"max":1}}}          replies to the last control/hotplug
//   {"expect":{"recoveries":{"min":1}}}
// An expectation waits up to "within_ms" (in "expect", default 2000) for a
// minimum to be reached, then checks it and the maximum.
struct ScenarioEvent {
    enum class Kind { Configure, Hotplug, Control, Wait, FailSends, Expect };
    enum class Subject { Frames, ReplyContains, Replies, Recoveries };

    int line = 0;
    int64_t atMs = -1;  // -1: right after the previous event
    Kind kind = Kind::Wait;

    StreamKey stream;
    bool allStreams = false;
    FrameSize size;
    uint32_t fps = 0;
    const VideoFormat* format = nullptr;
    bool streaming = true;
    int status = 4;
    std::string message;  // control text
    uint64_t waitMs = 0;
    int failCount = 0;

    Subject subject = Subject::Frames;
    uint64_t min = 0;
    uint64_t max = std::numeric_limits<uint64_t>::max();
    std::string text;  // reply_contains
    uint64_t withinMs = 2000;
};

// Parses the lines of a scenario file; blank lines and lines starting with
// '#' are skipped. On failure `error` is "LINE: reason" for the first bad line.
bool parseScenario(const std::vector<std::string>& lines, std::vector<ScenarioEvent>* events,
                   std::string* error);

}  // namespace uvc_host
