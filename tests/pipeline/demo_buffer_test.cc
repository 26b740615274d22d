#include <dlfcn.h>
#include <sys/stat.h>
#include <turbojpeg.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <android/log.h>

#include "android_testing.h"
#include "pipeline/DemoBuffer.h"
#include "pipeline/DemoBufferSettings.h"
#include "pipeline/FillDataTest.h"

// Lets a test make tjInitCompress fail; otherwise forwards to TurboJPEG.
static std::atomic<bool> failTjInit{false};
extern "C" tjhandle tjInitCompress(void) {
    if (failTjInit) {
        return nullptr;
    }
    using Fn = tjhandle (*)();
    static Fn real = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, "tjInitCompress"));
    return real();
}

namespace {

using uvc_client::DemoBuffer;
using uvc_client::DemoBufferSettings;

trevo::HalUvcConfig config(int w, int h, uint32_t format) {
    trevo::HalUvcConfig c;
    c.width = w;
    c.height = h;
    c.format = format;
    c.fps = 30;
    c.streaming = 1;
    return c;
}

// A scratch directory of frame files, removed afterwards; the frame-files
// root points at it while alive.
class FrameDir {
public:
    FrameDir() {
        char tmpl[] = "/tmp/demo_frames_XXXXXX";
        root_ = mkdtemp(tmpl);
        DemoBufferSettings::setFrameFilesRoot(root_);
    }
    ~FrameDir() {
        DemoBufferSettings::setFrameFilesRoot(DemoBufferSettings::kDefaultFrameFilesRoot);
        std::string cmd = "rm -rf '" + root_ + "'";
        EXPECT_EQ(0, std::system(cmd.c_str()));
    }
    void write(const std::string& rel, const std::string& bytes) {
        std::string path = root_ + "/" + rel;
        std::string dir = path.substr(0, path.rfind('/'));
        std::string cmd = "mkdir -p '" + dir + "'";
        ASSERT_EQ(0, std::system(cmd.c_str()));
        std::ofstream(path, std::ios::binary) << bytes;
    }
    void mkdir(const std::string& rel) {
        std::string cmd = "mkdir -p '" + root_ + "/" + rel + "'";
        ASSERT_EQ(0, std::system(cmd.c_str()));
    }

private:
    std::string root_;
};

std::string asString(const std::vector<uint8_t>& buf, unsigned n) {
    return std::string(buf.begin(), buf.begin() + n);
}

TEST(DemoBufferPattern, YuyvRowsCountAndWrap) {
    DemoBuffer demo;
    demo.yuyvValue = 254;
    std::vector<uint8_t> buf(20, 0xAA);
    EXPECT_EQ(16u, demo.uvc_video_fill_buffer(config(4, 2, DemoBuffer::kFormatYUYV), buf.data(),
                                              buf.size()));
    EXPECT_EQ(std::vector<uint8_t>(8, 254), std::vector<uint8_t>(buf.begin(), buf.begin() + 8));
    EXPECT_EQ(std::vector<uint8_t>(8, 255),
              std::vector<uint8_t>(buf.begin() + 8, buf.begin() + 16));
    EXPECT_EQ(0xAA, buf[16]);
    EXPECT_EQ(0, demo.yuyvValue);
}

TEST(DemoBufferPattern, PlanarFormatsUseOwnCountersAndRowLength) {
    DemoBuffer demo;
    std::vector<uint8_t> buf(640 * 480 * 4);
    EXPECT_EQ(460800u, demo.uvc_video_fill_buffer(config(640, 480, DemoBuffer::kFormatYU12),
                                                  buf.data(), buf.size()));
    EXPECT_EQ(480 % 256, demo.yu12Value);
    EXPECT_EQ(0, demo.nv12Value);
    EXPECT_EQ(0, buf[0]);
    EXPECT_EQ(1, buf[960]);
    // Odd width: 7 * 3 / 2 = 10 bytes per row.
    EXPECT_EQ(30u, demo.uvc_video_fill_buffer(config(7, 3, DemoBuffer::kFormatNV12), buf.data(),
                                              buf.size()));
    EXPECT_EQ(3, demo.nv12Value);
    EXPECT_EQ(2, buf[29]);
    EXPECT_EQ(0, demo.yuyvValue);
}

TEST(DemoBufferPattern, NothingMadeForEmptyOrUnknownOrOversizedFrames) {
    DemoBuffer demo;
    std::vector<uint8_t> buf(64, 0xAA);
    EXPECT_EQ(0u, demo.uvc_video_fill_buffer(config(0, 4, DemoBuffer::kFormatYUYV), buf.data(),
                                             buf.size()));
    EXPECT_EQ(0u, demo.uvc_video_fill_buffer(config(4, 0, DemoBuffer::kFormatYUYV), buf.data(),
                                             buf.size()));
    EXPECT_EQ(0u, demo.uvc_video_fill_buffer(config(-4, 4, DemoBuffer::kFormatYUYV), buf.data(),
                                             buf.size()));
    testing::internal::CaptureStdout();
    EXPECT_EQ(0u, demo.uvc_video_fill_buffer(config(4, 4, 0x30303030), buf.data(), buf.size()));
    // 8 x 8 YUYV needs 128 bytes: not made, nothing written.
    EXPECT_EQ(0u, demo.uvc_video_fill_buffer(config(8, 8, DemoBuffer::kFormatYUYV), buf.data(),
                                             buf.size()));
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(0u, out.find("Unsupported format\n"));
    EXPECT_EQ(std::vector<uint8_t>(64, 0xAA), buf);
    EXPECT_EQ(0, demo.yuyvValue);
}

TEST(DemoBufferFiles, H264SequenceRepeatsAndS264SharesIt) {
    FrameDir dir;
    dir.write("32_16/frame0", "first");
    dir.write("32_16/frame1", "second!");
    DemoBuffer demo;
    std::vector<uint8_t> buf(32 * 16 * 4);
    std::vector<std::string> got;
    for (uint32_t format : {DemoBuffer::kFormatH264, DemoBuffer::kFormatH264,
                            DemoBuffer::kFormatS264, DemoBuffer::kFormatS264}) {
        unsigned n = demo.uvc_video_fill_buffer(config(32, 16, format), buf.data(), buf.size());
        got.push_back(asString(buf, n));
    }
    EXPECT_EQ((std::vector<std::string>{"first", "second!", "first", "second!"}), got);
    EXPECT_EQ(2, demo.h264FrameIndex);
    EXPECT_EQ(0, demo.mjpegFrameIndex);
}

TEST(DemoBufferFiles, MjpegFilesAndResolutionChangeFallback) {
    FrameDir dir;
    dir.write("mjpeg/32_16/frame0.jpg", "m0");
    dir.write("mjpeg/32_16/frame1.jpg", "m1");
    dir.write("mjpeg/32_16/frame2.jpg", "m2");
    dir.write("mjpeg/16_8/frame0.jpg", "s0");
    dir.write("mjpeg/16_8/frame1.jpg", "s1");
    DemoBuffer demo;
    std::vector<uint8_t> buf(4096);
    auto next = [&](int w, int h) {
        unsigned n = demo.uvc_video_fill_buffer(config(w, h, DemoBuffer::kFormatMJPG), buf.data(),
                                                buf.size());
        return asString(buf, n);
    };
    EXPECT_EQ("m0", next(32, 16));
    EXPECT_EQ("m1", next(32, 16));
    // The index carries over; 16_8 has no frame2, so it starts again at 0.
    EXPECT_EQ("s0", next(16, 8));
    EXPECT_EQ("s1", next(16, 8));
    EXPECT_EQ("m2", next(32, 16));
}

TEST(DemoBufferFiles, MissingDirectoryKeepsIndexAtOne) {
    FrameDir dir;
    DemoBuffer demo;
    std::vector<uint8_t> buf(256);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(0u, demo.uvc_video_fill_buffer(config(8, 8, DemoBuffer::kFormatH264), buf.data(),
                                                 buf.size()));
        EXPECT_EQ(1, demo.h264FrameIndex);
        EXPECT_EQ(0u, demo.uvc_video_fill_buffer(config(8, 8, DemoBuffer::kFormatMJPG), buf.data(),
                                                 buf.size()));
        EXPECT_EQ(1, demo.mjpegFrameIndex);
    }
}

