#pragma once

#include <stdlib.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace uvc_test {

// A fresh directory under /tmp, removed with its contents at the end.
class TempDir {
public:
    TempDir() {
        char pattern[] = "/tmp/uvc_test_XXXXXX";
        if (mkdtemp(pattern) != nullptr)
            path_ = pattern;
    }
    ~TempDir() {
        std::error_code ignored;
        if (!path_.empty())
            std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    // Writes `text` to `name` (relative), making its directories.
    void write(const std::string& name, const std::string& text) const {
        const std::filesystem::path at(file(name));
        std::filesystem::create_directories(at.parent_path());
        std::ofstream(at, std::ios::binary) << text;
    }
    // The file's text; empty when it cannot be read.
    std::string text(const std::string& name) const {
        std::ifstream in(file(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    std::vector<uint8_t> read(const std::string& name) const {
        const std::string t = text(name);
        return {t.begin(), t.end()};
    }

private:
    std::string path_;
};

}  // namespace uvc_test
