#include "hidl_uvc_client.h"

#include <android/log.h>

#include <atomic>
#include <cstdio>
#include <exception>
#include <memory>
#include <thread>

#include "client/ClientEntry.h"
#include "client/HidlUvcClient.h"
#include "client/event_loop_utils.h"
#include "pipeline/DemoBufferSettings.h"

namespace hidl_uvc_client {

namespace {

// True from an accepted init until its client has been destroyed.
std::atomic<bool> running{false};

void clientBody() {
    if (event_loop_init() != 0) {
        std::puts("Initialization event loop failed, exiting");
        running.store(false);
        return;
    }
    // An exception must not end the host process: the client is destroyed
    // and the library stays inert, as after a failed loop.
    try {
        auto client = std::make_unique<HidlUvcClient>();
        event_loop_run(nullptr);
    } catch (const std::exception& e) {
        __android_log_print(ANDROID_LOG_ERROR, "HidlUvcClient", "client ended: %s", e.what());
    } catch (...) {
        __android_log_print(ANDROID_LOG_ERROR, "HidlUvcClient", "client ended: unknown exception");
    }
    running.store(false);
}

}  // namespace

int init(bool detach) {
    bool expected = false;
    if (!running.compare_exchange_strong(expected, true)) {
        std::puts("hidl_uvc_client: a client is already running, init ignored");
        return -1;
    }
    if (!detach) {
        clientBody();
        return 0;
    }
    // If the thread cannot be made, std::system_error leaves here; the client
    // is then not running.
    struct ResetOnThrow {
        bool armed = true;
        ~ResetOnThrow() {
            if (armed) {
                running.store(false);
            }
        }
    } reset;
    std::thread(clientBody).detach();
    reset.armed = false;
    return 0;
}

bool clientRunning() {
    return running.load();
}

void stop() {
    event_loop_utils::stop();
}

void setCaptureDevice(const std::string& path) {
    uvc_client::DemoBufferSettings::setCaptureDevice(path);
}

void setFrameFilesRoot(const std::string& dir) {
    uvc_client::DemoBufferSettings::setFrameFilesRoot(dir);
}

void setMjpegFileMode(bool on) {
    uvc_client::DemoBufferSettings::setMjpegFileMode(on);
}

}  // namespace hidl_uvc_client
