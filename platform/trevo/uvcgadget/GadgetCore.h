#pragma once

// State of the UVC-gadget bridge shared by every bridge object of the
// process: the registered handler, the gadget's stream ports and the event
// thread that serves them.

#include <android/hardware_buffer.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "StreamPort.h"
#include "io/EventLoop.h"
#include "trevo/HalUvcConfig.h"
#include "trevo/HotPlugHandler.h"

namespace uvc_gadget {

// Every operation is thread-safe. Life cycle: registerProjector starts the bridge (finds the
// functions' nodes, opens a StreamPort for each, starts the event thread); it runs until the last
// bridge object is destroyed, which stops the thread and closes the nodes. While no function is
// found, or a port's node vanished, the event thread looks for them once a second, so that a
// gadget set up (or bound again) after the start is served. hotplug and setting
// reach the handler on the event thread only; unregistering waits for a call in progress, unless
// made from inside it. A bridge object may not be destroyed on the event thread (from inside a
// handler call) as the last one: the thread cannot join itself, so the bridge then keeps running.
//
// Environment of the bridge (the library reads none): UVC_GADGET_NODES lists
// the video nodes in stream order ("VIDEO[=FUNCTIONDIR],...", see
// NodeDiscovery); UVC_GADGET_CONFIGFS is where configfs is mounted
// (default "/sys/kernel/config").
class GadgetCore : public PortListener {
public:
    static GadgetCore& instance();  // never destroyed

    uint64_t bridgeCreated();
    void bridgeDestroyed(uint64_t token);
    void registerHandler(trevo::HotPlugHandler* handler, uint64_t token);
    void unregisterHandler(trevo::HotPlugHandler* handler);
    // 0 when the bridge runs with at least one stream, -1 when no UVC
    // function could be opened (a later call tries again).
    int registerProjector(unsigned projector);
    trevo::HalUvcConfig configuration(uint8_t streamId, uint8_t streamIdx);
    int sendFrame(AHardwareBuffer* buffer, uint32_t size, uint8_t streamId, uint8_t streamIdx);
    void appMessage(const std::string& text);

    void hotplug(trevo::ConnectionStatus status, uint8_t streamId, uint8_t streamIdx) override;
    std::vector<std::string> setting(const std::string& message, uint8_t streamId,
                                     uint8_t streamIdx) override;

private:
    GadgetCore() = default;
    // With mutex_ held: waits until no handler call runs (unless the caller
    // is the event thread, which may be inside one).
    void waitIdle(std::unique_lock<std::mutex>& guard);
    StreamPort* port(uint8_t streamId, uint8_t streamIdx);
    template <typename Call>
    void deliver(Call call);
    void stop(std::unique_lock<std::mutex>& guard);
    // Opens a port for every function node found that has none (its stream
    // numbers free) and opens lost ports' nodes again. Ports are added under
    // mutex_; lost ports are reopened on the event thread only.
    void attach(unsigned projector, bool quiet);
    // Event thread: once a second while no port or a lost one exists.
    void rescan();
    bool missingPorts();
    std::vector<PollSource*> sources();
    bool onLoopThread() const;

    std::mutex startMutex_;  // serialises registerProjector
    std::mutex mutex_;
    std::condition_variable idle_;
    trevo::HotPlugHandler* handler_ = nullptr;
    uint64_t handlerToken_ = 0;
    bool callActive_ = false;
    size_t liveBridges_ = 0;
    uint64_t nextToken_ = 0;

    // Filled by registerProjector and the event thread (never shrinking while
    // it runs), cleared when the last bridge goes; the ports live as long as
    // any bridge object, so a port found under mutex_ is used without it.
    std::vector<std::unique_ptr<StreamPort>> ports_;
    std::unique_ptr<EventLoop> loop_;
    std::atomic<std::thread::id> loopThread_{};
    bool rescanQuiet_ = false;  // event thread only

    bool capturing_ = false;
    std::thread::id captureThread_;
    std::vector<std::string> captured_;
};

}  // namespace uvc_gadget
