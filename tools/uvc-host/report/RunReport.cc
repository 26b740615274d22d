#include "report/RunReport.h"

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

void judgeRun(RunReport* report) {
    const StreamOptions& o = *report->options;
    for (StreamResult& s : report->streams) {
        const StatsSummary& st = s.stats;
        if (o.frames > 0 && st.frames < o.frames) {
            s.problems.push_back("received " + std::to_string(st.frames) + " of " +
                                 std::to_string(o.frames) + " frames in time");
        } else if (st.frames == 0) {
            s.problems.push_back("received no frames");
        }
        if (st.emptyFrames > 0) {
            std::string hint = o.format->kind == FormatKind::Raw || o.jpeg
                                   ? ""
                                   : " (no frame files for this size? see --frames-dir)";
            s.problems.push_back(std::to_string(st.emptyFrames) + " empty frames" + hint);
        }
        // A rate needs at least two intervals to mean anything.
        if (st.frames >= 3) {
            double allowed = o.fps * o.fpsTolerancePct / 100.0;
            if (std::fabs(st.achievedFps - o.fps) > allowed) {
                s.problems.push_back("achieved " + number(st.achievedFps) + " fps, configured " +
                                     std::to_string(o.fps) + " (tolerance " +
                                     number(o.fpsTolerancePct) + " %)");
            }
        }
        for (const SavedFrame& f : s.saved) {
            if (!f.error.empty()) {
                s.problems.push_back(f.error);
            }
        }
    }
}

}  // namespace uvc_host
