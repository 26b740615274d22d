#pragma once

#include <cstddef>
#include <string>

namespace uvc_client {

// Process-wide settings of the frame maker, changed only by tools and tests
// through the public header (hidl_uvc_client::setFrameFilesRoot,
// setMjpegFileMode, setCaptureDevice). The first two are read on every frame,
// so a change applies from the next frame on; the capture device at every
// start of a stream. Thread-safe.
class DemoBufferSettings {
public:
    static const char kDefaultFrameFilesRoot[];

    static void setFrameFilesRoot(const std::string& dir);
    static std::string frameFilesRoot();
    static void setMjpegFileMode(bool on);
    static bool mjpegFileMode();

    // System property naming the capture device when the setting is empty.
    static const char kCaptureDeviceProperty[];
    static void setCaptureDevice(const std::string& path);
    // The setting, else the property, else empty (no camera).
    static std::string captureDevice();

    enum class FileKind { kMjpeg, kH264 };

    // Path of one frame file under the current root, written into `out` and
    // cut at `outSize`, without allocating:
    // "<root>/mjpeg/<w>_<h>/frame<i>.jpg" or "<root>/<w>_<h>/frame<i>".
    static void framePath(char* out, size_t outSize, FileKind kind, int width, int height,
                          int index);
};

}  // namespace uvc_client
