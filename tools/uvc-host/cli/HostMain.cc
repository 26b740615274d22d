#include "cli/HostMain.h"

#include "cli/CommandLine.h"
#include "media/FrameSetMaker.h"
#include "media/OutputNaming.h"
#include "session/ControlSession.h"
#include "session/ScenarioRunner.h"
#include "session/StreamSession.h"

namespace uvc_host {

namespace {

int runFrames(const FramesOptions& options, const HostEnvironment& env) {
    HostIo io = env.io(false);
    FrameSetMaker maker(options);
    std::string directory;
    std::string error;
    if (!maker.make(&directory, &error)) {
        std::fprintf(io.err, "uvc-host frames: %s\n", error.c_str());
        return kExitFailed;
    }
    std::fprintf(io.out, "wrote %llu %s frames of %s to %s\n", (unsigned long long)options.count,
                 options.format->name, options.size.text().c_str(), directory.c_str());
    std::fprintf(io.out, "play them: %s stream --format %s --size %s --frames-dir %s\n",
                 shellQuote(env.program).c_str(), options.format->name,
                 options.size.text().c_str(), shellQuote(options.dir).c_str());
    std::fflush(io.out);
    return kExitOk;
}

int runFormats(const HostEnvironment& env) {
    HostIo io = env.io(false);
    SourceLimits limits = env.link(LinkSettings{})->sourceLimits();
    std::fprintf(io.out, "formats (--format), at any size the host asks for:\n");
    for (const VideoFormat* f = formatsBegin(); f != formatsEnd(); ++f) {
        std::fprintf(io.out, "  %s  %s\n        from %s\n", f->name, f->layout, f->source);
    }
    const uint64_t side = FrameSize::kMaxSide;
    std::fprintf(io.out, "sizes:  WxH, each side 1 to %u (uvc-host's limit); ", unsigned(side));
    if (side * side * 4 <= limits.maxBufferBytes) {
        std::fprintf(io.out,
                     "the library's buffers\n"
                     "        (4 bytes per pixel, at most %llu bytes) hold every one of them\n",
                     (unsigned long long)limits.maxBufferBytes);
    } else {
        std::fprintf(io.out,
                     "the library starts no stream\n"
                     "        of more than %llu pixels (4 bytes per pixel in %llu bytes)\n",
                     (unsigned long long)(limits.maxBufferBytes / 4),
                     (unsigned long long)limits.maxBufferBytes);
    }
    std::fprintf(io.out, "rates:  1 to %u fps\n", limits.maxFps);
    std::fprintf(io.out,
                 "frame files (DIR: --frames-dir, made by uvc-host frames make): read up to %llu\n"
                 "        bytes each and no more than the frame's buffer, longer ones are cut;\n"
                 "        without a file the frame is empty\n",
                 (unsigned long long)limits.maxFrameFileBytes);
    std::fflush(io.out);
    return kExitOk;
}

}  // namespace

int runHost(const std::vector<std::string>& args, const HostEnvironment& env) {
    CommandLine line = parseCommandLine(args);
    switch (line.command) {
        case CommandLine::Command::Usage:
            // A usage error is one line on stderr; help goes to stdout.
            std::fprintf(env.usageErr, "%s\n", line.text.c_str());
            return kExitUsage;
        case CommandLine::Command::Help:
        case CommandLine::Command::Version:
            std::fputs(line.text.c_str(), env.helpOut);
            return kExitOk;
        case CommandLine::Command::Stream:
            return StreamSession(line.stream, env.link, env.io(line.stream.verbose)).run();
        case CommandLine::Command::Control:
            return ControlSession(line.control, env.link, env.io(line.control.verbose)).run();
        case CommandLine::Command::Frames:
            return runFrames(line.frames, env);
        case CommandLine::Command::Formats:
            return runFormats(env);
        case CommandLine::Command::Scenario:
            return ScenarioRunner(line.scenario, env.link, env.io(line.scenario.verbose)).run();
    }
    return kExitUsage;
}

}  // namespace uvc_host
