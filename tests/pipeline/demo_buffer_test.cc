#include <android/log.h>
#include <dlfcn.h>
#include <turbojpeg.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "android_testing.h"
#include "pipeline/DemoBuffer.h"
#include "pipeline/DemoBufferSettings.h"

// Lets a test make tjInitCompress fail; otherwise forwards to TurboJPEG.
static std::atomic<bool> failTjInit{false};
extern "C" tjhandle tjInitCompress(void) {
    using Fn = tjhandle (*)();
    static Fn real = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, "tjInitCompress"));
    return failTjInit ? nullptr : real();
}

namespace {

using uvc_client::DemoBuffer;
using uvc_client::DemoBufferSettings;
using Bytes = std::vector<uint8_t>;

trevo::HalUvcConfig config(int w, int h, uint32_t format) {
    trevo::HalUvcConfig c;
    c.width = w;
    c.height = h;
    c.format = format;
    return c;
}

// A scratch frame-files root, removed afterwards.
class FrameDir {
public:
    FrameDir() {
        char tmpl[] = "/tmp/demo_frames_XXXXXX";
        root_ = mkdtemp(tmpl);
        DemoBufferSettings::setFrameFilesRoot(root_);
    }
    ~FrameDir() {
        DemoBufferSettings::setFrameFilesRoot(DemoBufferSettings::kDefaultFrameFilesRoot);
        EXPECT_EQ(0, std::system(("rm -rf " + root_).c_str()));
    }
    void write(const std::string& dir, const std::string& file, const std::string& bytes) {
        ASSERT_EQ(0, std::system(("mkdir -p " + root_ + "/" + dir).c_str()));
        std::ofstream(root_ + "/" + dir + "/" + file, std::ios::binary) << bytes;
    }

private:
    std::string root_;
};

std::string fill(DemoBuffer& demo, const trevo::HalUvcConfig& c, Bytes& buf, unsigned size) {
    const unsigned n = demo.uvc_video_fill_buffer(c, buf.data(), size);
    return std::string(buf.begin(), buf.begin() + n);
}

TEST(DemoBufferPattern, RowsCountersAndBounds) {
    DemoBuffer demo;
    demo.yuyvValue = 254;
    Bytes buf(20, 0xAA);
    EXPECT_EQ(std::string(8, '\xFE') + std::string(8, '\xFF'),
              fill(demo, config(4, 2, DemoBuffer::kFormatYUYV), buf, 20));
    EXPECT_EQ(0xAA, buf[16]);
    EXPECT_EQ(0, demo.yuyvValue);  // wrapped

    Bytes big(640 * 480 * 4);
    EXPECT_EQ(460800u, demo.uvc_video_fill_buffer(config(640, 480, DemoBuffer::kFormatYU12),
                                                  big.data(), big.size()));
    EXPECT_EQ(480 % 256, demo.yu12Value);
    EXPECT_EQ(1, big[960]);
    // Odd width: 7 * 3 / 2 = 10 bytes a row; NV12 keeps its own counter.
    EXPECT_EQ(30u, demo.uvc_video_fill_buffer(config(7, 3, DemoBuffer::kFormatNV12), big.data(),
                                              big.size()));
    EXPECT_EQ(3, demo.nv12Value);

    // Nothing for empty or unknown frames, nor for a frame that does not fit.
    testing::internal::CaptureStdout();
    Bytes small(64, 0xAA);
    EXPECT_EQ("", fill(demo, config(0, 4, DemoBuffer::kFormatYUYV), small, 64));
    EXPECT_EQ("", fill(demo, config(-4, 4, DemoBuffer::kFormatYUYV), small, 64));
    EXPECT_EQ("", fill(demo, config(4, 4, 0x30303030), small, 64));
    EXPECT_EQ("", fill(demo, config(8, 8, DemoBuffer::kFormatYUYV), small, 64));
    EXPECT_EQ(0u, testing::internal::GetCapturedStdout().find("Unsupported format\n"));
    EXPECT_EQ(Bytes(64, 0xAA), small);
}

TEST(DemoBufferFiles, SequencesRepeatAndFallBackToFrameZero) {
    FrameDir dir;
    dir.write("32_16", "frame0", "first");
    dir.write("32_16", "frame1", "second");
    dir.write("mjpeg/32_16", "frame0.jpg", "m0");
    dir.write("mjpeg/32_16", "frame1.jpg", "m1");
    dir.write("mjpeg/32_16", "frame2.jpg", "m2");
    dir.write("mjpeg/16_8", "frame0.jpg", "s0");
    DemoBuffer demo;
    Bytes buf(4096);
    std::vector<std::string> got;
    for (uint32_t f : {DemoBuffer::kFormatH264, DemoBuffer::kFormatS264, DemoBuffer::kFormatH264})
        got.push_back(fill(demo, config(32, 16, f), buf, 4096));
    const auto mjpeg = config(32, 16, DemoBuffer::kFormatMJPG);
    got.push_back(fill(demo, mjpeg, buf, 4096));
    got.push_back(fill(demo, mjpeg, buf, 4096));
    // Same index in another resolution's directory; no frame2 there: frame 0.
    got.push_back(fill(demo, config(16, 8, DemoBuffer::kFormatMJPG), buf, 4096));
    got.push_back(fill(demo, mjpeg, buf, 4096));
    EXPECT_EQ((std::vector<std::string>{"first", "second", "first", "m0", "m1", "s0", "m1"}), got);

    // A missing directory: nothing, and the index stays at 1.
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ("", fill(demo, config(8, 8, DemoBuffer::kFormatH264), buf, 4096));
        EXPECT_EQ(1, demo.h264FrameIndex);
    }
}

