#include "HostCore.h"

#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace trevo_standin {

namespace {

uint16_t streamKey(uint8_t id, uint8_t idx) {
    return static_cast<uint16_t>((id << 8) | idx);
}

uint64_t monotonicNow() {
    timespec ts = {};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return uint64_t(ts.tv_sec) * 1000000000ull + uint64_t(ts.tv_nsec);
}

// Joins the lanes when the process exits; the core itself stays allocated so
// that bridge objects destroyed later still find it.
struct ExitGuard {
    ~ExitGuard() { HostCore::instance().shutdownForExit(); }
};

}  // namespace

HostCore& HostCore::instance() {
    static HostCore* core = new HostCore;
    static ExitGuard guard;
    return *core;
}

uint64_t HostCore::bridgeCreated() {
    std::lock_guard<std::mutex> guard(mutex_);
    ++liveBridges_;
    return ++nextBridgeToken_;
}

void HostCore::bridgeDestroyed(uint64_t token) {
    std::unique_lock<std::mutex> guard(mutex_);
    --liveBridges_;
    if (handler_ != nullptr && handlerToken_ == token) {
        trevo::HotPlugHandler* old = handler_;
        handler_ = nullptr;
        changed_.notify_all();
        waitIdle(guard, old);
    }
}

void HostCore::registerHandler(trevo::HotPlugHandler* handler, uint64_t token) {
    std::unique_lock<std::mutex> guard(mutex_);
    trevo::HotPlugHandler* old = handler_;
    handler_ = handler;
    handlerToken_ = token;
    calls_.push_back("registerHotPlugHandler");
    changed_.notify_all();
    if (old != nullptr && old != handler)
        waitIdle(guard, old);
}

void HostCore::waitIdle(std::unique_lock<std::mutex>& guard, trevo::HotPlugHandler* handler) {
    const std::thread::id self = std::this_thread::get_id();
    changed_.wait(guard, [&] {
        return std::none_of(activeCalls_.begin(), activeCalls_.end(), [&](const ActiveCall& c) {
            return c.handler == handler && c.thread != self;
        });
    });
}

void HostCore::recordCall(std::string call) {
    std::lock_guard<std::mutex> guard(mutex_);
    calls_.push_back(std::move(call));
    changed_.notify_all();
}

void HostCore::recordAppMessage(std::string text) {
    std::lock_guard<std::mutex> guard(mutex_);
    calls_.push_back("onAppMessage");
    appMessages_.push_back(std::move(text));
    changed_.notify_all();
}

trevo::HalUvcConfig HostCore::configuration(uint8_t id, uint8_t idx, bool record) {
    std::lock_guard<std::mutex> guard(mutex_);
    if (record) {
        calls_.push_back("getConfiguration(" + std::to_string(id) + ":" + std::to_string(idx) +
                         ")");
        changed_.notify_all();
    }
    auto it = configs_.find(streamKey(id, idx));
    return it != configs_.end() ? it->second : trevo::HalUvcConfig();
}

int HostCore::receiveFrame(AHardwareBuffer* buffer, uint32_t size, uint8_t id, uint8_t idx) {
    return recorder_.receive(buffer, size, id, idx, monotonicNow());
}

void HostCore::reset() {
    std::unique_lock<std::mutex> guard(mutex_);
    stopLanes(guard);
    configs_.clear();
    handler_ = nullptr;
    handlerToken_ = 0;
    calls_.clear();
    appMessages_.clear();
    recorder_.reset();
    dropped_ = 0;
    changed_.notify_all();
}

void HostCore::shutdownForExit() {
    std::unique_lock<std::mutex> guard(mutex_);
    exiting_ = true;
    stopLanes(guard);
}

void HostCore::stopLanes(std::unique_lock<std::mutex>& guard) {
    std::map<int, std::shared_ptr<Lane>> lanes;
    lanes.swap(lanes_);
    for (auto& entry : lanes) {
        for (const Event& event : entry.second->queue) {
            pending_.erase(event.ticket);
            discarded_.insert(event.ticket);
        }
        entry.second->queue.clear();
        entry.second->stop = true;
        entry.second->cond.notify_all();
    }
    changed_.notify_all();
    guard.unlock();
    const std::thread::id self = std::this_thread::get_id();
    for (auto& entry : lanes) {
        std::thread& t = entry.second->thread;
        // A lane that resets the host from inside a delivery cannot join
        // itself; it ends on its own once the delivery returns.
        if (t.get_id() == self) {
            t.detach();
        } else if (t.joinable()) {
            t.join();
        }
    }
    guard.lock();
}

