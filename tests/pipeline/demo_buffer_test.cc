#include <android/log.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <turbojpeg.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <future>

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

// Fills `buf` (offering `size` bytes of it) and returns what was written.
std::string fill(DemoBuffer& demo, const trevo::HalUvcConfig& c, Bytes& buf, unsigned size) {
    return std::string(buf.begin(), buf.begin() + demo.uvc_video_fill_buffer(c, buf.data(), size));
}

// A scratch frame-files root, removed afterwards.
class DemoBufferFiles : public ::testing::Test {
protected:
    void SetUp() override { DemoBufferSettings::setFrameFilesRoot(root_ = mkdtemp(tmpl_)); }
    void TearDown() override {
        DemoBufferSettings::setFrameFilesRoot(DemoBufferSettings::kDefaultFrameFilesRoot);
        EXPECT_EQ(0, std::system(("rm -rf " + root_).c_str()));
    }
    void write(const std::string& dir, const std::string& file, const std::string& bytes) {
        ASSERT_EQ(0, std::system(("mkdir -p " + root_ + "/" + dir).c_str()));
        std::ofstream(root_ + "/" + dir + "/" + file, std::ios::binary) << bytes;
    }
    char tmpl_[32] = "/tmp/demo_frames_XXXXXX";
    std::string root_;
    DemoBuffer demo;
    Bytes buf = Bytes(4096, 0xAA);
};

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
    for (auto c : {config(0, 4, DemoBuffer::kFormatYUYV), config(-4, 4, DemoBuffer::kFormatYUYV),
                   config(4, 4, 0x30303030), config(8, 8, DemoBuffer::kFormatYUYV)}) {
        EXPECT_EQ("", fill(demo, c, small, 64));
    }
    EXPECT_EQ(0u, testing::internal::GetCapturedStdout().find("Unsupported format\n"));
    EXPECT_EQ(Bytes(64, 0xAA), small);
}

TEST_F(DemoBufferFiles, SequencesRepeatFallBackToFrameZeroAndAreCutAtTheBuffer) {
    write("32_16", "frame0", "first");
    write("32_16", "frame1", "second");
    for (const char* f : {"frame0.jpg", "frame1.jpg", "frame2.jpg"}) {
        write("mjpeg/32_16", f, std::string("m") + f[5]);
    }
    write("mjpeg/16_8", "frame0.jpg", "s0");
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
    // A file longer than the buffer offered is cut there.
    write("8_4", "frame0", std::string(300, 'x'));
    EXPECT_EQ(std::string(256, 'x'), fill(demo, config(8, 4, DemoBuffer::kFormatH264), buf, 256));
    EXPECT_EQ(0xAA, buf[256]);
}

TEST_F(DemoBufferFiles, OnlyRegularFilesAreReadWithoutBlockingAndWarnedOnce) {
    write("8_8", "frame1", "good");
    const std::string dir = root_ + "/8_8/";
    ASSERT_EQ(0, mkfifo((dir + "frame0").c_str(), 0600));  // no writer: open() would wait
    ASSERT_EQ(0, symlink("/dev/zero", (dir + "frame2").c_str()));
    ASSERT_EQ(0, symlink((dir + "frame1").c_str(), (dir + "frame3").c_str()));
    // A reader stuck on the FIFO is let go by opening and closing its write
    // end, so that a blocking read fails the test instead of hanging it.
    auto next = [&] {
        auto done = std::async(std::launch::async, [&] {
            return fill(demo, config(8, 8, DemoBuffer::kFormatH264), buf, 256);
        });
        if (done.wait_for(std::chrono::seconds(1)) == std::future_status::timeout) {
            ADD_FAILURE() << "reading a frame file blocked";
            while (done.wait_for(std::chrono::milliseconds(10)) == std::future_status::timeout) {
                const int w = open((dir + "frame0").c_str(), O_WRONLY | O_NONBLOCK);
                if (w >= 0)
                    close(w);
            }
        }
        return done.get();
    };
    android_standin::LogCapture log;
    std::vector<std::string> got;
    for (int i = 0; i < 7; ++i)
        got.push_back(next());
    // FIFO, file, link to a device, link to a file, then from frame 0 again.
    EXPECT_EQ((std::vector<std::string>{"", "good", "", "", "", "good", ""}), got);
    ASSERT_EQ(1u, log.withTag("ConvFactory").size());
    EXPECT_EQ(ANDROID_LOG_WARN, log.records()[0].priority);
    EXPECT_EQ("Frame file " + dir +
                  "frame0 skipped (not a regular file): empty frames, not repeated until the "
                  "stream restarts\n",
              log.records()[0].text);
    demo.rearmFileWarning();  // a restart of the stream
    EXPECT_EQ("", next());
    auto warned = log.withTag("ConvFactory");
    ASSERT_EQ(2u, warned.size());
    EXPECT_NE(std::string::npos, warned[1].text.find("frame3 skipped (a symbolic link)"));
}

TEST(DemoBufferJpeg, PatternJpegAndWhatDoesNotFitOrCannotBeMade) {
    android_standin::LogCapture log;
    DemoBuffer demo;
    demo.useFrameFiles = false;
    DemoBuffer::setJpegPatternValue(100);
    Bytes buf(64 * 48 * 4);
    ASSERT_GT(
        demo.uvc_video_fill_buffer(config(64, 48, DemoBuffer::kFormatMJPG), buf.data(), buf.size()),
        2u);
    EXPECT_EQ(0xFF, buf[0]);
    EXPECT_EQ(0xD8, buf[1]);
    EXPECT_EQ(static_cast<uint8_t>(100 + 48), DemoBuffer::jpegPatternValue());

    // 16 x 16 takes 384 pattern bytes; its JPEG (headers alone) is longer.
    Bytes small(384 + 32, 0xAA);
    EXPECT_EQ("", fill(demo, config(16, 16, DemoBuffer::kFormatMJPG), small, 384));
    EXPECT_EQ(Bytes(32, 0xAA), Bytes(small.begin() + 384, small.end()));
    // The compressor is made once per frame maker and kept.
    DemoBuffer fresh;
    fresh.useFrameFiles = false;
    failTjInit = true;
    EXPECT_EQ("", fill(fresh, config(16, 16, DemoBuffer::kFormatMJPG), small, 416));
    failTjInit = false;
    auto records = log.withTag("ConvFactory");
    ASSERT_EQ(2u, records.size());
    EXPECT_EQ(ANDROID_LOG_ERROR, records[0].priority);
    EXPECT_EQ("Compressed frame of ", records[0].text.substr(0, 20));
    EXPECT_EQ("Compress to jpeg failed: ", records[1].text.substr(0, 25));
}

}  // namespace
