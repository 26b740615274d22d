#pragma once

#include <gtest/gtest.h>
#include <json-c/json.h>
#include <turbojpeg.h>

#include <cctype>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "support/TempDir.h"

namespace uvc_host_test {

using uvc_test::TempDir;

// A run's status with what it wrote to its results and its messages streams.
struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

// Runs `run(out, err)`, which returns the status, with two temporary files.
template <class Run>
Outcome captured(Run run) {
    FILE* files[2] = {std::tmpfile(), std::tmpfile()};
    Outcome r;
    r.status = run(files[0], files[1]);
    for (int i = 0; i < 2; ++i) {
        std::string& text = i == 0 ? r.out : r.err;
        std::rewind(files[i]);
        char buf[4096];
        for (size_t n; (n = std::fread(buf, 1, sizeof buf, files[i])) > 0;) {
            text.append(buf, n);
        }
        std::fclose(files[i]);
    }
    return r;
}

// The value at `path` in `o`: member names and array indexes joined by dots
// ("streams.0.frames"); nullptr for JSON null. A path that leads nowhere fails
// the test.
inline json_object* member(json_object* o, const std::string& path) {
    const size_t dot = path.find('.');
    const std::string step = path.substr(0, dot);
    json_object* v = nullptr;
    if (json_object_is_type(o, json_type_array) && !step.empty() &&
        std::isdigit(static_cast<unsigned char>(step[0])) &&
        std::stoul(step) < json_object_array_length(o)) {
        v = json_object_array_get_idx(o, std::stoul(step));
    } else if (!json_object_object_get_ex(o, step.c_str(), &v)) {
        ADD_FAILURE() << "no " << path;
        return nullptr;
    }
    return dot == std::string::npos ? v : member(v, path.substr(dot + 1));
}

inline double number(json_object* o, const std::string& path) {
    return json_object_get_double(member(o, path));
}

// Decodes a whole JPEG image, to grey in `grey` when given; false when it does
// not decode.
inline bool decodeJpeg(const std::vector<uint8_t>& jpeg, int* w, int* h,
                       std::vector<uint8_t>* grey = nullptr) {
    std::vector<uint8_t> pixels;
    tjhandle d = tjInitDecompress();
    int sub = 0, space = 0;
    bool ok = tjDecompressHeader3(d, jpeg.data(), jpeg.size(), w, h, &sub, &space) == 0;
    if (ok) {
        pixels.resize(size_t(*w) * *h);
        ok =
            tjDecompress2(d, jpeg.data(), jpeg.size(), pixels.data(), *w, 0, *h, TJPF_GRAY, 0) == 0;
    }
    tjDestroy(d);
    if (grey) {
        *grey = std::move(pixels);
    }
    return ok;
}

}  // namespace uvc_host_test
