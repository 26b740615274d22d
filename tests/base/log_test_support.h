#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "android_testing.h"
#include "base/Log.h"
#include "base/LogServer.h"

namespace volut_test {

using Records = std::vector<android_standin::LogRecord>;

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

    // Records with `tag` once `n` arrived or, with `text`, up to and including
    // the first one holding it; whatever came when 5 s passed.
    Records waitFor(size_t n, const std::string& tag = "VOLUT", const std::string& text = "") {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        for (;;) {
            Records r = capture_.withTag(tag);
            for (size_t i = 0; i < r.size() && !text.empty(); ++i) {
                if (r[i].text.find(text) != std::string::npos)
                    return Records(r.begin(), r.begin() + i + 1);
            }
            if ((text.empty() && r.size() >= n) || std::chrono::steady_clock::now() > deadline)
                return r;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }

    // Lines queued before a passing marker reach the log ahead of it, so once
    // it shows nothing of ours can still arrive. Returns the lines before it.
    Records untilMarker() {
        VOLUT::Log::log("VOLUT", VOLUT::LOG_ERROR, "end-of-test marker");
        Records r = waitFor(0, "VOLUT", "end-of-test marker");
        if (r.empty() || r.back().text.find("end-of-test marker") == std::string::npos)
            ADD_FAILURE() << "marker line never arrived";
        else
            r.pop_back();
        return r;
    }

    // The text of the one line logged before a passing marker; a failure and
    // "" when there were none or several.
    std::string onlyLine() {
        Records r = untilMarker();
        if (r.size() == 1)
            return r[0].text;
        ADD_FAILURE() << r.size() << " lines logged, not one";
        return "";
    }

    android_standin::LogCapture& capture() { return capture_; }

private:
    android_standin::LogCapture capture_;
    VOLUT::LogLevel savedLevel_;
};

// True when `text` holds `part`; a failure shows both.
inline testing::AssertionResult Has(const std::string& text, const std::string& part) {
    if (text.find(part) != std::string::npos)
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << "\"" << text << "\" lacks \"" << part << "\"";
}

}  // namespace volut_test
