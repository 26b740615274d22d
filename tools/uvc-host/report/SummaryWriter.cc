#include "report/SummaryWriter.h"

#include <json-c/json.h>

#include <cstdio>

#include "media/OutputNaming.h"

namespace uvc_host {

namespace {

void addInt(json_object* o, const char* key, int64_t v) {
    json_object_object_add(o, key, json_object_new_int64(v));
}

void addDouble(json_object* o, const char* key, double v) {
    // Three decimals are what a reader can use; json-c would print 17 digits.
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", v);
    json_object_object_add(o, key, json_object_new_double_s(v, text));
}

void addString(json_object* o, const char* key, const std::string& v) {
    json_object_object_add(o, key, json_object_new_string(v.c_str()));
}

}  // namespace

void writeTextSummary(FILE* out, const RunReport& report) {
    const StreamOptions& o = *report.options;
    std::fprintf(out, "\n%s %s at %u fps, %.1f s%s\n", o.size.text().c_str(), o.format->name, o.fps,
                 report.elapsedSec,
                 report.interrupted    ? " (interrupted)"
                 : report.outputClosed ? " (ended: output closed by its reader)"
                                       : "");
    for (const StreamResult& s : report.streams) {
        const StatsSummary& st = s.stats;
        std::fprintf(out, "stream %s: %s\n", s.key.text().c_str(),
                     s.problems.empty() ? "ok" : "FAILED");
        std::fprintf(out, "  frames %llu (empty %llu), achieved %.2f fps\n",
                     (unsigned long long)st.frames, (unsigned long long)st.emptyFrames,
                     st.achievedFps);
        std::fprintf(out, "  frame interval: median %.2f ms, p99 %.2f ms, max %.2f ms\n",
                     st.intervalMedianMs, st.intervalP99Ms, st.intervalMaxMs);
        std::fprintf(out, "  bytes %llu (%.1f MB), recoveries %llu\n", (unsigned long long)st.bytes,
                     double(st.bytes) / 1e6, (unsigned long long)report.recoveries);
        const DropCounts& d = s.dropped;
        // Host-busy drops of the last second may be unreported yet.
        std::string library = d.library >= 0 ? std::to_string(d.library) : "unknown (see host busy)";
        std::fprintf(out, "  dropped: host busy %llu, not written %llu, library %s\n",
                     (unsigned long long)d.hostBusy, (unsigned long long)d.notWritten,
                     library.c_str());
        if (!s.output.empty()) {
            std::fprintf(out, "  output %s: %llu frames written, %llu skipped\n", s.output.c_str(),
                         (unsigned long long)s.framesWritten, (unsigned long long)s.framesSkipped);
            if (o.output != "-") {
                std::fprintf(out, "  play: %s\n",
                             playCommand(*o.format, o.size, o.fps, s.output).c_str());
            }
        }
        for (const SavedFrame& f : s.saved) {
            if (f.error.empty()) {
                std::fprintf(out, "  frame %llu saved as %s\n", (unsigned long long)f.index,
                             f.path.c_str());
            }
        }
        for (const std::string& n : s.notes) {
            std::fprintf(out, "  note: %s\n", n.c_str());
        }
        for (const std::string& p : s.problems) {
            std::fprintf(out, "  problem: %s\n", p.c_str());
        }
    }
    std::fprintf(out, "result: %s\n", report.passed() ? "ok" : "FAILED");
}

std::string summaryJson(const RunReport& report) {
    const StreamOptions& o = *report.options;
    json_object* root = json_object_new_object();
    addString(root, "format", o.format->name);
    addInt(root, "width", o.size.width);
    addInt(root, "height", o.size.height);
    addInt(root, "fps", o.fps);
    if (o.frames > 0) {
        addInt(root, "requested_frames", int64_t(o.frames));
    } else {
        addDouble(root, "duration_s", o.durationSec);
    }
    addDouble(root, "elapsed_s", report.elapsedSec);
    addInt(root, "recoveries", int64_t(report.recoveries));
    json_object_object_add(root, "interrupted", json_object_new_boolean(report.interrupted));
    json_object_object_add(root, "output_closed", json_object_new_boolean(report.outputClosed));
    json_object_object_add(root, "ok", json_object_new_boolean(report.passed()));
    json_object* streams = json_object_new_array();
    for (const StreamResult& s : report.streams) {
        const StatsSummary& st = s.stats;
        json_object* js = json_object_new_object();
        addString(js, "stream", s.key.text());
        addInt(js, "stream_id", s.key.id);
        addInt(js, "stream_idx", s.key.idx);
        addInt(js, "frames", int64_t(st.frames));
        addInt(js, "empty_frames", int64_t(st.emptyFrames));
        addDouble(js, "achieved_fps", st.achievedFps);
        addDouble(js, "interval_median_ms", st.intervalMedianMs);
        addDouble(js, "interval_p99_ms", st.intervalP99Ms);
        addDouble(js, "interval_max_ms", st.intervalMaxMs);
        addInt(js, "bytes", int64_t(st.bytes));
        addInt(js, "recoveries", int64_t(report.recoveries));
        json_object* dropped = json_object_new_object();
        addInt(dropped, "host_busy", int64_t(s.dropped.hostBusy));
        addInt(dropped, "not_written", int64_t(s.dropped.notWritten));
        json_object_object_add(dropped, "library",
                               s.dropped.library >= 0 ? json_object_new_int64(s.dropped.library)
                                                      : nullptr);
        addInt(dropped, "expected", int64_t(s.dropped.expected));
        json_object_object_add(js, "dropped", dropped);
        if (!s.output.empty()) {
            addString(js, "output", s.output);
            addInt(js, "frames_written", int64_t(s.framesWritten));
            addInt(js, "frames_skipped", int64_t(s.framesSkipped));
        }
        json_object_object_add(js, "ok", json_object_new_boolean(s.problems.empty()));
        json_object* problems = json_object_new_array();
        for (const std::string& p : s.problems) {
            json_object_array_add(problems, json_object_new_string(p.c_str()));
        }
        json_object_object_add(js, "problems", problems);
        json_object* notes = json_object_new_array();
        for (const std::string& n : s.notes) {
            json_object_array_add(notes, json_object_new_string(n.c_str()));
        }
        json_object_object_add(js, "notes", notes);
        json_object_array_add(streams, js);
    }
    json_object_object_add(root, "streams", streams);
    std::string text = json_object_to_json_string_ext(
        root, JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE);
    json_object_put(root);
    return text;
}

}  // namespace uvc_host