TEST(DemoBufferFiles, LargeFileIsCutAtTheBufferAndFailedReadGivesZero) {
    FrameDir dir;
    dir.write("8_8", "frame0", std::string(300, 'x'));
    dir.write("8_8/frame1", "unused", "");  // frame1 is a directory: read fails
    DemoBuffer demo;
    Bytes buf(256 + 16, 0xAA);
    EXPECT_EQ(std::string(256, 'x'), fill(demo, config(8, 8, DemoBuffer::kFormatH264), buf, 256));
    EXPECT_EQ(Bytes(16, 0xAA), Bytes(buf.begin() + 256, buf.end()));
    EXPECT_EQ("", fill(demo, config(8, 8, DemoBuffer::kFormatH264), buf, 256));
    EXPECT_EQ(2, demo.h264FrameIndex);
}

class DemoBufferJpeg : public ::testing::Test {
protected:
    void SetUp() override { demo.useFrameFiles = false; }
    DemoBuffer demo;
    android_standin::LogCapture log;
};

TEST_F(DemoBufferJpeg, CompressesThePatternToTheConfiguredSize) {
    DemoBuffer::setJpegPatternValue(100);
    Bytes buf(64 * 48 * 4);
    const unsigned n =
        demo.uvc_video_fill_buffer(config(64, 48, DemoBuffer::kFormatMJPG), buf.data(), buf.size());
    ASSERT_GT(n, 2u);
    EXPECT_EQ(0xFF, buf[0]);
    EXPECT_EQ(0xD8, buf[1]);
    EXPECT_EQ(static_cast<uint8_t>(100 + 48), DemoBuffer::jpegPatternValue());
    tjhandle d = tjInitDecompress();
    int w = 0, h = 0, sub = 0, cs = 0;
    ASSERT_EQ(0, tjDecompressHeader3(d, buf.data(), n, &w, &h, &sub, &cs));
    EXPECT_EQ(64, w);
    EXPECT_EQ(48, h);
    Bytes gray(64 * 48);
    EXPECT_EQ(0, tjDecompress2(d, buf.data(), n, gray.data(), 64, 0, 48, TJPF_GRAY, 0));
    tjDestroy(d);
    EXPECT_NEAR(100, gray[0], 4);  // the first row's pattern value
}

TEST_F(DemoBufferJpeg, TooLongJpegAndFailedCompressorGiveZero) {
    // 16 x 16 takes 384 pattern bytes; its JPEG (headers alone) is longer.
    Bytes buf(384 + 32, 0xAA);
    EXPECT_EQ("", fill(demo, config(16, 16, DemoBuffer::kFormatMJPG), buf, 384));
    EXPECT_EQ(Bytes(32, 0xAA), Bytes(buf.begin() + 384, buf.end()));
    failTjInit = true;
    EXPECT_EQ("", fill(demo, config(16, 16, DemoBuffer::kFormatMJPG), buf, 416));
    failTjInit = false;
    auto records = log.withTag("ConvFactory");
    ASSERT_EQ(2u, records.size());
    EXPECT_EQ(ANDROID_LOG_ERROR, records[0].priority);
    EXPECT_EQ("Compressed frame of ", records[0].text.substr(0, 20));
    EXPECT_EQ("Compress to jpeg failed: ", records[1].text.substr(0, 25));
}

}  // namespace
