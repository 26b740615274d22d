#include "cli/CommandOptions.h"

#include "cli/ArgReader.h"
#include "cli/NumberText.h"

namespace uvc_host {

namespace {

constexpr uint32_t kMaxFps = 240;
constexpr double kMaxSeconds = 24 * 3600;
constexpr uint64_t kMaxFrames = 100000000;

ParseOutcome fail(const std::string& message) {
    return {ParseOutcome::Error, message};
}

ParseOutcome unknownOption(const std::string& arg) {
    return fail("unknown option " + arg);
}

bool parseFormatArg(const std::string& text, const VideoFormat** out, std::string* error) {
    *out = findFormat(text);
    if (!*out) {
        *error = "unknown format '" + text + "' (use " + formatNames() + ")";
    }
    return *out != nullptr;
}

bool parseSizeArg(const std::string& text, FrameSize* out, std::string* error) {
    if (!FrameSize::parse(text, out)) {
        *error = "bad size '" + text + "' (use WIDTHxHEIGHT, each 1 to " +
                 std::to_string(FrameSize::kMaxSide) + ")";
        return false;
    }
    return true;
}

bool parseFpsArg(const std::string& text, uint32_t* out, std::string* error) {
    uint64_t fps = 0;
    if (!parseUnsigned(text, kMaxFps, &fps) || fps == 0) {
        *error = "bad frame rate '" + text + "' (use 1 to " + std::to_string(kMaxFps) + ")";
        return false;
    }
    *out = uint32_t(fps);
    return true;
}

bool parseStreamArg(const std::string& text, StreamOptions* out, std::string* error) {
    if (text == "all") {
        out->allStreams = true;
        return true;
    }
    StreamKey key;
    if (!StreamKey::parse(text, &key)) {
        *error = "bad stream '" + text + "' (use ID:IDX with numbers 0 to 255, or all)";
        return false;
    }
    for (const StreamKey& k : out->streams) {
        if (k == key) {
            *error = "stream " + text + " given twice";
            return false;
        }
    }
    out->streams.push_back(key);
    return true;
}

// Reads the option's value and hands it to `apply`; folds both failures into
// one outcome.
template <typename Apply>
bool withValue(ArgReader& reader, const std::string& option, ParseOutcome* outcome, Apply apply) {
    std::string value;
    std::string error;
    if (!reader.value(option, &value)) {
        *outcome = fail(reader.error());
        return false;
    }
    if (!apply(value, &error)) {
        *outcome = fail(error);
        return false;
    }
    return true;
}

}  // namespace

ParseOutcome parseStreamOptions(const std::vector<std::string>& args, StreamOptions* out) {
    ArgReader reader(args);
    ParseOutcome outcome;
    bool durationGiven = false;
    while (!reader.done()) {
        bool isOption = false;
        std::string arg = reader.next(&isOption);
        bool ok = true;
        if (!isOption) {
            return fail("unexpected argument '" + arg + "'");
        } else if (arg == "--help") {
            return {ParseOutcome::Help, ""};
        } else if (arg == "--stream") {
            ok = withValue(reader, arg, &outcome, [&](const std::string& v, std::string* e) {
                return parseStreamArg(v, out, e);
            });
        } else if (arg == "--size") {
            ok = withValue(reader, arg, &outcome, [&](const std::string& v, std::string* e) {
                return parseSizeArg(v, &out->size, e);
            });
        } else if (arg == "--fps") {
            ok = withValue(reader, arg, &outcome, [&](const std::string& v, std::string* e) {
                return parseFpsArg(v, &out->fps, e);
            });
        } else if (arg == "--format") {
            ok = withValue(reader, arg, &outcome, [&](const std::string& v, std::string* e) {
                return parseFormatArg(v, &out->format, e);
            });
        } else if (arg == "--duration") {
            durationGiven = true;
            ok = withValue(reader, arg, &outcome, [&](const std::string& v, std::string* e) {
                if (!parseSeconds(v, kMaxSeconds, &out->durationSec) || out->durationSec <= 0) {
                    *e = "bad duration '" + v + "' (use seconds, more than 0)";
                    return false;
                }
                return true;
            });
        } else if (arg == "--frames") {
            ok = withValue(reader, arg, &outcome, [&](const std::string& v, std::string* e) {
                if (!parseUnsigned(v, kMaxFrames, &out->frames) || out->frames == 0) {
                    *e =
                        "bad frame count '" + v + "' (use 1 to " + std::to_string(kMaxFrames) + ")";
                    return false;
                }
                return true;
            });
        } else if (arg == "--timeout") {
            ok = withValue(reader, arg, &outcome, [&](const std::string& v, std::string* e) {
                if (!parseSeconds(v, kMaxSeconds, &out->timeoutSec) || out->timeoutSec <= 0) {
                    *e = "bad timeout '" + v + "' (use seconds, more than 0)";
                    return false;
                }
                return true;
            });
        } else if (arg == "--fps-tolerance") {
            ok = withValue(reader, arg, &outcome, [&](const std::string& v, std::string* e) {
                if (!parseSeconds(v, 100, &out->fpsTolerancePct)) {
                    *e = "bad tolerance '" + v + "' (use a percentage from 0 to 100)";
                    return false;
                }
                return true;
            });
        } else if (arg == "--frames-dir") {
            ok = withValue(reader, arg, &outcome, [&](const std::string& v, std::string* e) {
                out->framesDir = v;
                *e = "empty --frames-dir";
                return !v.empty();
            });
        } else if (arg == "--output") {
            ok = withValue(reader, arg, &outcome, [&](const std::string& v, std::string* e) {
                out->output = v;
                *e = "empty --output";
                return !v.empty();
            });
        } else if (arg == "--save-frame") {
            SaveFrameRequest request;
            ok = withValue(reader, arg, &outcome, [&](const std::string& v, std::string* e) {
                *e = "bad frame number '" + v + "' for --save-frame (use 0 or more)";
                return parseUnsigned(v, kMaxFrames, &request.index);
            });
            ok = ok && withValue(reader, arg, &outcome, [&](const std::string& v, std::string* e) {
                     request.path = v;
                     *e = "empty path for --save-frame";
                     return !v.empty();
                 });
            if (ok) {
                out->saveFrames.push_back(request);
            }
        } else if (arg == "--jpeg" || arg == "--json" || arg == "--verbose" ||
                   arg == "--no-progress") {
            if (reader.hasInlineValue()) {
                return fail("option " + arg + " takes no value");
            }
            bool& flag = arg == "--jpeg"      ? out->jpeg
                         : arg == "--json"    ? out->json
                         : arg == "--verbose" ? out->verbose
                                              : out->progress;
            flag = arg != "--no-progress";
        } else {
            return unknownOption(arg);
        }
        if (!ok) {
            return outcome;
        }
    }
    if (out->allStreams && !out->streams.empty()) {
        return fail("--stream all cannot be combined with single streams");
    }
    if (out->allStreams) {
        out->streams = StreamKey::all();
    } else if (out->streams.empty()) {
        out->streams.push_back(StreamKey{});
    }
    if (!out->format) {
        out->format = findFormat("YUYV");
    }
    if (durationGiven && out->frames > 0) {
        return fail("--duration and --frames cannot be combined");
    }
    if (out->timeoutSec > 0 && out->frames == 0) {
        return fail("--timeout applies to --frames only");
    }
    if (!durationGiven && out->frames == 0) {
        out->durationSec = 5;
    }
    if (out->jpeg && out->format->kind != FormatKind::Jpeg) {
        return fail("--jpeg applies to --format MJPG only");
    }
    if (!out->saveFrames.empty() && out->format->kind == FormatKind::H264) {
        return fail("--save-frame cannot decode H.264 frames; use --output and ffmpeg");
    }
    return outcome;
}

ParseOutcome parseControlOptions(const std::vector<std::string>& args, ControlOptions* out) {
    ArgReader reader(args);
    ParseOutcome outcome;
    while (!reader.done()) {
        bool isOption = false;
        std::string arg = reader.next(&isOption);
        bool ok = true;
        if (!isOption) {
            out->messages.push_back(arg);
        } else if (arg == "--help") {
            return {ParseOutcome::Help, ""};
        } else if (arg == "--file") {
            ok = withValue(reader, arg, &outcome, [&](const std::string& v, std::string* e) {
                out->file = v;
                *e = "empty --file";
                return !v.empty();
            });
        } else if (arg == "--stream") {
            ok = withValue(reader, arg, &outcome, [&](const std::string& v, std::string* e) {
                *e = "bad stream '" + v + "' (use ID:IDX with numbers 0 to 255)";
                return StreamKey::parse(v, &out->stream);
            });
        } else if (arg == "--wait") {
            ok = withValue(reader, arg, &outcome, [&](const std::string& v, std::string* e) {
                *e = "bad wait '" + v + "' (use seconds)";
                return parseSeconds(v, 3600, &out->waitSec);
            });
        } else if (arg == "--verbose") {
            out->verbose = true;
        } else {
            return unknownOption(arg);
        }
        if (!ok) {
            return outcome;
        }
    }
    if (out->messages.empty() && out->file.empty()) {
        return fail("no message given (pass JSON text or --file FILE)");
    }
    return outcome;
}

ParseOutcome parseFramesOptions(const std::vector<std::string>& args, FramesOptions* out) {
    if (args.empty()) {
        return fail("missing action (use: frames make ...)");
    }
    if (args[0] == "--help") {
        return {ParseOutcome::Help, ""};
    }
    if (args[0] != "make") {
        return fail("unknown frames action '" + args[0] + "' (use: frames make ...)");
    }
    ArgReader reader(std::vector<std::string>(args.begin() + 1, args.end()));
    ParseOutcome outcome;
    bool haveSize = false;
    while (!reader.done()) {
        bool isOption = false;
        std::string arg = reader.next(&isOption);
        bool ok = true;
        if (!isOption) {
            return fail("unexpected argument '" + arg + "'");
        } else if (arg == "--help") {
            return {ParseOutcome::Help, ""};
        } else if (arg == "--format") {
            ok = withValue(reader, arg, &outcome, [&](const std::string& v, std::string* e) {
                if (!parseFormatArg(v, &out->format, e)) {
                    return false;
                }
                *e = "frame files exist for MJPG, H264 and S264 only, not " + v;
                return out->format->kind != FormatKind::Raw;
            });
        } else if (arg == "--size") {
            haveSize = true;
            ok = withValue(reader, arg, &outcome, [&](const std::string& v, std::string* e) {
                return parseSizeArg(v, &out->size, e);
            });
        } else if (arg == "--count") {
            ok = withValue(reader, arg, &outcome, [&](const std::string& v, std::string* e) {
                *e = "bad count '" + v + "' (use 1 to 100000)";
                return parseUnsigned(v, 100000, &out->count) && out->count > 0;
            });
        } else if (arg == "--fps") {
            ok = withValue(reader, arg, &outcome, [&](const std::string& v, std::string* e) {
                return parseFpsArg(v, &out->fps, e);
            });
        } else if (arg == "--dir") {
            ok = withValue(reader, arg, &outcome, [&](const std::string& v, std::string* e) {
                out->dir = v;
                *e = "empty --dir";
                return !v.empty();
            });
        } else if (arg == "--encoder") {
            ok = withValue(reader, arg, &outcome, [&](const std::string& v, std::string* e) {
                out->encoder = v;
                *e = "empty --encoder";
                return !v.empty();
            });
        } else {
            return unknownOption(arg);
        }
        if (!ok) {
            return outcome;
        }
    }
    if (!out->format || !haveSize || out->count == 0 || out->dir.empty()) {
        return fail("frames make needs --format, --size, --count and --dir");
    }
    return outcome;
}

ParseOutcome parseScenarioOptions(const std::vector<std::string>& args, ScenarioOptions* out) {
    ArgReader reader(args);
    while (!reader.done()) {
        bool isOption = false;
        std::string arg = reader.next(&isOption);
        if (!isOption) {
            if (!out->file.empty()) {
                return fail("more than one scenario file given");
            }
            out->file = arg;
        } else if (arg == "--help") {
            return {ParseOutcome::Help, ""};
        } else if (arg == "--verbose" || arg == "--jpeg") {
            (arg == "--jpeg" ? out->jpeg : out->verbose) = true;
        } else if (arg == "--frames-dir") {
            if (!reader.value(arg, &out->framesDir)) {
                return fail(reader.error());
            }
            if (out->framesDir.empty()) {
                return fail("empty --frames-dir");
            }
        } else {
            return unknownOption(arg);
        }
    }
    if (out->file.empty()) {
        return fail("no scenario file given");
    }
    return {};
}

}  // namespace uvc_host
