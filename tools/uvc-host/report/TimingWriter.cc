#include "report/TimingWriter.h"

#include <json-c/json.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace uvc_host {

namespace {

struct FileCloser {
    void operator()(FILE* f) const { std::fclose(f); }
};

struct Record {
    uint64_t arrivalNs;
    size_t stream;
    size_t index;
};

bool endsWith(const std::string& text, const std::string& tail) {
    return text.size() >= tail.size() &&
           text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

double ms(uint64_t ns) {
    return double(ns) / 1e6;
}

std::string jsonLine(const StreamTrace& t, size_t i, uint64_t startNs) {
    json_object* o = json_object_new_object();
    char text[32];
    auto addMs = [&](const char* key, uint64_t ns) {
        std::snprintf(text, sizeof text, "%.3f", ms(ns));
        json_object_object_add(o, key, json_object_new_double_s(ms(ns), text));
    };
    json_object_object_add(o, "stream", json_object_new_string(t.key.text().c_str()));
    json_object_object_add(o, "index", json_object_new_int64(int64_t(i)));
    addMs("arrival_ms", t.arrivalsNs[i] - startNs);
    if (i > 0 && t.arrivalsNs[i] >= t.arrivalsNs[i - 1]) {
        addMs("interval_ms", t.arrivalsNs[i] - t.arrivalsNs[i - 1]);
    } else {
        json_object_object_add(o, "interval_ms", nullptr);
    }
    json_object_object_add(o, "bytes", json_object_new_int64(t.sizes[i]));
    std::string line = json_object_to_json_string_ext(o, JSON_C_TO_STRING_PLAIN);
    json_object_put(o);
    return line;
}

}  // namespace

bool writeTiming(const std::string& path, const std::vector<StreamTrace>& traces,
                 std::string* error) {
    std::unique_ptr<FILE, FileCloser> file(std::fopen(path.c_str(), "w"));
    if (!file) {
        *error = "cannot write " + path + ": " + std::strerror(errno);
        return false;
    }
    if (!writeTiming(file.get(), endsWith(path, ".jsonl") || endsWith(path, ".json"), traces,
                     error)) {
        *error = "cannot write " + path + ": " + std::strerror(errno);
        return false;
    }
    return true;
}

bool writeTiming(FILE* out, bool json, const std::vector<StreamTrace>& traces,
                 std::string* error) {
    std::vector<Record> records;
    uint64_t startNs = UINT64_MAX;
    for (size_t s = 0; s < traces.size(); ++s) {
        for (size_t i = 0; i < traces[s].arrivalsNs.size(); ++i) {
            records.push_back({traces[s].arrivalsNs[i], s, i});
            startNs = std::min(startNs, traces[s].arrivalsNs[i]);
        }
    }
    std::stable_sort(records.begin(), records.end(),
                     [](const Record& a, const Record& b) { return a.arrivalNs < b.arrivalNs; });
    if (!json) {
        std::fputs("stream,index,arrival_ms,interval_ms,bytes\n", out);
    }
    for (const Record& r : records) {
        const StreamTrace& t = traces[r.stream];
        if (json) {
            std::fprintf(out, "%s\n", jsonLine(t, r.index, startNs).c_str());
            continue;
        }
        std::fprintf(out, "%s,%zu,%.3f,", t.key.text().c_str(), r.index,
                     ms(r.arrivalNs - startNs));
        if (r.index > 0 && t.arrivalsNs[r.index] >= t.arrivalsNs[r.index - 1]) {
            std::fprintf(out, "%.3f", ms(t.arrivalsNs[r.index] - t.arrivalsNs[r.index - 1]));
        }
        std::fprintf(out, ",%u\n", unsigned(t.sizes[r.index]));
    }
    if (std::fflush(out) != 0 || std::ferror(out)) {
        *error = std::string("cannot write standard output: ") + std::strerror(errno);
        return false;
    }
    return true;
}

}  // namespace uvc_host
