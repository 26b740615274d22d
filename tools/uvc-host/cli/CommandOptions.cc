#include "cli/CommandOptions.h"

#include "cli/NumberText.h"

namespace uvc_host {

namespace {

constexpr uint32_t kMaxFps = 240;
constexpr double kMaxSeconds = 24 * 3600;
constexpr uint64_t kMaxFrames = 100000000;
constexpr uint64_t kMaxFrameSetCount = 100000;
const std::string kUvcStreams = "0:0 to 0:3 or 1:0 to 1:3";

bool isWholeNumber(const std::string& text) {
    uint64_t unused = 0;
    bool negative = !text.empty() && text[0] == '-';
    return parseUnsigned(negative ? text.substr(1) : text, 2147483648u - (negative ? 0 : 1),
                         &unused);
}

bool checkFormat(const std::string& text, const VideoFormat** out, std::string* error) {
    *out = findFormat(text);
    if (!*out) {
        *error = "unknown format '" + text + "' (use " + formatNames() + ")";
    }
    return *out != nullptr;
}

bool checkSize(const std::string& text, FrameSize* out, std::string* error) {
    if (!FrameSize::parse(text, out)) {
        *error = "bad size '" + text + "' (use WIDTHxHEIGHT, each 1 to " +
                 std::to_string(FrameSize::kMaxSide) + ")";
        return false;
    }
    return true;
}

bool checkFps(const std::string& text, uint32_t* out, std::string* error) {
    uint64_t fps = 0;
    if (!parseUnsigned(text, kMaxFps, &fps) || fps == 0) {
        *error = "bad frame rate '" + text + "' (use 1 to " + std::to_string(kMaxFps) + ")";
        return false;
    }
    *out = uint32_t(fps);
    return true;
}

bool checkStreams(const std::vector<std::string>& texts, StreamOptions* out, std::string* error) {
    for (const std::string& text : texts) {
        if (text == "all") {
            out->allStreams = true;
            continue;
        }
        StreamKey key;
        if (!StreamKey::parse(text, &key) || !key.isUvcStream()) {
            *error = "bad stream '" + text + "' (use " + kUvcStreams + ", or all)";
            return false;
        }
        for (const StreamKey& k : out->streams) {
            if (k == key) {
                *error = "stream " + text + " given twice";
                return false;
            }
        }
        out->streams.push_back(key);
    }
    if (out->allStreams && !out->streams.empty()) {
        *error = "--stream all cannot be combined with single streams";
        return false;
    }
    if (out->allStreams) {
        out->streams = StreamKey::all();
    } else if (out->streams.empty()) {
        out->streams.push_back(StreamKey{});
    }
    return true;
}

// ID:IDX=MS, MS 0 to 60000; a stream given twice keeps its last delay.
bool checkHostDelays(const std::vector<std::string>& texts, StreamOptions* out,
                     std::string* error) {
    for (const std::string& text : texts) {
        const size_t eq = text.find('=');
        StreamKey key;
        uint64_t ms = 0;
        if (eq == std::string::npos || !StreamKey::parse(text.substr(0, eq), &key) ||
            !key.isUvcStream() || !parseUnsigned(text.substr(eq + 1), 60000, &ms)) {
            *error = "bad host delay '" + text + "' (use ID:IDX=MS, stream " + kUvcStreams +
                     ", MS 0 to 60000)";
            return false;
        }
        out->hostDelaysMs.emplace_back(key, uint32_t(ms));
    }
    return true;
}

bool checkSeconds(const OptionText& in, const char* what, double* out, std::string* error) {
    if (in.given && (!parseSeconds(in.value, kMaxSeconds, out) || *out <= 0)) {
        *error = std::string("bad ") + what + " '" + in.value + "' (use seconds, more than 0)";
        return false;
    }
    return true;
}

bool checkNotEmpty(const OptionText& in, const char* option, std::string* out, std::string* error) {
    if (in.given && in.value.empty()) {
        *error = std::string("empty ") + option;
        return false;
    }
    *out = in.value;
    return true;
}

bool checkSaveFrames(const std::vector<std::pair<std::string, std::string>>& in, StreamOptions* out,
                     std::string* error) {
    for (const auto& [number, path] : in) {
        SaveFrameRequest r;
        if (!parseUnsigned(number, kMaxFrames, &r.index)) {
            *error = "bad frame number '" + number + "' for --save-frame (use 0 or more)";
            return false;
        }
        if (path.empty()) {
            *error = "empty path for --save-frame";
            return false;
        }
        r.path = path;
        out->saveFrames.push_back(r);
    }
    return true;
}

std::string crossCheck(const StreamTexts& in, StreamOptions* out) {
    if (in.duration.given && out->frames > 0) {
        return "--duration and --frames cannot be combined";
    }
    if (out->timeoutSec > 0 && out->frames == 0) {
        return "--timeout applies to --frames only";
    }
    if (!in.duration.given && out->frames == 0) {
        out->durationSec = 5;
    }
    if (out->jpeg && out->format->kind != FormatKind::Jpeg) {
        return "--jpeg applies to --format MJPG only";
    }
    int toStandardOutput = (out->output == "-") + (out->timingFile == "-");
    for (const SaveFrameRequest& r : out->saveFrames) {
        toStandardOutput += r.path == "-";
    }
    if (toStandardOutput > 1) {
        return "only one of --output, --timing and --save-frame can write to standard output (-)";
    }
    if (toStandardOutput > 0 && out->output != "-" && out->timingFile != "-" &&
        out->streams.size() > 1) {
        return "--save-frame N - takes one stream";
    }
    if (out->output == "-" && out->streams.size() > 1) {
        return "--output - takes one stream";
    }
    if (out->reportDir == "-") {
        return "--report takes a directory; a page with pictures cannot go to standard output";
    }
    if (!out->saveFrames.empty() && out->format->kind == FormatKind::H264) {
        return "--save-frame cannot decode H.264 frames; use --output and ffmpeg";
    }
    return "";
}

}  // namespace

std::string checkStreamOptions(const StreamTexts& in, StreamOptions* out) {
    std::string e;
    out->format = findFormat("YUYV");
    bool ok = checkStreams(in.streams, out, &e) &&
              (!in.size.given || checkSize(in.size.value, &out->size, &e)) &&
              (!in.fps.given || checkFps(in.fps.value, &out->fps, &e)) &&
              (!in.format.given || checkFormat(in.format.value, &out->format, &e)) &&
              checkSeconds(in.duration, "duration", &out->durationSec, &e) &&
              checkSeconds(in.timeout, "timeout", &out->timeoutSec, &e) &&
              checkNotEmpty(in.framesDir, "--frames-dir", &out->framesDir, &e) &&
              checkNotEmpty(in.camera, "--camera", &out->camera, &e) &&
              checkNotEmpty(in.output, "--output", &out->output, &e) &&
              checkNotEmpty(in.timing, "--timing", &out->timingFile, &e) &&
              checkNotEmpty(in.report, "--report", &out->reportDir, &e) &&
              checkSaveFrames(in.saveFrames, out, &e) && checkHostDelays(in.hostDelays, out, &e);
    if (ok && in.frames.given &&
        (!parseUnsigned(in.frames.value, kMaxFrames, &out->frames) || out->frames == 0)) {
        e = "bad frame count '" + in.frames.value + "' (use 1 to " + std::to_string(kMaxFrames) +
            ")";
        ok = false;
    }
    if (ok && in.tolerance.given && !parseSeconds(in.tolerance.value, 100, &out->fpsTolerancePct)) {
        e = "bad tolerance '" + in.tolerance.value + "' (use a percentage from 0 to 100)";
        ok = false;
    }
    return ok ? crossCheck(in, out) : e;
}

std::string checkControlOptions(const ControlTexts& in, ControlOptions* out) {
    std::string e;
    if (!checkNotEmpty(in.file, "--file", &out->file, &e)) {
        return e;
    }
    if (in.stream.given &&
        (!StreamKey::parse(in.stream.value, &out->stream) || !out->stream.isUvcStream())) {
        return "bad stream '" + in.stream.value + "' (use " + kUvcStreams + ")";
    }
    if (in.wait.given && !parseSeconds(in.wait.value, 3600, &out->waitSec)) {
        return "bad wait '" + in.wait.value + "' (use seconds)";
    }
    using Action = ControlOptions::Action;
    if (out->action == Action::Messages) {
        if (out->messages.empty() && out->file.empty()) {
            return "no message given (pass JSON text or --file FILE, or use get, set or list)";
        }
        return "";
    }
    if (!out->messages.empty() || !out->file.empty()) {
        return "JSON messages and --file cannot be combined with get, set or list";
    }
    if (out->action != Action::List && out->names.empty()) {
        return out->action == Action::Get ? "get needs at least one setting NAME"
                                          : "set needs at least one NAME=VALUE";
    }
    for (const std::string& a : out->names) {
        size_t eq = a.find('=');
        if (out->action == Action::Set &&
            (eq == 0 || eq == std::string::npos || !isWholeNumber(a.substr(eq + 1)))) {
            return "bad setting '" + a + "' (use NAME=VALUE with a whole number)";
        }
    }
    return "";
}

std::string checkFramesOptions(const FramesTexts& in, FramesOptions* out) {
    std::string e;
    if (in.format.given) {
        if (!checkFormat(in.format.value, &out->format, &e)) {
            return e;
        }
        if (out->format->kind == FormatKind::Raw) {
            return "frame files exist for MJPG, H264 and S264 only, not " + in.format.value;
        }
    }
    if (in.size.given && !checkSize(in.size.value, &out->size, &e)) {
        return e;
    }
    if (in.count.given &&
        (!parseUnsigned(in.count.value, kMaxFrameSetCount, &out->count) || out->count == 0)) {
        return "bad count '" + in.count.value + "' (use 1 to 100000)";
    }
    if (in.fps.given && !checkFps(in.fps.value, &out->fps, &e)) {
        return e;
    }
    if (!checkNotEmpty(in.dir, "--dir", &out->dir, &e) ||
        !checkNotEmpty(in.encoder, "--encoder", &out->encoder, &e)) {
        return e;
    }
    if (!out->format || !in.size.given || out->count == 0 || out->dir.empty()) {
        return "frames make needs --format, --size, --count and --dir";
    }
    return "";
}

}  // namespace uvc_host
