#pragma once

#include <string>

#include "link/StreamKey.h"
#include "media/FrameSize.h"
#include "media/VideoFormat.h"

namespace uvc_host {

// "video.yuv" for stream 1:2 becomes "video-1_2.yuv" (the key goes before
// the extension of the file name, or at the end when there is none).
std::string perStreamPath(const std::string& path, const StreamKey& key);
// Quotes text for a POSIX shell when it holds anything but safe characters.
std::string shellQuote(const std::string& text);
// The ffplay command line that plays a file written by FrameWriter.
std::string playCommand(const VideoFormat& format, FrameSize size, unsigned fps,
                        const std::string& path);

}  // namespace uvc_host
