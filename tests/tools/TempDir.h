#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "media/FileUtil.h"

namespace uvc_host_test {

// A fresh directory under /tmp, removed with its contents at the end.
class TempDir {
public:
    TempDir() {
        char pattern[] = "/tmp/uvc_host_test_XXXXXX";
        path_ = mkdtemp(pattern) ? pattern : "/tmp";
    }
    ~TempDir() {
        std::string cmd = "rm -rf '" + path_ + "'";
        if (path_ != "/tmp") {
            (void)std::system(cmd.c_str());
        }
    }
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

    void write(const std::string& name, const std::string& text) const {
        std::string error;
        uvc_host::writeFile(file(name), reinterpret_cast<const uint8_t*>(text.data()), text.size(),
                            &error);
    }
    std::vector<uint8_t> read(const std::string& name) const {
        std::vector<uint8_t> bytes;
        std::string error;
        uvc_host::readFile(file(name), &bytes, &error);
        return bytes;
    }

private:
    std::string path_;
};

// Reads what a FILE* (a tmpfile) received.
inline std::string contents(FILE* f) {
    std::fflush(f);
    std::rewind(f);
    std::string text;
    char buf[4096];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) {
        text.append(buf, n);
    }
    return text;
}

// A run's status with what it wrote to its results and its messages streams.
struct Outcome {
    int status;
    std::string out;
    std::string err;
};

// Runs `run(out, err)`, which returns the status, with two temporary files.
template <class Run>
Outcome captured(Run run) {
    FILE* out = std::tmpfile();
    FILE* err = std::tmpfile();
    Outcome r{run(out, err), "", ""};
    r.out = contents(out);
    r.err = contents(err);
    std::fclose(out);
    std::fclose(err);
    return r;
}

}  // namespace uvc_host_test
