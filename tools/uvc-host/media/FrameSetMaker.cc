#include "media/FrameSetMaker.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "media/AnnexBSplitter.h"
#include "media/FileUtil.h"
#include "media/FrameFileLayout.h"
#include "media/JpegEncoder.h"
#include "media/OutputNaming.h"
#include "media/TestImage.h"

namespace uvc_host {

namespace {

constexpr int kJpegQuality = 85;

// Ignores SIGPIPE while alive, so that an encoder that dies makes our write
// fail instead of ending the tool.
class SigpipeGuard {
public:
    SigpipeGuard() : previous_(std::signal(SIGPIPE, SIG_IGN)) {}
    ~SigpipeGuard() { std::signal(SIGPIPE, previous_); }

private:
    void (*previous_)(int);
};

}  // namespace

FrameSetMaker::FrameSetMaker(const FramesOptions& options) : options_(options) {}

bool FrameSetMaker::make(std::string* directory, std::string* error) {
    *directory = frameDirectory(options_.dir, *options_.format, options_.size);
    if (options_.format->kind == FormatKind::H264) {
        return makeH264(error);
    }
    return makeMjpeg(error);
}

bool FrameSetMaker::writeFrame(uint64_t index, const std::vector<uint8_t>& bytes,
                               std::string* error) {
    std::string path = frameFilePath(options_.dir, *options_.format, options_.size, index);
    return writeFile(path, bytes.data(), bytes.size(), error);
}

void FrameSetMaker::removeStaleFrames() {
    for (uint64_t i = options_.count;; ++i) {
        std::string path = frameFilePath(options_.dir, *options_.format, options_.size, i);
        if (unlink(path.c_str()) != 0) {
            break;
        }
    }
}

bool FrameSetMaker::makeMjpeg(std::string* error) {
    if (!makeDirectories(frameDirectory(options_.dir, *options_.format, options_.size), error)) {
        return false;
    }
    JpegEncoder encoder;
    std::vector<uint8_t> jpeg;
    for (uint64_t i = 0; i < options_.count; ++i) {
        TestImage image(options_.size, i);
        const uint8_t* planes[3] = {image.plane(0), image.plane(1), image.plane(2)};
        const int strides[3] = {image.stride(0), image.stride(1), image.stride(2)};
        if (!encoder.encodePlanes(planes, strides, options_.size, kJpegQuality, &jpeg, error) ||
            !writeFrame(i, jpeg, error)) {
            return false;
        }
    }
    removeStaleFrames();
    return true;
}

bool FrameSetMaker::makeH264(std::string* error) {
    std::string encoder = options_.encoder.empty() ? findOnPath("ffmpeg") : options_.encoder;
    if (encoder.empty()) {
        *error = "no H.264 encoder: ffmpeg is not on PATH (install ffmpeg or pass --encoder)";
        return false;
    }
    if (access(encoder.c_str(), X_OK) != 0) {
        *error = "encoder " + encoder + " is not an executable file";
        return false;
    }
    if (options_.size.width % 2 || options_.size.height % 2) {
        *error = "H.264 frame sets need an even width and height";
        return false;
    }
    std::string dir = frameDirectory(options_.dir, *options_.format, options_.size);
    if (!makeDirectories(dir, error)) {
        return false;
    }
    std::string stream = dir + "/.encoding.h264";
    std::string rate = std::to_string(options_.fps);
    // No B-frames: each access unit is then complete in delivery order, and
    // an IDR once per second lets a viewer join the looping sequence.
    std::string command = shellQuote(encoder) +
                          " -hide_banner -loglevel error -y -f rawvideo -pixel_format yuv420p"
                          " -video_size " +
                          options_.size.text() + " -framerate " + rate +
                          " -i - -c:v libx264 -bf 0 -g " + rate + " -pix_fmt yuv420p -f h264 " +
                          shellQuote(stream);
    {
        SigpipeGuard guard;
        FILE* pipe = popen(command.c_str(), "w");
        if (!pipe) {
            *error = "cannot start " + encoder;
            return false;
        }
        bool written = true;
        for (uint64_t i = 0; i < options_.count && written; ++i) {
            std::vector<uint8_t> frame = TestImage(options_.size, i).packed();
            written = std::fwrite(frame.data(), 1, frame.size(), pipe) == frame.size();
        }
        int status = pclose(pipe);
        if (!written || status != 0) {
            unlink(stream.c_str());
            *error = "the encoder failed (" + encoder + " with libx264)";
            return false;
        }
    }
    std::vector<uint8_t> bytes;
    bool read = readFile(stream, &bytes, error);
    unlink(stream.c_str());
    if (!read) {
        return false;
    }
    std::vector<std::vector<uint8_t>> units = splitAccessUnits(bytes);
    if (units.size() != options_.count) {
        *error = "the encoder produced " + std::to_string(units.size()) + " pictures, not " +
                 std::to_string(options_.count);
        return false;
    }
    for (uint64_t i = 0; i < units.size(); ++i) {
        if (!writeFrame(i, units[i], error)) {
            return false;
        }
    }
    removeStaleFrames();
    return true;
}

}  // namespace uvc_host
