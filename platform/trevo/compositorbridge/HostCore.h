#pragma once

// State of the compositor stand-in shared by every bridge object and by the
// test-side Host facade.

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "FrameRecorder.h"
#include "trevo/CompositorBridge.h"
#include "trevo/HalUvcConfig.h"
#include "trevo/HotPlugHandler.h"
#include "trevo_host.h"

namespace trevo_standin {

class HostCore {
public:
    static constexpr int kLanes = 16;

    // Never destroyed: bridge objects may outlive static destruction. The
    // lanes are shut down at exit by a separate guard (shutdownForExit).
    static HostCore& instance();

    // Bridge side.
    uint64_t bridgeCreated();
    void bridgeDestroyed(uint64_t token);
    void registerHandler(trevo::HotPlugHandler* handler, uint64_t token);
    void recordCall(std::string call);
    void recordAppMessage(std::string text);
    trevo::HalUvcConfig configuration(uint8_t id, uint8_t idx, bool record);
    int receiveFrame(AHardwareBuffer* buffer, uint32_t size, uint8_t id, uint8_t idx);

    // Test side (see Host).
    void reset();
    void setConfig(uint8_t id, uint8_t idx, const trevo::HalUvcConfig& c);
    uint64_t post(bool isSetting, int status, const std::string& json, uint8_t id, uint8_t idx,
                  int lane);
    bool waitDelivered(uint64_t ticket, std::chrono::milliseconds timeout);
    bool waitForHandler(std::chrono::milliseconds timeout);
    bool hasHandler() const;
    size_t droppedEvents() const;
    std::vector<std::string> calls() const;
    size_t countCalls(const std::string& call) const;
    std::vector<std::string> appMessages() const;
    bool waitForAppMessages(size_t n, std::chrono::milliseconds timeout);
    bool waitForCalls(const std::string& call, size_t n, std::chrono::milliseconds timeout);
    FrameRecorder& recorder() { return recorder_; }
    size_t liveBridges() const;

    // Stops the lanes for good; later events are discarded.
    void shutdownForExit();

private:
    struct Event {
        uint64_t ticket;
        bool isSetting;
        int status;
        std::string json;
        uint8_t id;
        uint8_t idx;
    };
    struct Lane {
        std::thread thread;
        std::deque<Event> queue;
        std::condition_variable cond;
        bool stop = false;
    };
    struct ActiveCall {
        trevo::HotPlugHandler* handler;
        std::thread::id thread;
    };

    HostCore() = default;
    void runLane(std::shared_ptr<Lane> lane);
    // With mutex_ held: waits until no thread but the caller is inside a call
    // on `handler`.
    void waitIdle(std::unique_lock<std::mutex>& guard, trevo::HotPlugHandler* handler);
    void stopLanes(std::unique_lock<std::mutex>& guard);
    size_t countCallsLocked(const std::string& call) const;

    mutable std::mutex mutex_;
    std::condition_variable changed_;  // any delivery, record or registration

    std::map<uint16_t, trevo::HalUvcConfig> configs_;
    trevo::HotPlugHandler* handler_ = nullptr;
    uint64_t handlerToken_ = 0;
    std::vector<ActiveCall> activeCalls_;
    std::vector<std::string> calls_;
    std::vector<std::string> appMessages_;
    size_t dropped_ = 0;
    FrameRecorder recorder_;
    size_t liveBridges_ = 0;
    uint64_t nextBridgeToken_ = 0;

    std::map<int, std::shared_ptr<Lane>> lanes_;
    uint64_t lastTicket_ = 0;
    std::set<uint64_t> pending_;
    std::set<uint64_t> discarded_;
    bool exiting_ = false;
};

}  // namespace trevo_standin
