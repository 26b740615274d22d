#pragma once

#include <cstdint>
#include <string>

#include "media/FrameSize.h"
#include "media/VideoFormat.h"

namespace uvc_host {

// Where the stream client looks for recorded frames under a frame root:
// ROOT/mjpeg/W_H/frameN.jpg for MJPG, ROOT/W_H/frameN for H264 and S264,
// numbered from 0 without gaps.
std::string frameDirectory(const std::string& root, const VideoFormat& format, FrameSize size);
std::string frameFilePath(const std::string& root, const VideoFormat& format, FrameSize size,
                          uint64_t index);

}  // namespace uvc_host
