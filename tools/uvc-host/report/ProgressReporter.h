#pragma once

#include <cstdint>
#include <cstdio>

namespace uvc_host {

// The live line of a running `stream`: rewritten in place on a terminal,
// one plain line per second otherwise (logs, pipes).
class ProgressReporter {
public:
    ProgressReporter(FILE* out, bool terminal);

    // Totals over all streams at `elapsedSec`; rates are over the time since
    // the previous shown update.
    void update(double elapsedSec, uint64_t frames, uint64_t bytes);
    // Ends the line on a terminal.
    void finish();

private:
    FILE* out_;
    bool terminal_;
    bool shown_ = false;
    double lastSec_ = 0;
    uint64_t lastFrames_ = 0;
    uint64_t lastBytes_ = 0;
};

}  // namespace uvc_host
