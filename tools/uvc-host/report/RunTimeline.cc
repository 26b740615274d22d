#include "report/RunTimeline.h"

#include <algorithm>
#include <cmath>

namespace uvc_host {

namespace {

// An interval this many target periods long means frames went missing.
constexpr double kDropPeriods = 1.5;
// The interval scale reaches this many steady-state periods, so that a
// one-frame drop (two periods) still shows in full...
constexpr double kScalePeriods = 2.2;
// ...and takes in the p99 (with a little headroom) while it stays within
// this many; a larger p99 is made of outliers, which are clipped.
constexpr double kP99WithinPeriods = 3;
constexpr double kP99Headroom = 1.1;
constexpr int kIntervalSteps = 8;
constexpr int kTimeSteps = 10;

// The nearest rank, as FrameStats has it; `values` sorted.
double percentile(const std::vector<double>& values, int pct) {
    if (values.empty()) {
        return 0;
    }
    size_t rank = (values.size() * size_t(pct) + 99) / 100;
    return values[std::max<size_t>(rank, 1) - 1];
}

}  // namespace

RoundAxis roundAxis(double high, int maxSteps) {
    RoundAxis axis;
    if (!(high > 0) || !std::isfinite(high)) {
        high = 1;
    }
    maxSteps = std::max(maxSteps, 1);
    double least = high / maxSteps;
    double power = std::pow(10.0, std::floor(std::log10(least)));
    // The slack keeps a high that rounding put just over a round value
    // (0.1 * 3) from taking a larger step or one step more.
    for (double m : {1.0, 2.0, 5.0, 10.0}) {
        axis.step = m * power;
        if (axis.step >= least * (1 - 1e-9)) {
            break;
        }
    }
    auto steps = long(std::ceil(high / axis.step - 1e-9));
    axis.top = double(steps) * axis.step;
    for (long i = 0; i <= steps; ++i) {
        axis.ticks.push_back(double(i) * axis.step);
    }
    axis.decimals = std::max(0, int(-std::floor(std::log10(axis.step) + 1e-9)));
    return axis;
}

uint64_t framesLost(double intervalMs, double periodMs) {
    return uint64_t(std::max(1.0, std::round(intervalMs / periodMs) - 1));
}

RunTimeline runTimeline(const std::vector<StreamTrace>& traces, double periodMs) {
    RunTimeline run;
    run.periodMs = periodMs;
    uint64_t startNs = UINT64_MAX;
    uint64_t endNs = 0;
    for (const StreamTrace& t : traces) {
        for (uint64_t ns : t.arrivalsNs) {
            startNs = std::min(startNs, ns);
            endNs = std::max(endNs, ns);
        }
    }
    std::vector<double> all;
    std::vector<double> steady;  // without the start-up intervals
    for (const StreamTrace& t : traces) {
        StreamTimeline s;
        s.key = t.key;
        // Frames may be handed over on more than one thread.
        std::vector<uint64_t> arrivals(t.arrivalsNs);
        std::sort(arrivals.begin(), arrivals.end());
        if (!arrivals.empty()) {
            s.firstSec = double(arrivals[0] - startNs) / 1e9;
        }
        for (size_t i = 1; i < arrivals.size(); ++i) {
            double ms = double(arrivals[i] - arrivals[i - 1]) / 1e6;
            s.atSec.push_back(double(arrivals[i] - startNs) / 1e9);
            s.ms.push_back(ms);
            all.push_back(ms);
            if (i == 1) {
                continue;
            }
            steady.push_back(ms);
            if (ms > kDropPeriods * periodMs) {
                s.drops.push_back(s.ms.size() - 1);
                s.framesDropped += framesLost(ms, periodMs);
            }
        }
        run.streams.push_back(std::move(s));
    }
    std::sort(all.begin(), all.end());
    std::sort(steady.begin(), steady.end());
    run.p99Ms = percentile(all, 99);
    double base = std::max(periodMs, percentile(steady, 50));
    double high = kScalePeriods * base;
    if (run.p99Ms <= kP99WithinPeriods * base) {
        high = std::max(high, kP99Headroom * run.p99Ms);
    }
    run.intervalAxis = roundAxis(high, kIntervalSteps);
    run.timeAxis = roundAxis(endNs > startNs ? double(endNs - startNs) / 1e9 : 0, kTimeSteps);
    return run;
}

}  // namespace uvc_host
