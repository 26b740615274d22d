#pragma once

#include <string>
#include <vector>

#include "cli/CommandOptions.h"

namespace uvc_host {

// What the command line asks for. For Help and Version `text` is what to
// print; for Usage `text` is the one-line error, ready to print.
struct CommandLine {
    enum class Command { Usage, Help, Version, Stream, Control, Frames, Scenario, Formats };
    Command command = Command::Usage;
    std::string text;
    StreamOptions stream;
    ControlOptions control;
    FramesOptions frames;
    ScenarioOptions scenario;
};

// args without the program name.
CommandLine parseCommandLine(const std::vector<std::string>& args);

}  // namespace uvc_host
