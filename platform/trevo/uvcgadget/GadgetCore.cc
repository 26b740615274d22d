#include "GadgetCore.h"

#include <cerrno>
#include <cstdlib>
#include <utility>

#include <android/log.h>

#include "io/NodeDiscovery.h"
#include "uvc/ConfigfsFunction.h"

namespace uvc_gadget {

namespace {

const char kTag[] = "UvcGadget";

std::string environment(const char* name, const char* fallback) {
    const char* value = getenv(name);
    return value != nullptr && *value != '\0' ? value : fallback;
}

}  // namespace

GadgetCore& GadgetCore::instance() {
    // Bridge objects may outlive static destruction.
    static GadgetCore* core = new GadgetCore;
    return *core;
}

uint64_t GadgetCore::bridgeCreated() {
    std::lock_guard<std::mutex> guard(mutex_);
    ++liveBridges_;
    return ++nextToken_;
}

void GadgetCore::bridgeDestroyed(uint64_t token) {
    std::unique_lock<std::mutex> guard(mutex_);
    if (handler_ != nullptr && handlerToken_ == token) {
        handler_ = nullptr;
        waitIdle(guard);
    }
    if (liveBridges_ > 0 && --liveBridges_ == 0)
        stop(guard);
}

void GadgetCore::waitIdle(std::unique_lock<std::mutex>& guard) {
    if (onLoopThread())
        return;
    idle_.wait(guard, [this] { return !callActive_; });
}

void GadgetCore::registerHandler(trevo::HotPlugHandler* handler, uint64_t token) {
    std::unique_lock<std::mutex> guard(mutex_);
    if (handler_ != handler)
        waitIdle(guard);
    handler_ = handler;
    handlerToken_ = token;
}

void GadgetCore::unregisterHandler(trevo::HotPlugHandler* handler) {
    std::unique_lock<std::mutex> guard(mutex_);
    if (handler_ != handler || handler == nullptr)
        return;
    handler_ = nullptr;
    waitIdle(guard);
}

int GadgetCore::registerProjector(unsigned projector) {
    std::lock_guard<std::mutex> starting(startMutex_);
    {
        std::lock_guard<std::mutex> guard(mutex_);
        if (loop_)
            return 0;  // running: the gadget's own events re-establish a host
    }
    attach(projector, false);
    auto loop = std::make_unique<EventLoop>([this] { return sources(); }, [this] { rescan(); });
    std::string error;
    if (!loop->start(error)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "%s", error.c_str());
        std::vector<std::unique_ptr<StreamPort>> ports;
        {
            std::lock_guard<std::mutex> guard(mutex_);
            ports = std::move(ports_);
            ports_.clear();
        }
        while (!ports.empty())
            ports.pop_back();
        return -1;
    }
    std::lock_guard<std::mutex> guard(mutex_);
    loop_ = std::move(loop);
    if (ports_.empty()) {
        __android_log_print(ANDROID_LOG_WARN, kTag,
                            "no UVC gadget function yet (set up the gadget, or name the nodes in "
                            "UVC_GADGET_NODES); looking again every second");
        return -1;
    }
    return 0;
}

void GadgetCore::attach(unsigned projector, bool quiet) {
    std::vector<std::string> notes;
    const NodeDiscovery discovery("/sys/class/video4linux",
                                  environment("UVC_GADGET_CONFIGFS", "/sys/kernel/config"), "/dev");
    const std::vector<GadgetNode> nodes =
        discovery.find(environment("UVC_GADGET_NODES", ""), notes);
    auto report = [quiet](int priority, const std::string& text) {
        if (!quiet)
            __android_log_print(priority, kTag, "%s", text.c_str());
    };
    for (const std::string& note : notes)
        report(ANDROID_LOG_WARN, note);

    for (const GadgetNode& node : nodes) {
        StreamPort* existing = nullptr;
        bool numbersTaken = false;
        {
            std::lock_guard<std::mutex> guard(mutex_);
            for (const auto& p : ports_) {
                if (p->functionDir() == node.functionDir)
                    existing = p.get();
                if (p->streamId() == node.streamId && p->streamIdx() == node.streamIdx)
                    numbersTaken = true;
            }
        }
        if ((existing != nullptr && !existing->lost()) || (existing == nullptr && numbersTaken))
            continue;
        GadgetFunction function;
        std::string error;
        if (!ConfigfsFunction(node.functionDir).load(function, error)) {
            report(ANDROID_LOG_ERROR, error);
            continue;
        }
        if (existing != nullptr) {
            if (!existing->reopen(node.videoPath, std::move(function), error))
                report(ANDROID_LOG_ERROR, error);
            continue;
        }
        auto port = std::make_unique<StreamPort>(node, std::move(function), *this);
        if (!port->open(error)) {
            report(ANDROID_LOG_ERROR, error);
            continue;
        }
        __android_log_print(ANDROID_LOG_INFO, kTag, "projector %u: %s (%s) is stream %u:%u",
                            projector, node.videoPath.c_str(), node.functionDir.c_str(),
                            node.streamId, node.streamIdx);
        std::lock_guard<std::mutex> guard(mutex_);
        ports_.push_back(std::move(port));
    }
}

