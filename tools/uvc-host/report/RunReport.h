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

// Frames a stream lost, by cause.
struct DropCounts {
    // Dropped by the library because the host still held every buffer, as
    // its warnings say; it warns at most once a second, so drops of the
    // run's last second may be missing.
    uint64_t hostBusy = 0;
    // Received, but the output could not keep up with them.
    uint64_t notWritten = 0;
    // Missing between the first and the last frame for other reasons (the
    // library's timer or loop falling behind); -1 when that cannot be told
    // apart from host-busy drops still unreported (see hostBusy).
    int64_t library = 0;
    // Frames the configured rate gives from the first to the last frame.
    uint64_t expected = 0;
};

struct StreamResult {
    StreamKey key;
    StatsSummary stats;
    double firstFrameSec = -1;  // arrival of the first frame after the run's start; -1: none
    DropCounts dropped;
    std::string output;  // empty without --output
    uint64_t framesWritten = 0;
    uint64_t framesSkipped = 0;
    std::vector<SavedFrame> saved;
    std::vector<std::string> problems;  // why the stream did not pass; empty when it did
    std::vector<std::string> notes;     // worth knowing, but no fault of the library
};

// Everything the summary of one `stream` run shows.
struct RunReport {
    const StreamOptions* options = nullptr;
    double elapsedSec = 0;
    uint64_t recoveries = 0;
    bool interrupted = false;   // ended early by Ctrl-C
    bool outputClosed = false;  // ended early: the reader of an output closed it
    std::vector<StreamResult> streams;

    bool passed() const;
};

// Fills `problems` of each stream: too few frames (with --frames, fewer
// than asked for; otherwise fewer than the rate gives from the first frame
// to the end, less the tolerance), empty frames, a rate off by more than
// the tolerance, frames that could not be saved. Also counts the library's
// own drops (DropCounts::library) from the frames missing between the first
// and the last frame; `dropped.hostBusy` must be set before.
void judgeRun(RunReport* report);

}  // namespace uvc_host