TEST(DemoBufferFiles, LargeFileIsCutAtTheBufferAndFailedReadGivesZero) {
    FrameDir dir;
    dir.write("8_8/frame0", std::string(300, 'x'));
    dir.mkdir("8_8/frame1");  // opens, but read fails with EISDIR
    DemoBuffer demo;
    std::vector<uint8_t> buf(256 + 16, 0xAA);
    EXPECT_EQ(256u,
              demo.uvc_video_fill_buffer(config(8, 8, DemoBuffer::kFormatH264), buf.data(), 256));
    EXPECT_EQ(std::vector<uint8_t>(16, 0xAA), std::vector<uint8_t>(buf.begin() + 256, buf.end()));
    EXPECT_EQ(0u,
              demo.uvc_video_fill_buffer(config(8, 8, DemoBuffer::kFormatH264), buf.data(), 256));
    EXPECT_EQ(2, demo.h264FrameIndex);
}

TEST(DemoBufferFiles, DefaultRootAndPathLayout) {
    EXPECT_EQ("/data/h264_frames", DemoBufferSettings::frameFilesRoot());
    char path[64];
    DemoBufferSettings::framePath(path, sizeof(path), DemoBufferSettings::FileKind::kMjpeg, 1280,
                                  720, 0);
    EXPECT_STREQ("/data/h264_frames/mjpeg/1280_720/frame0.jpg", path);
    DemoBufferSettings::framePath(path, sizeof(path), DemoBufferSettings::FileKind::kH264, 1280,
                                  720, 12);
    EXPECT_STREQ("/data/h264_frames/1280_720/frame12", path);
    char small[12];
    DemoBufferSettings::framePath(small, sizeof(small), DemoBufferSettings::FileKind::kH264, 1, 1,
                                  1);
    EXPECT_STREQ("/data/h264_", small);
}