bool GadgetCore::missingPorts() {
    std::lock_guard<std::mutex> guard(mutex_);
    if (ports_.empty())
        return true;
    for (const auto& p : ports_) {
        if (p->lost())
            return true;
    }
    return false;
}

void GadgetCore::rescan() {
    if (!missingPorts())
        return;
    // The first attempt after a loss says what is missing; later ones, once
    // a second, stay quiet until the ports are complete again.
    attach(0, rescanQuiet_);
    rescanQuiet_ = missingPorts();
}

std::vector<PollSource*> GadgetCore::sources() {
    loopThread_ = std::this_thread::get_id();
    std::lock_guard<std::mutex> guard(mutex_);
    std::vector<PollSource*> result;
    result.reserve(ports_.size());
    for (const auto& p : ports_)
        result.push_back(p.get());
    return result;
}

bool GadgetCore::onLoopThread() const {
    return std::this_thread::get_id() == loopThread_.load();
}

void GadgetCore::stop(std::unique_lock<std::mutex>& guard) {
    if (!loop_)
        return;
    if (onLoopThread()) {
        __android_log_print(ANDROID_LOG_WARN, kTag,
                            "last bridge destroyed on the event thread; the bridge keeps running");
        return;
    }
    std::unique_ptr<EventLoop> loop = std::move(loop_);
    std::vector<std::unique_ptr<StreamPort>> ports = std::move(ports_);
    ports_.clear();
    // The event thread may be waiting for mutex_ in a delivery.
    guard.unlock();
    loop->stop();
    loop.reset();
    loopThread_ = std::thread::id();
    while (!ports.empty())
        ports.pop_back();
    guard.lock();
}

StreamPort* GadgetCore::port(uint8_t streamId, uint8_t streamIdx) {
    std::lock_guard<std::mutex> guard(mutex_);
    for (const auto& p : ports_) {
        if (p->streamId() == streamId && p->streamIdx() == streamIdx)
            return p.get();
    }
    return nullptr;
}

trevo::HalUvcConfig GadgetCore::configuration(uint8_t streamId, uint8_t streamIdx) {
    StreamPort* p = port(streamId, streamIdx);
    return p != nullptr ? p->configuration() : trevo::HalUvcConfig{};
}

int GadgetCore::sendFrame(AHardwareBuffer* buffer, uint32_t size, uint8_t streamId,
                          uint8_t streamIdx) {
    StreamPort* p = port(streamId, streamIdx);
    return p != nullptr ? p->sendFrame(buffer, size) : -ENODEV;
}

void GadgetCore::appMessage(const std::string& text) {
    std::lock_guard<std::mutex> guard(mutex_);
    if (capturing_ && std::this_thread::get_id() == captureThread_) {
        captured_.push_back(text);
        return;
    }
    // No application channel on a gadget board: the message is only logged.
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "app message: %s", text.c_str());
}

template <typename Call>
void GadgetCore::deliver(Call call) {
    std::unique_lock<std::mutex> guard(mutex_);
    trevo::HotPlugHandler* handler = handler_;
    if (handler == nullptr)
        return;
    callActive_ = true;
    guard.unlock();
    call(*handler);
    guard.lock();
    callActive_ = false;
    idle_.notify_all();
}

void GadgetCore::hotplug(trevo::ConnectionStatus status, uint8_t streamId, uint8_t streamIdx) {
    deliver([&](trevo::HotPlugHandler& h) { h.hotplug(status, streamId, streamIdx); });
}

std::vector<std::string> GadgetCore::setting(const std::string& message, uint8_t streamId,
                                             uint8_t streamIdx) {
    {
        std::lock_guard<std::mutex> guard(mutex_);
        captured_.clear();
        capturing_ = true;
        captureThread_ = std::this_thread::get_id();
    }
    deliver([&](trevo::HotPlugHandler& h) { h.setting(message, streamId, streamIdx); });
    std::lock_guard<std::mutex> guard(mutex_);
    capturing_ = false;
    return std::move(captured_);
}

}  // namespace uvc_gadget
