#pragma once

#include <cstdio>

namespace uvc_host {

// The library prints notices on standard output for every event. While
// alive, this keeps them out of the tool's results: file descriptor 1 goes
// to /dev/null (or to stderr when verbose) and out() writes where standard
// output went before.
class ConsoleRedirect {
public:
    explicit ConsoleRedirect(bool verbose);
    ~ConsoleRedirect();
    ConsoleRedirect(const ConsoleRedirect&) = delete;
    ConsoleRedirect& operator=(const ConsoleRedirect&) = delete;

    FILE* out() const { return out_ ? out_ : stdout; }

private:
    int saved_ = -1;
    FILE* out_ = nullptr;
};

}  // namespace uvc_host
