#include "link/ConsoleRedirect.h"

#include <fcntl.h>
#include <unistd.h>

namespace uvc_host {

ConsoleRedirect::ConsoleRedirect(bool verbose) {
    std::fflush(stdout);
    saved_ = dup(STDOUT_FILENO);
    int target = verbose ? dup(STDERR_FILENO) : open("/dev/null", O_WRONLY | O_CLOEXEC);
    int ours = saved_ >= 0 ? dup(saved_) : -1;
    if (saved_ < 0 || target < 0 || ours < 0 || dup2(target, STDOUT_FILENO) < 0) {
        // Without spare descriptors the chatter stays mixed in; results
        // still arrive.
        if (target >= 0) {
            close(target);
        }
        if (ours >= 0) {
            close(ours);
        }
        return;
    }
    close(target);
    out_ = fdopen(ours, "w");
    if (!out_) {
        close(ours);
    }
}

ConsoleRedirect::~ConsoleRedirect() {
    std::fflush(stdout);
    if (out_) {
        std::fclose(out_);
    }
    if (saved_ >= 0) {
        dup2(saved_, STDOUT_FILENO);
        close(saved_);
    }
}

}  // namespace uvc_host