void HostCore::setConfig(uint8_t id, uint8_t idx, const trevo::HalUvcConfig& c) {
    std::lock_guard<std::mutex> guard(mutex_);
    configs_[streamKey(id, idx)] = c;
}

uint64_t HostCore::post(bool isSetting, int status, const std::string& json, uint8_t id,
                        uint8_t idx, int lane) {
    if (lane < 0 || lane >= kLanes)
        return 0;
    std::lock_guard<std::mutex> guard(mutex_);
    uint64_t ticket = ++lastTicket_;
    if (exiting_) {
        discarded_.insert(ticket);
        return ticket;
    }
    std::shared_ptr<Lane>& slot = lanes_[lane];
    if (!slot) {
        slot = std::make_shared<Lane>();
        slot->thread = std::thread(&HostCore::runLane, this, slot);
    }
    pending_.insert(ticket);
    slot->queue.push_back(Event{ticket, isSetting, status, json, id, idx});
    slot->cond.notify_one();
    return ticket;
}

void HostCore::runLane(std::shared_ptr<Lane> lane) {
    std::unique_lock<std::mutex> guard(mutex_);
    for (;;) {
        lane->cond.wait(guard, [&] { return lane->stop || !lane->queue.empty(); });
        if (lane->stop)
            return;
        Event event = std::move(lane->queue.front());
        lane->queue.pop_front();
        trevo::HotPlugHandler* handler = handler_;
        if (handler != nullptr) {
            activeCalls_.push_back(ActiveCall{handler, std::this_thread::get_id()});
            guard.unlock();
            if (event.isSetting) {
                handler->setting(event.json, event.id, event.idx);
            } else {
                handler->hotplug(static_cast<trevo::ConnectionStatus>(event.status), event.id,
                                 event.idx);
            }
            guard.lock();
            auto it =
                std::find_if(activeCalls_.begin(), activeCalls_.end(), [&](const ActiveCall& c) {
                    return c.handler == handler && c.thread == std::this_thread::get_id();
                });
            if (it != activeCalls_.end())
                activeCalls_.erase(it);
        } else {
            ++dropped_;
        }
        pending_.erase(event.ticket);
        changed_.notify_all();
    }
}

bool HostCore::waitDelivered(uint64_t ticket, std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> guard(mutex_);
    if (ticket == 0 || ticket > lastTicket_)
        return false;
    if (!changed_.wait_for(guard, timeout, [&] { return pending_.count(ticket) == 0; })) {
        return false;
    }
    return discarded_.count(ticket) == 0;
}

bool HostCore::waitForHandler(std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> guard(mutex_);
    return changed_.wait_for(guard, timeout, [&] { return handler_ != nullptr; });
}

bool HostCore::hasHandler() const {
    std::lock_guard<std::mutex> guard(mutex_);
    return handler_ != nullptr;
}

size_t HostCore::droppedEvents() const {
    std::lock_guard<std::mutex> guard(mutex_);
    return dropped_;
}

std::vector<std::string> HostCore::calls() const {
    std::lock_guard<std::mutex> guard(mutex_);
    return calls_;
}

size_t HostCore::countCallsLocked(const std::string& call) const {
    return static_cast<size_t>(std::count(calls_.begin(), calls_.end(), call));
}

size_t HostCore::countCalls(const std::string& call) const {
    std::lock_guard<std::mutex> guard(mutex_);
    return countCallsLocked(call);
}

std::vector<std::string> HostCore::appMessages() const {
    std::lock_guard<std::mutex> guard(mutex_);
    return appMessages_;
}

bool HostCore::waitForAppMessages(size_t n, std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> guard(mutex_);
    return changed_.wait_for(guard, timeout, [&] { return appMessages_.size() >= n; });
}

bool HostCore::waitForCalls(const std::string& call, size_t n, std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> guard(mutex_);
    return changed_.wait_for(guard, timeout, [&] { return countCallsLocked(call) >= n; });
}

size_t HostCore::liveBridges() const {
    std::lock_guard<std::mutex> guard(mutex_);
    return liveBridges_;
}

}  // namespace trevo_standin
