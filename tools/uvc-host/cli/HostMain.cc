#include "cli/HostMain.h"

#include "cli/CommandOptions.h"
#include "session/ControlSession.h"
#include "media/FrameSetMaker.h"
#include "cli/HelpText.h"
#include "session/ScenarioRunner.h"
#include "session/StreamSession.h"

namespace uvc_host {

namespace {

// Help goes to stdout with status 0; a usage error is one line on stderr.
bool handleParse(const ParseOutcome& outcome, const std::string& command,
                 const HostEnvironment& env, int* status) {
    if (outcome.status == ParseOutcome::Help) {
        std::fputs(helpText(command).c_str(), env.helpOut);
        *status = kExitOk;
        return false;
    }
    if (outcome.status == ParseOutcome::Error) {
        std::fprintf(env.usageErr, "uvc-host %s: %s (see uvc-host %s --help)\n", command.c_str(),
                     outcome.error.c_str(), command.c_str());
        *status = kExitUsage;
        return false;
    }
    return true;
}

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
    std::fprintf(io.out, "play them: uvc-host stream --format %s --size %s --frames-dir %s\n",
                 options.format->name, options.size.text().c_str(), options.dir.c_str());
    std::fflush(io.out);
    return kExitOk;
}

}  // namespace

int runHost(const std::vector<std::string>& args, const HostEnvironment& env) {
    if (args.empty()) {
        std::fprintf(env.usageErr, "uvc-host: missing command (see uvc-host --help)\n");
        return kExitUsage;
    }
    const std::string& command = args[0];
    std::vector<std::string> rest(args.begin() + 1, args.end());
    int status = kExitOk;
    if (command == "--help" || command == "help" || command == "-h") {
        std::fputs(helpText("").c_str(), env.helpOut);
        return kExitOk;
    }
    if (command == "stream") {
        StreamOptions options;
        if (!handleParse(parseStreamOptions(rest, &options), command, env, &status)) {
            return status;
        }
        return StreamSession(options, env.link, env.io(options.verbose)).run();
    }
    if (command == "control") {
        ControlOptions options;
        if (!handleParse(parseControlOptions(rest, &options), command, env, &status)) {
            return status;
        }
        return ControlSession(options, env.link, env.io(options.verbose)).run();
    }
    if (command == "frames") {
        FramesOptions options;
        if (!handleParse(parseFramesOptions(rest, &options), command, env, &status)) {
            return status;
        }
        return runFrames(options, env);
    }
    if (command == "scenario") {
        ScenarioOptions options;
        if (!handleParse(parseScenarioOptions(rest, &options), command, env, &status)) {
            return status;
        }
        return ScenarioRunner(options, env.link, env.io(options.verbose)).run();
    }
    std::fprintf(env.usageErr, "uvc-host: unknown command '%s' (see uvc-host --help)\n",
                 command.c_str());
    return kExitUsage;
}

}  // namespace uvc_host
