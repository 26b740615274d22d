#pragma once

#include <functional>
#include <string>
#include <vector>

#include "cli/HostIo.h"
#include "link/UvcLink.h"

namespace uvc_host {

// What the commands run against: the library link and, once the options
// are known, where results go (`verbose` asks for the library's chatter).
struct HostEnvironment {
    UvcLinkFactory link;
    std::function<HostIo(bool verbose)> io;
    FILE* helpOut = stdout;
    FILE* usageErr = stderr;
    std::string program = "uvc-host";  // as invoked, for command lines the tool prints
};

// The whole tool: args without the program name. Returns the exit status.
int runHost(const std::vector<std::string>& args, const HostEnvironment& env);

}  // namespace uvc_host