class DemoBufferJpeg : public ::testing::Test {
protected:
    DemoBuffer demo;
    void SetUp() override { demo.useFrameFiles = false; }
};

TEST_F(DemoBufferJpeg, CompressesThePatternToTheConfiguredSize) {
    DemoBuffer::setJpegPatternValue(100);
    std::vector<uint8_t> buf(64 * 48 * 4);
    const unsigned n =
        demo.uvc_video_fill_buffer(config(64, 48, DemoBuffer::kFormatMJPG), buf.data(), buf.size());
    ASSERT_GT(n, 2u);
    EXPECT_EQ(0xFF, buf[0]);
    EXPECT_EQ(0xD8, buf[1]);
    EXPECT_EQ(0xFF, buf[n - 2]);
    EXPECT_EQ(0xD9, buf[n - 1]);
    EXPECT_EQ(static_cast<uint8_t>(100 + 48), DemoBuffer::jpegPatternValue());

    tjhandle d = tjInitDecompress();
    int w = 0, h = 0, sub = 0, cs = 0;
    ASSERT_EQ(0, tjDecompressHeader3(d, buf.data(), n, &w, &h, &sub, &cs));
    EXPECT_EQ(64, w);
    EXPECT_EQ(48, h);
    EXPECT_EQ(TJSAMP_420, sub);
    std::vector<uint8_t> gray(64 * 48);
    EXPECT_EQ(0, tjDecompress2(d, buf.data(), n, gray.data(), 64, 0, 48, TJPF_GRAY, 0));
    tjDestroy(d);
    // The first rows hold the pattern value 100: the picture starts dark grey.
    EXPECT_NEAR(100, gray[0], 4);
}

TEST_F(DemoBufferJpeg, JpegLongerThanTheBufferIsDropped) {
    android_standin::LogCapture log;
    // 16 x 16 takes 384 pattern bytes; its JPEG (headers alone) is longer.
    std::vector<uint8_t> buf(384 + 32, 0xAA);
    EXPECT_EQ(0u,
              demo.uvc_video_fill_buffer(config(16, 16, DemoBuffer::kFormatMJPG), buf.data(), 384));
    EXPECT_EQ(std::vector<uint8_t>(32, 0xAA), std::vector<uint8_t>(buf.begin() + 384, buf.end()));
    auto records = log.withTag("ConvFactory");
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ(ANDROID_LOG_ERROR, records[0].priority);
    EXPECT_NE(std::string::npos, records[0].text.find("does not fit a buffer of 384 bytes"));
}

TEST_F(DemoBufferJpeg, FailedCompressorGivesZero) {
    android_standin::LogCapture log;
    std::vector<uint8_t> buf(64 * 48 * 4);
    failTjInit = true;
    EXPECT_EQ(0u, demo.uvc_video_fill_buffer(config(64, 48, DemoBuffer::kFormatMJPG), buf.data(),
                                             buf.size()));
    failTjInit = false;
    auto records = log.withTag("ConvFactory");
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ(0u, records[0].text.find("Compress to jpeg failed: "));
}

TEST(FillDataTest, HoldsThirtyCharacterText) {
    hidl_uvc_client::FillDataTest t;
    EXPECT_EQ(30u, t.payload.size());
    EXPECT_EQ(0, t.position);
}

}  // namespace
