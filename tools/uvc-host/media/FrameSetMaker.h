#pragma once

#include <string>

#include "cli/CommandOptions.h"

namespace uvc_host {

// Writes a numbered set of recorded frames in the layout the stream client
// reads, each frame a test image showing its number. MJPG frames are
// compressed here; H.264 frames need an external encoder (ffmpeg).
class FrameSetMaker {
public:
    explicit FrameSetMaker(const FramesOptions& options);

    // The directory the frames went to, on success.
    bool make(std::string* directory, std::string* error);

private:
    bool makeMjpeg(std::string* error);
    bool makeH264(std::string* error);
    bool writeFrame(uint64_t index, const std::vector<uint8_t>& bytes, std::string* error);
    // Files numbered from count on would extend the new set when played.
    void removeStaleFrames();

    FramesOptions options_;
};

}  // namespace uvc_host
