#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cli/CommandOptions.h"
#include "link/StreamKey.h"
#include "report/FrameStats.h"

namespace uvc_host {

struct SavedFrame {
    uint64_t index = 0;
    std::string path;
    std::string error;  // empty when written
};

struct StreamResult {
    StreamKey key;
    StatsSummary stats;
    std::string output;  // empty without --output
    uint64_t framesWritten = 0;
    uint64_t framesSkipped = 0;
    std::vector<SavedFrame> saved;
    std::vector<std::string> problems;  // why the stream did not pass; empty when it did
};

// Everything the summary of one `stream` run shows.
struct RunReport {
    const StreamOptions* options = nullptr;
    double elapsedSec = 0;
    uint64_t recoveries = 0;
    bool interrupted = false;  // ended early by Ctrl-C
    std::vector<StreamResult> streams;

    bool passed() const;
};

// Fills `problems` of each stream: too few frames, empty frames, a rate
// off by more than the tolerance, an output that could not be written.
void judgeRun(RunReport* report);

}  // namespace uvc_host
