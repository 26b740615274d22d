#pragma once

// Device-side stream client of the USB camera.
//
// A host process calls init() once; from then on the library runs by itself:
// it registers with the compositor bridge, follows the host's stream changes
// and, for every stream the host is streaming, produces and sends one frame
// per frame period. Everything else here is for tools and tests; nothing in
// the library calls it in normal operation.

#include <string>

#include "uvc_export.h"

namespace hidl_uvc_client {

// Starts the client. With `detach` true the client runs on a new detached
// thread and init returns 0 at once (a failure to create the thread surfaces
// as std::system_error from the standard library). With `detach` false it
// runs on the calling thread and init returns 0 when the event loop has ended
// and the client has been destroyed. While a client started by an earlier call
// is still running, init starts nothing, prints why and returns -1.
UVC_EXPORT int init(bool detach);

// Makes the running event loop end, after which the client is destroyed and
// init(false) returns. Thread-safe. Call it once the client has been started
// (for example after the bridge has seen the client register); a stop that
// comes before the loop was initialised is forgotten by the next init. To
// wake a running loop it registers one eventfd with it, which the loop
// removes and closes when it ends; until a stop, the loop holds nothing but
// the descriptors the streams registered.
UVC_EXPORT void stop();

// Directory that holds the recorded frame files, default "/data/h264_frames":
// MJPEG frames are read from "<dir>/mjpeg/<width>_<height>/frame<n>.jpg",
// H.264 frames from "<dir>/<width>_<height>/frame<n>", n counting from 0.
// Takes effect from the next frame on. Thread-safe.
UVC_EXPORT void setFrameFilesRoot(const std::string& dir);

// MJPEG source: on (the default) reads the recorded frame files; off
// compresses a test pattern to JPEG for every frame. Takes effect from the
// next frame on. Thread-safe.
UVC_EXPORT void setMjpegFileMode(bool on);

// Camera behind the streams: a V4L2 capture device such as "/dev/video0",
// read at every start of a stream. Empty (the default) leaves the system
// property "persist.vendor.uvc_client.capture_device" to name one; with
// neither, streams make their frames as described above. A YUYV, YU12, NV12
// or MJPEG stream then takes the camera's newest frame at each of its ticks,
// converted and scaled to the host's format and size; several streams may
// share one camera. While the camera is missing, stalled or gone the stream
// sends its test pattern and tries the camera again every second.
// Thread-safe.
UVC_EXPORT void setCaptureDevice(const std::string& path);

}  // namespace hidl_uvc_client
