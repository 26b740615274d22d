#include "pipeline/DemoBuffer.h"

#include <android/log.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <turbojpeg.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "base/UniqueFd.h"
#include "pipeline/DemoBufferSettings.h"

namespace uvc_client {

namespace {

const char kTag[] = "ConvFactory";
const size_t kPathBytes = 4096;
const int kJpegPad = 4;
const int kJpegQuality = 85;

// Shared by all frame makers; all run on the loop thread, the atomic only
// keeps tools that drive makers on other threads well-defined.
std::atomic<uint8_t> sharedJpegPatternValue{0};

bool fits(uint64_t bytes, unsigned size) {
    return bytes <= size;
}

}  // namespace

uint8_t DemoBuffer::jpegPatternValue() {
    return sharedJpegPatternValue.load();
}

void DemoBuffer::setJpegPatternValue(uint8_t value) {
    sharedJpegPatternValue.store(value);
}

unsigned DemoBuffer::uvc_video_fill_buffer(const trevo::HalUvcConfig& config, void* buffer,
                                           unsigned size) {
    if (config.width <= 0 || config.height <= 0) {
        return 0;
    }
    const uint64_t width = static_cast<uint64_t>(config.width);
    switch (config.format) {
        case kFormatYUYV:
            return fillPattern(config.width, config.height, static_cast<unsigned>(width * 2),
                               yuyvValue, buffer, size);
        case kFormatYU12:
            return fillPattern(config.width, config.height, static_cast<unsigned>(width * 3 / 2),
                               yu12Value, buffer, size);
        case kFormatNV12:
            return fillPattern(config.width, config.height, static_cast<unsigned>(width * 3 / 2),
                               nv12Value, buffer, size);
        case kFormatH264:
        case kFormatS264:
            return readFrameFile(false, config, h264FrameIndex, buffer, size);
        case kFormatMJPG:
            if (useFrameFiles) {
                return readFrameFile(true, config, mjpegFrameIndex, buffer, size);
            }
            return compressJpeg(config, buffer, size);
        default:
            std::puts("Unsupported format");
            return 0;
    }
}

unsigned DemoBuffer::fillPattern(int width, int height, unsigned rowLength, uint8_t& value,
                                 void* buffer, unsigned size) {
    const uint64_t total = static_cast<uint64_t>(rowLength) * static_cast<uint64_t>(height);
    if (buffer == nullptr || !fits(total, size)) {
        std::printf("Frame of %dx%d does not fit a buffer of %u bytes\n", width, height, size);
        return 0;
    }
    auto* row = static_cast<uint8_t*>(buffer);
    for (int y = 0; y < height; ++y) {
        std::memset(row, value++, rowLength);
        row += rowLength;
    }
    return static_cast<unsigned>(total);
}

unsigned DemoBuffer::readFrameFile(bool mjpeg, const trevo::HalUvcConfig& config, int32_t& index,
                                   void* buffer, unsigned size) {
    const auto kind =
        mjpeg ? DemoBufferSettings::FileKind::kMjpeg : DemoBufferSettings::FileKind::kH264;
    char path[kPathBytes];
    DemoBufferSettings::framePath(path, sizeof(path), kind, config.width, config.height, index);
    if (access(path, R_OK) != 0) {
        // The sequence ended (or never existed here): start again at frame 0.
        index = 0;
        DemoBufferSettings::framePath(path, sizeof(path), kind, config.width, config.height, 0);
    }
    ++index;
    if (buffer == nullptr) {
        return 0;
    }
    // Runs on the loop thread, which every stream shares: a FIFO or a device
    // must not hold it in open() or read(), and a link must not lead out of
    // the frame directory. So: no blocking, no link for the file itself, and
    // regular files only. Linked directories on the way are accepted: the
    // frame root is the device's own setting and often a link to storage.
    VOLUT::UniqueFd fd(open(path, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    if (!fd.valid()) {
        const int e = errno;
        // A missing file is the end of a sequence (or no sequence), not a fault.
        if (e != ENOENT) {
            warnOnce(path, e == ELOOP ? "a symbolic link" : strerror(e));
        }
        return 0;
    }
    struct stat st;
    if (fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) {
        warnOnce(path, "not a regular file");
        return 0;
    }
    const unsigned limit = size < kMaxFrameFileBytes ? size : kMaxFrameFileBytes;
    const ssize_t got = read(fd.get(), buffer, limit);
    if (got < 0) {
        warnOnce(path, strerror(errno));
        return 0;
    }
    return static_cast<unsigned>(got);
}

void DemoBuffer::warnOnce(const char* path, const char* reason) {
    if (fileWarningGiven) {
        return;
    }
    fileWarningGiven = true;
    __android_log_print(ANDROID_LOG_WARN, kTag,
                        "Frame file %s skipped (%s): empty frames, not repeated until the stream "
                        "restarts\n",
                        path, reason);
}

unsigned DemoBuffer::compressJpeg(const trevo::HalUvcConfig& config, void* buffer, unsigned size) {
    const int width = config.width;
    const int height = config.height;
    const unsigned rowLength = static_cast<unsigned>(static_cast<uint64_t>(width) * 3 / 2);
    // TurboJPEG reads its padded planar layout, which can be a little longer
    // than the rows written here; both must lie inside the buffer.
    const unsigned long yuvBytes = tjBufSizeYUV2(width, kJpegPad, height, TJSAMP_420);
    const uint64_t patternBytes = static_cast<uint64_t>(rowLength) * static_cast<uint64_t>(height);
    if (buffer == nullptr || yuvBytes == static_cast<unsigned long>(-1) || !fits(yuvBytes, size) ||
        !fits(patternBytes, size)) {
        std::printf("Frame of %dx%d does not fit a buffer of %u bytes\n", width, height, size);
        return 0;
    }
    auto* row = static_cast<uint8_t*>(buffer);
    for (int y = 0; y < height; ++y) {
        std::memset(row, sharedJpegPatternValue.fetch_add(1), rowLength);
        row += rowLength;
    }
    if (!compressor) {
        compressor.reset(tjInitCompress());
        if (!compressor) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "Compress to jpeg failed: %s\n",
                                tjGetErrorStr());
            return 0;
        }
    }
    const unsigned long capacity = tjBufSize(width, height, TJSAMP_420);
    if (capacity == static_cast<unsigned long>(-1) || capacity > INT_MAX) {
        std::printf("Frame of %dx%d is too large for JPEG\n", width, height);
        return 0;
    }
    if (capacity != jpegCapacity) {
        jpegBlock.reset(tjAlloc(static_cast<int>(capacity)));
        jpegCapacity = jpegBlock ? capacity : 0;
        if (!jpegBlock) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "Compress to jpeg failed: no memory\n");
            return 0;
        }
    }
    unsigned char* jpeg = jpegBlock.get();
    unsigned long jpegSize = jpegCapacity;
    unsigned result = 0;
    // The block holds the worst case, so TurboJPEG never needs to grow it.
    if (tjCompressFromYUV(compressor.get(), static_cast<const unsigned char*>(buffer), width,
                          kJpegPad, height, TJSAMP_420, &jpeg, &jpegSize, kJpegQuality,
                          TJFLAG_NOREALLOC) < 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Compress to jpeg failed: %s\n",
                            tjGetErrorStr());
    } else if (!fits(jpegSize, size)) {
        // A cut JPEG is no picture: drop the frame rather than send half of it.
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "Compressed frame of %lu bytes does not fit a buffer of %u bytes\n",
                            jpegSize, size);
    } else {
        std::memcpy(buffer, jpeg, jpegSize);
        result = static_cast<unsigned>(jpegSize);
    }
    return result;
}

}  // namespace uvc_client
