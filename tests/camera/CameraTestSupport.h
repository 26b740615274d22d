#pragma once

#include <unistd.h>

#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "camera/CamSettingCollection.h"

namespace camera_test {

// Redirects file descriptor 1 into a temporary file while alive, so that what
// the code prints with printf/puts can be compared.
class StdoutCapture {
public:
    StdoutCapture() {
        fflush(stdout);
        file_ = tmpfile();
        saved_ = dup(STDOUT_FILENO);
        if (file_ != nullptr && saved_ >= 0) {
            dup2(fileno(file_), STDOUT_FILENO);
        }
    }
    ~StdoutCapture() {
        restore();
        if (file_ != nullptr) {
            fclose(file_);
        }
    }
    // Stops capturing and returns everything printed since construction.
    std::string finish() {
        restore();
        std::string out;
        if (file_ == nullptr) {
            return out;
        }
        rewind(file_);
        char buffer[4096];
        size_t n;
        while ((n = fread(buffer, 1, sizeof(buffer), file_)) > 0) {
            out.append(buffer, n);
        }
        return out;
    }

private:
    void restore() {
        if (saved_ >= 0) {
            fflush(stdout);
            dup2(saved_, STDOUT_FILENO);
            close(saved_);
            saved_ = -1;
        }
    }
    FILE* file_ = nullptr;
    int saved_ = -1;
};

// Splits printed text at line ends; a trailing piece without a line end is
// kept as the last element.
inline std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) {
            out.push_back(text.substr(start));
            break;
        }
        out.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return out;
}

// Builds the process-wide settings table (outside any capture, so its 17
// construction lines do not show up in a test's output) and puts every current
// value back when destroyed, so that tests do not depend on running in a
// process of their own.
class TableGuard {
public:
    TableGuard() {
        StdoutCapture quiet;
        auto& table = uvc_client::CamSettingCollection::Instance();
        quiet.finish();
        for (auto& entry : table.settingsByName) {
            saved_[entry.first] = {entry.second->cur, entry.second->cur2};
        }
        // Every test starts from the never-written state.
        for (auto& entry : table.settingsByName) {
            entry.second->cur = uvc_client::NOT_SET;
            entry.second->cur2 = uvc_client::NOT_SET;
        }
    }
    ~TableGuard() {
        auto& table = uvc_client::CamSettingCollection::Instance();
        for (auto& entry : saved_) {
            auto it = table.settingsByName.find(entry.first);
            if (it != table.settingsByName.end()) {
                it->second->cur = entry.second.first;
                it->second->cur2 = entry.second.second;
            }
        }
    }
    uvc_client::CamSetting& row(const std::string& name) {
        return *uvc_client::CamSettingCollection::Instance().settingsByName.at(name);
    }

private:
    std::map<std::string, std::pair<int, int>> saved_;
};

}  // namespace camera_test
