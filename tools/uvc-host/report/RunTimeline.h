#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "link/StreamKey.h"
#include "report/TimingWriter.h"

namespace uvc_host {

// A plot axis from 0 to `top` in round steps (1, 2 or 5 times a power of
// ten), with a tick at every step.
struct RoundAxis {
    double top = 1;
    double step = 1;
    int decimals = 0;  // enough to tell the tick labels apart
    std::vector<double> ticks;
};

// The axis from 0 that reaches at least `high` in at most `maxSteps` round
// steps. A `high` that is not above 0 (or not a number) gives 0 to 1.
RoundAxis roundAxis(double high, int maxSteps);

// One stream's frame intervals, placed on the run's time axis.
struct StreamTimeline {
    StreamKey key;
    double firstSec = -1;       // the stream's first frame; -1 without frames
    std::vector<double> atSec;  // the arrival of the frame that ended each interval
    std::vector<double> ms;     // each interval
    // Intervals longer than 1.5 target periods, except the first: before
    // its second frame a stream is still starting, and the frames it did
    // not send yet were never due.
    std::vector<size_t> drops;
    uint64_t framesDropped = 0;  // in all drops, by framesLost()
};

// The frames a drop of `intervalMs` stands for: an interval of n periods
// (rounded) lost n - 1 frames, at least one.
uint64_t framesLost(double intervalMs, double periodMs);

// Every stream of a run on one time axis, from the run's first frame (as in
// the --timing records), with an interval scale that shows the steady state.
struct RunTimeline {
    double periodMs = 0;
    double p99Ms = 0;    // of all streams' intervals, the nearest rank
    RoundAxis timeAxis;  // seconds, up to the run's last frame
    // Milliseconds: room for a one-frame drop and the p99, unless the p99 is
    // itself far off the steady state (the start-up interval of a short
    // run). Longer intervals are clipped: drawn on the top edge with their
    // value, so that they do not flatten the rest.
    RoundAxis intervalAxis;
    std::vector<StreamTimeline> streams;  // in the order of the traces
};

RunTimeline runTimeline(const std::vector<StreamTrace>& traces, double periodMs);

}  // namespace uvc_host
