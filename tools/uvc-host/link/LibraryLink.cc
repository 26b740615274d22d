#include "link/LibraryLink.h"

#include <cstdio>

#include "android_testing.h"
#include "camera/CamSettingCollection.h"
#include "hidl_uvc_client.h"
#include "trevo_host.h"

namespace uvc_host {

namespace {

constexpr auto kStartTimeout = std::chrono::seconds(5);
// The bridge stand-in keeps a copy of every frame it received; the tool
// has its own records, so old copies are dropped this often.
constexpr auto kHousekeepingPeriod = std::chrono::milliseconds(100);
constexpr int kWarnPriority = 5;
const char kDroppedConnection[] = "BUG: socket connection dropped";

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
    if (!settings_.verbose) {
        logCapture_ = std::make_unique<android_standin::LogCapture>();
    }
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
    // Quiet by default: the library logs every event at information
    // priority; warnings and errors still reach the user.
    if (!logCapture_) {
        return;
    }
    std::vector<android_standin::LogRecord> records = logCapture_->records();
    logCapture_->clear();
    for (const android_standin::LogRecord& r : records) {
        if (r.text.rfind(kDroppedConnection, 0) == 0 && expectedDrops_ > 0) {
            --expectedDrops_;
            continue;
        }
        if (r.priority >= kWarnPriority) {
            std::fprintf(stderr, "%s/%s: %s\n", r.priority >= 6 ? "E" : "W", r.tag.c_str(),
                         r.text.c_str());
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

void LibraryLink::failSends(int n) {
    expectedDrops_ += n;
    host().failSends(n);
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
