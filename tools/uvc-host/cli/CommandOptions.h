#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "media/FrameSize.h"
#include "link/StreamKey.h"
#include "media/VideoFormat.h"

namespace uvc_host {

// What parsing a sub-command's arguments came to.
struct ParseOutcome {
    enum Status { Ok, Help, Error };
    Status status = Ok;
    std::string error;  // one line, for Error
};

struct SaveFrameRequest {
    uint64_t index = 0;  // counted from 0, per stream
    std::string path;
};

struct StreamOptions {
    std::vector<StreamKey> streams;  // 0:0 when none was given
    bool allStreams = false;
    FrameSize size{640, 480};
    uint32_t fps = 30;
    const VideoFormat* format = nullptr;  // YUYV when none was given
    double durationSec = 0;               // one of durationSec and frames is set
    uint64_t frames = 0;
    double timeoutSec = 0;  // --frames only; 0: frames / fps + 5 s
    double fpsTolerancePct = 10;
    std::string framesDir;
    bool jpeg = false;
    std::string output;
    std::vector<SaveFrameRequest> saveFrames;
    bool json = false;
    bool verbose = false;
    bool progress = true;
};

struct ControlOptions {
    std::vector<std::string> messages;  // from the arguments, then from --file
    std::string file;
    StreamKey stream;
    double waitSec = 1;  // how long to wait for replies after the last message
    bool verbose = false;
};

struct FramesOptions {
    const VideoFormat* format = nullptr;
    FrameSize size;
    uint64_t count = 0;
    uint32_t fps = 30;  // H.264 only: the encoder's time base and GOP length
    std::string dir;
    std::string encoder;  // H.264 only: path of ffmpeg; searched on PATH when empty
};

struct ScenarioOptions {
    std::string file;
    std::string framesDir;
    bool jpeg = false;
    bool verbose = false;
};

ParseOutcome parseStreamOptions(const std::vector<std::string>& args, StreamOptions* out);
ParseOutcome parseControlOptions(const std::vector<std::string>& args, ControlOptions* out);
// args start after "frames"; the first must be the action "make".
ParseOutcome parseFramesOptions(const std::vector<std::string>& args, FramesOptions* out);
ParseOutcome parseScenarioOptions(const std::vector<std::string>& args, ScenarioOptions* out);

}  // namespace uvc_host
