#include "report/RunReport.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace uvc_host {

namespace {

std::string number(double v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.2f", v);
    return buf;
}

}  // namespace

bool RunReport::passed() const {
    for (const StreamResult& s : streams) {
        if (!s.problems.empty()) {
            return false;
        }
    }
    return !streams.empty();
}

namespace {

// Frames the configured rate gives between the first and the last frame,
// and how many of them the library lost for reasons of its own.
void countLibraryDrops(const StreamOptions& o, StreamResult* s) {
    const StatsSummary& st = s->stats;
    s->dropped.expected = st.frames;
    s->dropped.library = 0;
    if (st.frames < 2 || st.achievedFps <= 0) {
        return;
    }
    double spanSec = double(st.frames - 1) / st.achievedFps;
    s->dropped.expected = uint64_t(std::llround(spanSec * o.fps)) + 1;
    uint64_t missing = s->dropped.expected > st.frames ? s->dropped.expected - st.frames : 0;
    // Host-busy drops of the last second may be unreported yet, so with any
    // reported, the rest of the missing frames has no known cause.
    s->dropped.library = missing == 0 ? 0 : s->dropped.hostBusy > 0 ? -1 : int64_t(missing);
}

}  // namespace

void judgeRun(RunReport* report) {
    const StreamOptions& o = *report->options;
    const double tolerance = o.fpsTolerancePct / 100.0;
    for (StreamResult& s : report->streams) {
        const StatsSummary& st = s.stats;
        countLibraryDrops(o, &s);
        if (o.frames > 0 && st.frames < o.frames) {
            s.problems.push_back("received " + std::to_string(st.frames) + " of " +
                                 std::to_string(o.frames) + " frames in time");
        } else if (st.frames == 0) {
            s.problems.push_back("received no frames");
        } else if (o.frames == 0 && s.firstFrameSec >= 0) {
            // The rate between the first and the last frame says nothing
            // about a stream that stopped early: count to the end of the run.
            double windowSec = std::max(0.0, report->elapsedSec - s.firstFrameSec);
            uint64_t expected = uint64_t(std::floor(windowSec * o.fps)) + 1;
            if (double(st.frames) < double(expected) * (1 - tolerance)) {
                s.problems.push_back("received " + std::to_string(st.frames) + " of ~" +
                                     std::to_string(expected) + " expected frames (" +
                                     std::to_string(o.fps) + " fps from the first frame, at " +
                                     number(s.firstFrameSec) + " s, to the end)");
            }
        }
        if (st.emptyFrames > 0) {
            std::string hint = o.format->kind == FormatKind::Raw || o.jpeg
                                   ? ""
                                   : " (no frame files for this size? see --frames-dir)";
            s.problems.push_back(std::to_string(st.emptyFrames) + " empty frames" + hint);
        }
        // One interval is a rate too; a stream that stopped after it is
        // caught by the count above.
        if (st.frames >= 2 && std::fabs(st.achievedFps - o.fps) > o.fps * tolerance) {
            s.problems.push_back("achieved " + number(st.achievedFps) + " fps, configured " +
                                 std::to_string(o.fps) + " (tolerance " +
                                 number(o.fpsTolerancePct) + " %)");
        }
        for (const SavedFrame& f : s.saved) {
            if (!f.error.empty()) {
                s.problems.push_back(f.error);
            }
        }
    }
}

}  // namespace uvc_host
