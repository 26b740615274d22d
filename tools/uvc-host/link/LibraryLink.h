#pragma once

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "link/UvcLink.h"

namespace android_standin {
class LogCapture;
}

namespace uvc_host {

// The stream client library running in this process (its event loop on a
// thread of ours) with the bridge stand-in's host side in front of it.
class LibraryLink : public UvcLink {
public:
    explicit LibraryLink(const LinkSettings& settings);
    ~LibraryLink() override;

    void setFrameSink(std::function<void(const FrameEvent&)> sink) override;
    bool start(std::string* error) override;
    void stop() override;
    void configure(StreamKey key, const LinkConfig& config) override;
    bool hotplug(int status, uint8_t id, uint8_t idx, std::chrono::milliseconds timeout) override;
    bool control(const std::string& message, StreamKey key,
                 std::chrono::milliseconds timeout) override;
    std::vector<std::string> replies() const override;
    uint64_t recoveries() const override;
    void failSends(int n) override;
    void setHostDelay(StreamKey key, std::chrono::milliseconds delay) override;
    std::vector<SettingInfo> settings() const override;
    SourceLimits sourceLimits() const override;
    uint64_t hostBusyDrops(StreamKey key) const override;

private:
    void housekeeping();
    void forwardLog();  // on the keeper thread, or once it has ended

    LinkSettings settings_;
    std::function<void(const FrameEvent&)> sink_;
    std::thread loop_;
    std::thread keeper_;
    std::mutex keeperMutex_;
    std::condition_variable keeperWake_;
    bool stopping_ = false;
    bool running_ = false;
    // The library's log passes through here, so that its drop warnings can
    // be counted; what the user sees of it is printed from forwardLog().
    std::unique_ptr<android_standin::LogCapture> logCapture_;
    mutable std::mutex dropsMutex_;
    std::map<StreamKey, uint64_t> hostBusy_;
    // Lost connections the host caused on purpose (failSends); their
    // warnings are what was asked for, not news.
    std::atomic<int> expectedDrops_{0};
};

}  // namespace uvc_host
