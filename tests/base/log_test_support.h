#pragma once

#include <chrono>
#include <thread>
#include <vector>

#include "android_testing.h"
#include "base/Log.h"
#include "base/LogServer.h"

namespace volut_test {

// Records the Android log and runs the default log server for one test;
// restores the log level afterwards.
class DefaultServerCapture {
public:
    DefaultServerCapture() : savedLevel_(VOLUT::Log::getLogLevel()) {
        VOLUT::LogServer::defaultLogServer()->start("", 0, 0);
    }
    ~DefaultServerCapture() {
        VOLUT::LogServer::defaultLogServer()->stop();
        VOLUT::Log::setLogLevel(savedLevel_);
    }

    // Waits until `n` records with `tag` arrived (or the time-out passed).
    std::vector<android_standin::LogRecord> waitFor(
        size_t n, const std::string& tag = "VOLUT",
        std::chrono::milliseconds timeout = std::chrono::seconds(5)) {
        auto deadline = std::chrono::steady_clock::now() + timeout;
        for (;;) {
            auto records = capture_.withTag(tag);
            if (records.size() >= n || std::chrono::steady_clock::now() > deadline) {
                return records;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }

    // Waits until a record with `tag` contains `text`; returns the records
    // with `tag` up to and including it.
    std::vector<android_standin::LogRecord> waitForText(const std::string& text,
                                                        const std::string& tag = "VOLUT") {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        for (;;) {
            auto records = capture_.withTag(tag);
            for (size_t i = 0; i < records.size(); ++i) {
                if (records[i].text.find(text) != std::string::npos) {
                    records.resize(i + 1);
                    return records;
                }
            }
            if (std::chrono::steady_clock::now() > deadline) {
                return records;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }

    android_standin::LogCapture& capture() { return capture_; }

private:
    android_standin::LogCapture capture_;
    VOLUT::LogLevel savedLevel_;
};

}  // namespace volut_test
