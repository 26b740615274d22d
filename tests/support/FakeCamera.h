#pragma once

#include <linux/videodev2.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "pipeline/capture/CaptureDevice.h"
#include "pipeline/capture/CaptureSource.h"

namespace client_test {

// A camera the test drives: present or missing, frames on demand (each
// filled with one byte value), gone on demand. Its descriptor is an eventfd
// that becomes readable when a frame is ready, as a V4L2 device's does. Its
// opener is installed for every path while it lives.
class FakeCamera {
public:
    explicit FakeCamera(uint32_t fourcc = V4L2_PIX_FMT_YUYV, uint32_t w = 64, uint32_t h = 32)
        : state(std::make_shared<State>()) {
        state->mode = {fourcc, w, h, {{1, 30}}};
        auto s = state;
        uvc_client::capture::CaptureSource::setOpener(
            [s](const std::string& path, std::string& why) { return open(s, path, why); });
    }
    ~FakeCamera() { uvc_client::capture::CaptureSource::setOpener(nullptr); }

    // Missing cameras fail to open ("No such file or directory").
    void setPresent(bool on) { state->present = on; }
    // The one format offered from the next opening on.
    void offer(uint32_t fourcc) {
        std::lock_guard<std::mutex> g(state->lock);
        state->mode.fourcc = fourcc;
    }
    // Unplugs every open instance: their next dequeue fails with ENODEV.
    void unplug() {
        std::lock_guard<std::mutex> g(state->lock);
        state->present = false;
        for (auto* d : state->open) {
            d->gone = true;
            d->ring();
        }
    }
    // Makes a frame of `value` bytes ready on every open instance.
    void frame(uint8_t value) {
        std::lock_guard<std::mutex> g(state->lock);
        for (auto* d : state->open) {
            d->pending = value;
            d->ring();
        }
    }
    int openInstances() const {
        std::lock_guard<std::mutex> g(state->lock);
        return static_cast<int>(state->open.size());
    }
    int opens() const { return state->opens.load(); }

private:
    class Device;
    struct State {
        std::mutex lock;
        std::vector<Device*> open;
        std::atomic<bool> present{true};
        std::atomic<int> opens{0};
        uvc_client::capture::CaptureMode mode;
    };

    class Device : public uvc_client::capture::CaptureDevice {
    public:
        explicit Device(std::shared_ptr<State> s)
            : state(std::move(s)), efd(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
            std::lock_guard<std::mutex> g(state->lock);
            state->open.push_back(this);
        }
        ~Device() override {
            std::lock_guard<std::mutex> g(state->lock);
            state->open.erase(std::find(state->open.begin(), state->open.end(), this));
            close(efd);
        }
        int fd() const override { return efd; }
        std::vector<uvc_client::capture::CaptureMode> modes() override {
            std::lock_guard<std::mutex> g(state->lock);
            return {state->mode};
        }
        bool start(const uvc_client::capture::CaptureMode& m, std::string&) override {
            mode = m;
            picture.assign(static_cast<size_t>(m.width) * m.height * 2, 0);
            return true;
        }
        Dequeue dequeue(std::string& why) override {
            std::lock_guard<std::mutex> g(state->lock);
            uint64_t n = 0;
            if (read(efd, &n, sizeof(n)) != sizeof(n)) {
                return Dequeue::kNone;
            }
            if (gone) {
                why = std::string("VIDIOC_DQBUF: ") + std::strerror(ENODEV);
                return Dequeue::kGone;
            }
            std::memset(picture.data(), pending, picture.size());
            return Dequeue::kFrame;
        }
        uvc_client::capture::CapturedFrame newest() const override {
            return {mode.fourcc,    mode.width,     mode.height,
                    mode.width * 2, picture.data(), picture.size()};
        }
        void ring() {
            const uint64_t one = 1;
            (void)!write(efd, &one, sizeof(one));
        }

        bool gone = false;  // guarded by state->lock
        uint8_t pending = 0;

    private:
        std::shared_ptr<State> state;
        int efd;
        uvc_client::capture::CaptureMode mode;
        std::vector<uint8_t> picture;
    };

    static std::unique_ptr<uvc_client::capture::CaptureDevice> open(std::shared_ptr<State> s,
                                                                    const std::string&,
                                                                    std::string& why) {
        ++s->opens;
        if (!s->present) {
            why = std::string("open: ") + std::strerror(ENOENT);
            return nullptr;
        }
        return std::make_unique<Device>(std::move(s));
    }

    std::shared_ptr<State> state;
};

}  // namespace client_test
