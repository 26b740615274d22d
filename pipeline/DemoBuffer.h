#pragma once

#include <cstdint>
#include <memory>

#include "pipeline/JpegHandles.h"
#include "trevo/HalUvcConfig.h"

namespace uvc_client {

// Makes the content of one frame for a stream configuration: a test pattern
// (YUYV, YU12, NV12), a recorded frame file (H264, S264, MJPG) or, with file
// mode off, a test pattern compressed to JPEG. Used by one thread only.
class DemoBuffer {
public:
    static const uint32_t kFormatYUYV = 0x56595559;
    static const uint32_t kFormatYU12 = 0x32315559;
    static const uint32_t kFormatNV12 = 0x3231564E;
    static const uint32_t kFormatMJPG = 0x47504A4D;
    static const uint32_t kFormatH264 = 0x34363248;
    static const uint32_t kFormatS264 = 0x34363253;

    // Largest number of bytes taken from one frame file (3840 x 2160).
    static const unsigned kMaxFrameFileBytes = 8294400;

    // Writes one frame for `config` into `buffer` (`size` bytes) and returns
    // its length in bytes; 0 when no frame was made. Never writes more than
    // `size` bytes: a longer frame file is cut at `size`, a pattern or JPEG
    // that does not fit is not made.
    unsigned uvc_video_fill_buffer(const trevo::HalUvcConfig& config, void* buffer, unsigned size);

    // A frame file that is not a regular file (a FIFO, a device, a symbolic
    // link) or cannot be read gives an empty frame and one warning; further
    // ones stay quiet until this is called (the frame source does so at
    // every start of its stream).
    void rearmFileWarning() { fileWarningGiven = false; }

    // Next value of the shared JPEG pattern counter (all DemoBuffers).
    static uint8_t jpegPatternValue();
    static void setJpegPatternValue(uint8_t value);

    int32_t mjpegFrameIndex = 0;
    int32_t h264FrameIndex = 0;
    bool useFrameFiles = true;
    uint8_t yuyvValue = 0;
    uint8_t yu12Value = 0;
    uint8_t nv12Value = 0;

private:
    // TurboJPEG's compressor and an output block of the largest JPEG of the
    // current size, kept across frames: making them per frame cost a dozen
    // heap allocations on the loop thread.
    JpegHandle compressor;
    JpegBlock jpegBlock;
    unsigned long jpegCapacity = 0;

    bool fileWarningGiven = false;

    unsigned fillPattern(int width, int height, unsigned rowLength, uint8_t& value, void* buffer,
                         unsigned size);
    unsigned readFrameFile(bool mjpeg, const trevo::HalUvcConfig& config, int32_t& index,
                           void* buffer, unsigned size);
    void warnOnce(const char* path, const char* reason);
    unsigned compressJpeg(const trevo::HalUvcConfig& config, void* buffer, unsigned size);
};

}  // namespace uvc_client
