// uvc-host: runs the stream client library with a stand-in USB host in front
// of it; see "uvc-host --help".
#include <unistd.h>

#include <csignal>
#include <memory>

#include "cli/HostMain.h"
#include "cli/Interrupt.h"
#include "link/ConsoleRedirect.h"
#include "link/LibraryLink.h"

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    std::unique_ptr<uvc_host::ConsoleRedirect> console;
    uvc_host::HostEnvironment env;
    env.program = argv[0];
    env.link = [](const uvc_host::LinkSettings& s) -> std::unique_ptr<uvc_host::UvcLink> {
        return std::make_unique<uvc_host::LibraryLink>(s);
    };
    env.io = [&console](bool verbose) {
        console = std::make_unique<uvc_host::ConsoleRedirect>(verbose);
        uvc_host::HostIo io;
        io.out = console->out();
        io.err = stderr;
        io.errIsTerminal = isatty(STDERR_FILENO) != 0;
        return io;
    };
    uvc_host::installInterruptHandler();
    // A reader that goes away (ffplay closed, head satisfied) shows up as
    // EPIPE on the write, which ends the run with its summary.
    std::signal(SIGPIPE, SIG_IGN);
    int status = uvc_host::runHost(args, env);
    // The console goes back before the process ends; `console` is
    // destroyed here, after every command object.
    console.reset();
    return status;
}
