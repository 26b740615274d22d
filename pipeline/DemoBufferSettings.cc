#include "pipeline/DemoBufferSettings.h"

#include <atomic>
#include <cstdio>
#include <mutex>

#include <sys/system_properties.h>

namespace uvc_client {

const char DemoBufferSettings::kDefaultFrameFilesRoot[] = "/data/h264_frames";
const char DemoBufferSettings::kCaptureDeviceProperty[] = "persist.vendor.uvc_client.capture_device";

namespace {

std::mutex& rootMutex() {
    static std::mutex m;
    return m;
}

std::string& root() {
    static std::string r = DemoBufferSettings::kDefaultFrameFilesRoot;
    return r;
}

std::atomic<bool> fileMode{true};

std::string& captureSetting() {
    static std::string path;
    return path;
}

}  // namespace

void DemoBufferSettings::setFrameFilesRoot(const std::string& dir) {
    std::lock_guard<std::mutex> guard(rootMutex());
    root() = dir;
}

std::string DemoBufferSettings::frameFilesRoot() {
    std::lock_guard<std::mutex> guard(rootMutex());
    return root();
}

void DemoBufferSettings::setMjpegFileMode(bool on) {
    fileMode.store(on);
}

bool DemoBufferSettings::mjpegFileMode() {
    return fileMode.load();
}

void DemoBufferSettings::setCaptureDevice(const std::string& path) {
    std::lock_guard<std::mutex> guard(rootMutex());
    captureSetting() = path;
}

std::string DemoBufferSettings::captureDevice() {
    {
        std::lock_guard<std::mutex> guard(rootMutex());
        if (!captureSetting().empty()) {
            return captureSetting();
        }
    }
    char value[PROP_VALUE_MAX] = {};
    return __system_property_get(kCaptureDeviceProperty, value) > 0 ? std::string(value)
                                                                     : std::string();
}

void DemoBufferSettings::framePath(char* out, size_t outSize, FileKind kind, int width, int height,
                                   int index) {
    std::lock_guard<std::mutex> guard(rootMutex());
    if (kind == FileKind::kMjpeg) {
        std::snprintf(out, outSize, "%s/mjpeg/%d_%d/frame%d.jpg", root().c_str(), width, height,
                      index);
    } else {
        std::snprintf(out, outSize, "%s/%d_%d/frame%d", root().c_str(), width, height, index);
    }
}

}  // namespace uvc_client
