#pragma once

#include <cstdio>

namespace uvc_host {

// Where a command writes: results to `out`, errors and warnings to `err`;
// a file named "-" is read from `in`. The library's own chatter never
// reaches `out` (see ConsoleRedirect).
struct HostIo {
    FILE* out = stdout;
    FILE* err = stderr;
    bool errIsTerminal = false;
    FILE* in = stdin;
};

// Exit statuses of every command.
// A run ended by SIGINT or SIGTERM exits with interruptExitStatus().
// kExitOutputClosed: a stream run ended because the reader of an output (a
// pipe) closed it; 128 + SIGPIPE, as a shell reports a program that signal
// ended, but after the summary.
enum ExitStatus { kExitOk = 0, kExitFailed = 1, kExitUsage = 2, kExitOutputClosed = 141 };

}  // namespace uvc_host
