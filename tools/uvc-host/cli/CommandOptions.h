#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "link/StreamKey.h"
#include "media/FrameSize.h"
#include "media/VideoFormat.h"

namespace uvc_host {

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
    std::string camera;  // V4L2 capture device behind the streams; empty: none
    std::string output;
    std::vector<SaveFrameRequest> saveFrames;
    std::vector<std::pair<StreamKey, uint32_t>> hostDelaysMs;  // --host-delay ID:IDX=MS
    std::string timingFile;  // one record per received frame
    std::string reportDir;   // HTML page with plots and pictures
    bool json = false;
    bool verbose = false;
    bool progress = true;
};

struct ControlOptions {
    // Messages: JSON texts as given; Get, Set, List: settings by name.
    enum class Action { Messages, Get, Set, List };
    Action action = Action::Messages;
    std::vector<std::string> messages;  // from the arguments, then from --file
    std::string file;
    std::vector<std::string> names;  // get: NAME, set: NAME=VALUE (VALUE a whole number)
    StreamKey stream;
    double waitSec = 1;  // how long each message may take
    bool json = false;
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
    bool json = false;
    bool verbose = false;
};

// An option's text as the command line gave it; `given` tells an empty value
// from an absent option.
struct OptionText {
    std::string value;
    bool given = false;
};

// The texts of the options that take a value, before they are checked.
struct StreamTexts {
    std::vector<std::string> streams;
    OptionText size, fps, format, duration, frames, timeout, tolerance, framesDir, camera, output;
    OptionText timing, report;
    std::vector<std::pair<std::string, std::string>> saveFrames;
    std::vector<std::string> hostDelays;
};

struct ControlTexts {
    OptionText file, stream, wait;
};

struct FramesTexts {
    OptionText format, size, count, fps, dir, encoder;
};

// Each checks the texts and converts them into `out`, whose flags and
// positional arguments are already set. The result is "" or one line
// saying what is wrong.
std::string checkStreamOptions(const StreamTexts& in, StreamOptions* out);
std::string checkControlOptions(const ControlTexts& in, ControlOptions* out);
std::string checkFramesOptions(const FramesTexts& in, FramesOptions* out);

}  // namespace uvc_host
