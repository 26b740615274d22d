#include "pipeline/DemoBufferSettings.h"

#include <atomic>
#include <cstdio>
#include <mutex>

namespace uvc_client {

const char DemoBufferSettings::kDefaultFrameFilesRoot[] = "/data/h264_frames";

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
