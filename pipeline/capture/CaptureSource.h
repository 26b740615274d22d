#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "client/event_loop_utils.h"
#include "pipeline/capture/CaptureDevice.h"
#include "pipeline/capture/CaptureNegotiation.h"
#include "pipeline/capture/CaptureStream.h"

namespace uvc_client {
namespace capture {

// One camera, shared by every stream that takes its frames. The camera is
// opened for the first stream that attaches, in the mode negotiated for that
// stream, and closed when the last one detaches. While it streams its
// descriptor is on the event loop, whose callback keeps only the newest
// frame; streams convert that frame in their own ticks. A camera that fails
// (gone, stalled, nothing convertible) is closed and tried again at most once
// a second from the streams' ticks.
//
// Thread-safe: attach and detach run on bridge threads under the stream
// handler's lock, everything else on the loop thread; `lock` is a leaf below
// the stream handlers' locks. Sources are never destroyed, because the event
// loop may still dispatch one's record after its camera has been closed.
class CaptureSource {
public:
    // The source for `path`, made on first use.
    static CaptureSource& forPath(const std::string& path);
    // How cameras are opened from now on; null restores V4L2. For tests.
    static void setOpener(CaptureOpener opener);

    // Longest a streaming camera may go without a frame before it counts as
    // stalled (three of its frame periods when that is longer).
    static constexpr std::chrono::milliseconds kStallTime{1000};
    static constexpr std::chrono::milliseconds kRetryInterval{1000};

    // The stream's target decides the camera's mode when it is the first.
    void attach(CaptureStream& stream);
    void detach(CaptureStream& stream);
    // What the stream does at this tick (CaptureStream::prepare); retries a
    // failed camera and notices a stalled one.
    CaptureStream::Mode prepare(CaptureStream& stream);
    // The newest frame, converted for `stream`, into `out`; 0 when none.
    unsigned fill(CaptureStream& stream, uint8_t* out, unsigned capacity);

    const std::string& path() const { return path_; }
    // For tests: whether a camera is open, and how many streams use it.
    bool open() const;
    int users() const;

private:
    explicit CaptureSource(std::string path);
    static void readable(void* context);
    void onReadable();
    // Opens and starts the camera for `target`; false with lastError set.
    bool openLocked(const CaptureTarget& target, std::chrono::steady_clock::time_point now);
    void closeLocked();
    void failLocked(const std::string& why, std::chrono::steady_clock::time_point now);
    // The stream's one warning while the camera is unavailable, and its one
    // line on the mode in use ("<path><how><choice>").
    void warnLocked(CaptureStream& stream) const;
    void announceLocked(CaptureStream& stream, const char* how) const;

    const std::string path_;
    event_loop_handler record;
    mutable std::mutex lock;
    std::unique_ptr<CaptureDevice> device;  // guarded by `lock`
    CaptureChoice choice = {};              // the open camera's mode
    int users_ = 0;
    uint64_t sequence = 0;  // frames taken, never reset
    uint64_t openedAt = 0;  // `sequence` when the camera opened
    std::chrono::steady_clock::time_point lastFrame;
    std::chrono::steady_clock::time_point lastAttempt;
    bool attempted = false;
    std::string lastError;
};

}  // namespace capture
}  // namespace uvc_client
