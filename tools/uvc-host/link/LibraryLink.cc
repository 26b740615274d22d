#include "link/LibraryLink.h"

#include <cstdio>

#include "android_testing.h"
#include "camera/CamSettingCollection.h"
#include "client/StreamHandler.h"
#include "hidl_uvc_client.h"
#include "pipeline/DemoBuffer.h"
#include "trevo_host.h"

namespace uvc_host {

namespace {

constexpr auto kStartTimeout = std::chrono::seconds(5);
// The bridge stand-in keeps a copy of every frame it received; the tool
// has its own records, so old copies are dropped this often.
constexpr auto kHousekeepingPeriod = std::chrono::milliseconds(100);
constexpr int kWarnPriority = 5;
const char kDroppedConnection[] = "BUG: socket connection dropped";
// The frame path's warning for frames it could not hand over because the
// host still held every buffer.
const char kDropTag[] = "ConvFactory";
const char kHostBusyFormat[] = "Stream [%u] [%u]: host busy, %u frame(s) dropped";
// StreamHandler refuses configurations whose buffer (4 bytes per pixel)
// exceeds this; the constant is private to it.
constexpr uint64_t kMaxBufferBytes = 0x7FFFFFFF;

// As logcat's brief format has it.
char priorityLetter(int priority) {
    static const char kLetters[] = "??VDIWEFS";
    return priority >= 0 && priority < int(sizeof kLetters) - 1 ? kLetters[priority] : '?';
}

trevo_standin::Host& host() {
    return trevo_standin::Host::instance();
}

}  // namespace

LibraryLink::LibraryLink(const LinkSettings& settings) : settings_(settings) {}

LibraryLink::~LibraryLink() {
    stop();
}

void LibraryLink::setFrameSink(std::function<void(const FrameEvent&)> sink) {
    sink_ = std::move(sink);
}

bool LibraryLink::start(std::string* error) {
    host().reset();
    host().setCopyFrameBytes(settings_.copyFrameBytes);
    if (sink_) {
        auto sink = sink_;
        host().setFrameListener([sink](const trevo_standin::ReceivedFrame& f) {
            FrameEvent e;
            e.key = {f.streamId, f.streamIdx};
            e.monotonicNs = f.monotonicNs;
            e.size = f.size;
            // Without copies, or with a short copy, there is nothing to write.
            e.data = f.bytes.size() >= f.size && f.size > 0 ? f.bytes.data() : nullptr;
            sink(e);
        });
    }
    if (!settings_.framesRoot.empty()) {
        hidl_uvc_client::setFrameFilesRoot(settings_.framesRoot);
    }
    hidl_uvc_client::setMjpegFileMode(!settings_.synthesiseJpeg);
    hidl_uvc_client::setCaptureDevice(settings_.captureDevice);
    logCapture_ = std::make_unique<android_standin::LogCapture>();
    loop_ = std::thread([] { hidl_uvc_client::init(false); });
    running_ = true;
    keeper_ = std::thread([this] { housekeeping(); });
    if (!host().waitForHandler(kStartTimeout)) {
        *error = "the library did not register with the bridge within 5 s";
        stop();
        return false;
    }
    return true;
}

void LibraryLink::housekeeping() {
    std::unique_lock<std::mutex> lock(keeperMutex_);
    while (!keeperWake_.wait_for(lock, kHousekeepingPeriod, [this] { return stopping_; })) {
        host().clearFrames();
        forwardLog();
    }
}

void LibraryLink::forwardLog() {
    if (!logCapture_) {
        return;
    }
    for (const android_standin::LogRecord& r : logCapture_->take()) {
        unsigned id = 0;
        unsigned idx = 0;
        unsigned dropped = 0;
        if (r.tag == kDropTag &&
            std::sscanf(r.text.c_str(), kHostBusyFormat, &id, &idx, &dropped) == 3) {
            std::lock_guard<std::mutex> lock(dropsMutex_);
            hostBusy_[StreamKey{uint8_t(id), uint8_t(idx)}] += dropped;
        }
        if (r.text.rfind(kDroppedConnection, 0) == 0 && expectedDrops_ > 0) {
            --expectedDrops_;
            continue;
        }
        // Quiet by default: the library logs every event at information
        // priority; warnings and errors still reach the user.
        if (settings_.verbose || r.priority >= kWarnPriority) {
            std::string text = r.text;
            while (!text.empty() && text.back() == '\n') {
                text.pop_back();
            }
            std::fprintf(stderr, "%c/%s: %s\n", priorityLetter(r.priority), r.tag.c_str(),
                         text.c_str());
        }
    }
}

void LibraryLink::stop() {
    if (!running_) {
        return;
    }
    running_ = false;
    hidl_uvc_client::stop();
    loop_.join();
    {
        std::lock_guard<std::mutex> lock(keeperMutex_);
        stopping_ = true;
    }
    keeperWake_.notify_all();
    keeper_.join();
    host().setFrameListener(nullptr);
    host().clearFrames();
    forwardLog();
    logCapture_.reset();
}

void LibraryLink::configure(StreamKey key, const LinkConfig& config) {
    trevo::HalUvcConfig c;
    c.width = int32_t(config.size.width);
    c.height = int32_t(config.size.height);
    c.fps = int32_t(config.fps);
    c.format = config.fourcc;
    c.streaming = config.streaming ? 1 : 0;
    host().setConfig(key.id, key.idx, c);
}

bool LibraryLink::hotplug(int status, uint8_t id, uint8_t idx, std::chrono::milliseconds timeout) {
    return host().waitDelivered(host().hotplug(status, id, idx), timeout);
}

bool LibraryLink::control(const std::string& message, StreamKey key,
                          std::chrono::milliseconds timeout) {
    return host().waitDelivered(host().setting(message, key.id, key.idx), timeout);
}

std::vector<std::string> LibraryLink::replies() const {
    return host().appMessages();
}

uint64_t LibraryLink::recoveries() const {
    uint64_t registrations = host().countCalls("registerProjector(0)");
    // The first registration is the client's own at start-up.
    return registrations > 0 ? registrations - 1 : 0;
}

void LibraryLink::setHostDelay(StreamKey key, std::chrono::milliseconds delay) {
    host().setHostDelay(key.id, key.idx, delay);
}

void LibraryLink::failSends(int n) {
    expectedDrops_ += n;
    host().failSends(n);
}

SourceLimits LibraryLink::sourceLimits() const {
    SourceLimits limits;
    limits.maxFps = uint32_t(hidl_uvc_client::StreamHandler::kMaxFrameRate);
    limits.maxBufferBytes = kMaxBufferBytes;
    limits.maxFrameFileBytes = uvc_client::DemoBuffer::kMaxFrameFileBytes;
    return limits;
}

uint64_t LibraryLink::hostBusyDrops(StreamKey key) const {
    std::lock_guard<std::mutex> lock(dropsMutex_);
    auto it = hostBusy_.find(key);
    return it == hostBusy_.end() ? 0 : it->second;
}

std::vector<SettingInfo> LibraryLink::settings() const {
    // Names, ranges and defaults are fixed once the table is built; current
    // values are read through messages, on the library's own thread.
    std::vector<SettingInfo> rows;
    for (const auto& [name, s] : uvc_client::CamSettingCollection::Instance().settingsByName) {
        rows.push_back({name, s->min, s->max, s->res, s->def});
    }
    return rows;
}

}  // namespace uvc_host
