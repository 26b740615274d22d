#include "media/FileUtil.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>

namespace uvc_host {

namespace {

struct FileCloser {
    void operator()(FILE* f) const { std::fclose(f); }
};
using File = std::unique_ptr<FILE, FileCloser>;

std::string failure(const std::string& what, const std::string& path) {
    return "cannot " + what + " " + path + ": " + std::strerror(errno);
}

}  // namespace

bool makeDirectories(const std::string& path, std::string* error) {
    for (size_t pos = 1; pos <= path.size(); ++pos) {
        if (pos != path.size() && path[pos] != '/') {
            continue;
        }
        std::string part = path.substr(0, pos);
        if (mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) {
            *error = failure("create directory", part);
            return false;
        }
    }
    struct stat st {};
    if (stat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        *error = "cannot create directory " + path + ": a file of that name is in the way";
        return false;
    }
    return true;
}

bool writeFile(const std::string& path, const uint8_t* data, size_t length, std::string* error) {
    File f(std::fopen(path.c_str(), "wb"));
    if (!f) {
        *error = failure("write", path);
        return false;
    }
    if (std::fwrite(data, 1, length, f.get()) != length || std::fclose(f.release()) != 0) {
        *error = failure("write", path);
        return false;
    }
    return true;
}

bool readFile(const std::string& path, std::vector<uint8_t>* out, std::string* error) {
    File f(std::fopen(path.c_str(), "rb"));
    if (!f) {
        *error = failure("read", path);
        return false;
    }
    out->clear();
    uint8_t chunk[65536];
    size_t n = 0;
    while ((n = std::fread(chunk, 1, sizeof chunk, f.get())) > 0) {
        out->insert(out->end(), chunk, chunk + n);
    }
    if (std::ferror(f.get())) {
        *error = failure("read", path);
        return false;
    }
    return true;
}

bool readTextLines(const std::string& path, std::vector<std::string>* lines, std::string* error) {
    struct stat st {};
    if (stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
        *error = "cannot read " + path + ": it is a directory";
        return false;
    }
    std::ifstream in(path);
    if (!in) {
        *error = failure("read", path);
        return false;
    }
    std::string line;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        lines->push_back(line);
    }
    if (in.bad()) {
        *error = failure("read", path);
        return false;
    }
    return true;
}

bool readTextInput(const std::string& path, FILE* standardInput, std::vector<std::string>* lines,
                   std::string* error) {
    if (path != "-") {
        return readTextLines(path, lines, error);
    }
    std::string text;
    char chunk[4096];
    size_t n = 0;
    while ((n = std::fread(chunk, 1, sizeof chunk, standardInput)) > 0) {
        text.append(chunk, n);
    }
    if (std::ferror(standardInput)) {
        *error = failure("read", "standard input");
        return false;
    }
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) {
            end = text.size();
        }
        std::string line = text.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        lines->push_back(line);
        start = end + 1;
    }
    return true;
}

std::string inputName(const std::string& path) {
    return path == "-" ? "standard input" : path;
}

std::string findOnPath(const std::string& name) {
    const char* env = std::getenv("PATH");
    std::string dirs = env ? env : "";
    size_t start = 0;
    while (start <= dirs.size()) {
        size_t end = dirs.find(':', start);
        if (end == std::string::npos) {
            end = dirs.size();
        }
        std::string dir = dirs.substr(start, end - start);
        if (!dir.empty()) {
            std::string candidate = dir + "/" + name;
            struct stat st {};
            if (stat(candidate.c_str(), &st) == 0 && S_ISREG(st.st_mode) &&
                access(candidate.c_str(), X_OK) == 0) {
                return candidate;
            }
        }
        start = end + 1;
    }
    return "";
}

}  // namespace uvc_host
