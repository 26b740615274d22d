#include "pipeline/capture/CaptureSource.h"

#include <android/log.h>
#include <sys/epoll.h>

#include <map>
#include <utility>

#include "pipeline/capture/V4l2Capture.h"

namespace uvc_client {
namespace capture {

namespace {

const char kTag[] = "StreamHandler";
using Clock = std::chrono::steady_clock;

std::mutex& registryLock() {
    static std::mutex m;
    return m;
}

CaptureOpener& opener() {
    static CaptureOpener o;
    return o;
}

// Three frame periods of the camera's rate, or kStallTime if longer.
Clock::duration stallTime(const CaptureChoice& c) {
    const Clock::duration floor = CaptureSource::kStallTime;
    if (c.interval.numerator == 0 || c.interval.denominator == 0) {
        return floor;
    }
    const auto three = std::chrono::duration_cast<Clock::duration>(
        std::chrono::duration<double>(3.0 * c.interval.numerator / c.interval.denominator));
    return three > floor ? three : floor;
}

CaptureChoice forStream(CaptureChoice c, const CaptureTarget& t) {
    c.direct = c.fourcc == t.fourcc && c.width == t.width && c.height == t.height;
    return c;
}

}  // namespace

CaptureSource& CaptureSource::forPath(const std::string& path) {
    std::lock_guard<std::mutex> guard(registryLock());
    // Deliberately never freed: see the class comment.
    static auto* sources = new std::map<std::string, CaptureSource*>;
    auto& slot = (*sources)[path];
    if (slot == nullptr) {
        slot = new CaptureSource(path);
    }
    return *slot;
}

void CaptureSource::setOpener(CaptureOpener o) {
    std::lock_guard<std::mutex> guard(registryLock());
    opener() = std::move(o);
}

CaptureSource::CaptureSource(std::string path) : path_(std::move(path)) {
    record.callback = &CaptureSource::readable;
    record.context = this;
}

bool CaptureSource::open() const {
    std::lock_guard<std::mutex> guard(lock);
    return device != nullptr;
}

int CaptureSource::users() const {
    std::lock_guard<std::mutex> guard(lock);
    return users_;
}

void CaptureSource::attach(CaptureStream& stream) {
    std::lock_guard<std::mutex> guard(lock);
    ++users_;
    const auto now = Clock::now();
    if (!device && !openLocked(stream.target, now)) {
        warnLocked(stream);
        return;
    }
    announceLocked(stream, ": ");
}

void CaptureSource::warnLocked(CaptureStream& stream) const {
    __android_log_print(ANDROID_LOG_WARN, kTag,
                        "Stream [%u] [%u]: camera %s unavailable (%s): test pattern, tried again "
                        "every second\n",
                        stream.stream_id, stream.stream_idx, path_.c_str(), lastError.c_str());
    stream.warned = true;
    stream.announced = false;
}

void CaptureSource::announceLocked(CaptureStream& stream, const char* how) const {
    __android_log_print(ANDROID_LOG_INFO, kTag, "Stream [%u] [%u]: %s%s%s\n", stream.stream_id,
                        stream.stream_idx, path_.c_str(), how,
                        describeChoice(forStream(choice, stream.target), stream.target).c_str());
    stream.announced = true;
}

void CaptureSource::detach(CaptureStream&) {
    std::lock_guard<std::mutex> guard(lock);
    if (users_ > 0 && --users_ == 0) {
        closeLocked();
        // The next stream to come tries the camera at once.
        attempted = false;
    }
}

bool CaptureSource::openLocked(const CaptureTarget& target, Clock::time_point now) {
    attempted = true;
    lastAttempt = now;
    CaptureOpener open;
    {
        std::lock_guard<std::mutex> guard(registryLock());
        open = opener();
    }
    std::unique_ptr<CaptureDevice> d =
        open ? open(path_, lastError) : V4l2Capture::open(path_, lastError);
    if (!d) {
        return false;
    }
    const auto chosen = chooseCapture(d->modes(), target);
    if (!chosen) {
        lastError = "it offers nothing convertible";
        return false;
    }
    CaptureMode mode;
    mode.fourcc = chosen->fourcc;
    mode.width = chosen->width;
    mode.height = chosen->height;
    mode.intervals.push_back(chosen->interval);
    if (!d->start(mode, lastError)) {
        return false;
    }
    if (event_loop_register(d->fd(), &record, EPOLLIN, 0) != 0) {
        lastError = "it cannot join the event loop";
        return false;
    }
    device = std::move(d);
    choice = *chosen;
    openedAt = sequence;
    lastFrame = now;
    return true;
}

void CaptureSource::closeLocked() {
    if (device) {
        event_loop_unregister(device->fd());
        device.reset();
    }
}

void CaptureSource::failLocked(const std::string& why, Clock::time_point now) {
    closeLocked();
    lastError = why;
    attempted = true;
    lastAttempt = now;
}

void CaptureSource::readable(void* context) {
    static_cast<CaptureSource*>(context)->onReadable();
}

void CaptureSource::onReadable() {
    std::lock_guard<std::mutex> guard(lock);
    if (!device) {
        return;  // closed after this event was collected
    }
    std::string why;
    switch (device->dequeue(why)) {
        case CaptureDevice::Dequeue::kFrame:
            ++sequence;
            lastFrame = Clock::now();
            break;
        case CaptureDevice::Dequeue::kGone:
            failLocked(why, Clock::now());
            break;
        case CaptureDevice::Dequeue::kNone:
            break;
    }
}

CaptureStream::Mode CaptureSource::prepare(CaptureStream& stream) {
    std::lock_guard<std::mutex> guard(lock);
    const auto now = Clock::now();
    if (!device && (!attempted || now - lastAttempt >= kRetryInterval)) {
        openLocked(stream.target, now);
    }
    const bool first = device && sequence == openedAt;
    const auto limit = first ? stallTime(choice) * 3 : stallTime(choice);
    if (device && now - lastFrame > limit) {
        failLocked(first ? "no first frame" : "no frame for a while: stalled", now);
    }
    if (!device) {
        if (!stream.warned) {
            warnLocked(stream);
        }
        return CaptureStream::Mode::kFallback;
    }
    if (sequence == openedAt) {
        // Started, no frame yet: a stream that had camera frames before
        // keeps its pattern until the camera gives one.
        return stream.warned ? CaptureStream::Mode::kFallback : CaptureStream::Mode::kWait;
    }
    if (!stream.announced) {
        announceLocked(stream, " back: ");
    }
    stream.warned = false;
    return CaptureStream::Mode::kCamera;
}

unsigned CaptureSource::fill(CaptureStream& stream, uint8_t* out, unsigned capacity) {
    std::lock_guard<std::mutex> guard(lock);
    if (!device || sequence == openedAt) {
        return 0;
    }
    if (stream.frames > 0 && stream.lastSequence == sequence) {
        ++stream.repeats;
    }
    ++stream.frames;
    stream.lastSequence = sequence;
    return stream.converter.convert(device->newest(), stream.target, out, capacity);
}

}  // namespace capture
}  // namespace uvc_client
