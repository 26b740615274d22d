#include <android/log.h>
#include <turbojpeg.h>

#include <cstdlib>
#include <fstream>
#include <mutex>

#include "android_testing.h"
#include "client_harness.h"
#include "hidl_uvc_client.h"

namespace client_test {
namespace {

using uvc_client::DemoBuffer;

// Rows of a pattern frame: each row one value, one more than the row before.
bool hasRowPattern(const std::vector<uint8_t>& bytes, size_t rowLength) {
    if (bytes.empty() || bytes.size() % rowLength != 0) {
        return false;
    }
    for (size_t row = 0; row < bytes.size() / rowLength; ++row) {
        const uint8_t expected = static_cast<uint8_t>(bytes[0] + row);
        for (size_t i = row * rowLength; i < (row + 1) * rowLength; ++i) {
            if (bytes[i] != expected) {
                return false;
            }
        }
    }
    return true;
}

class StreamingTest : public HostTest {};

TEST_F(StreamingTest, YuyvFramesArriveWithTheRowPatternAtTheFrameRate) {
    ClientHarness h;
    h.change(0, 0, streamConfig(1280, 720, 30, DemoBuffer::kFormatYUYV, 1));
    ASSERT_TRUE(host.waitForFrames(0, 0, 3, 5s));
    host.setCopyFrameBytes(false);
    auto first = host.frames();
    ASSERT_GE(first.size(), 3u);
    for (const auto& f : first) {
        EXPECT_EQ(0, f.streamId);
        EXPECT_EQ(0, f.streamIdx);
        EXPECT_EQ(1843200u, f.size);
        EXPECT_EQ(3686400u, f.width);  // the blob buffer's byte width
        if (!f.bytes.empty()) {
            EXPECT_TRUE(hasRowPattern(f.bytes, 2560));
        }
    }
    // Consecutive frames continue the row counter: 720 rows later.
    ASSERT_FALSE(first[1].bytes.empty());
    EXPECT_EQ(static_cast<uint8_t>(first[0].bytes[0] + 720), first[1].bytes[0]);

    host.clearFrames();
    ASSERT_TRUE(host.waitForFrames(0, 0, 31, 5s));
    auto timed = host.frames();
    const double seconds = (timed[30].monotonicNs - timed[0].monotonicNs) / 1e9;
    EXPECT_NEAR(1.0, seconds, 0.3) << "30 frame periods";

    // Host stops streaming: no more frames.
    h.change(0, 0, streamConfig(1280, 720, 30, DemoBuffer::kFormatYUYV, 0));
    std::this_thread::sleep_for(100ms);
    const size_t stopped = host.frameCount(0, 0);
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(stopped, host.frameCount(0, 0));
}

TEST_F(StreamingTest, NewSizeAndFormatAfterAChange) {
    ClientHarness h;
    h.change(0, 0, streamConfig(320, 240, 30, DemoBuffer::kFormatYUYV, 1));
    ASSERT_TRUE(host.waitForFrames(0, 0, 2, 5s));
    h.change(0, 0, streamConfig(640, 480, 30, DemoBuffer::kFormatNV12, 1));
    host.clearFrames();
    ASSERT_TRUE(host.waitForFrames(0, 0, 3, 5s));
    for (const auto& f : host.frames()) {
        EXPECT_EQ(460800u, f.size);
        EXPECT_EQ(640u * 480 * 4, f.width);
        EXPECT_TRUE(hasRowPattern(f.bytes, 960));
    }
}

TEST_F(StreamingTest, MjpegWithFileModeOffSendsJpegFrames) {
    hidl_uvc_client::setMjpegFileMode(false);
    {
        ClientHarness h;
        h.change(0, 0, streamConfig(320, 240, 30, DemoBuffer::kFormatMJPG, 1));
        ASSERT_TRUE(host.waitForFrames(0, 0, 3, 5s));
    }
    hidl_uvc_client::setMjpegFileMode(true);
    tjhandle d = tjInitDecompress();
    for (const auto& f : host.frames()) {
        ASSERT_GT(f.bytes.size(), 2u);
        EXPECT_EQ(f.size, f.bytes.size());
        EXPECT_EQ(0xFF, f.bytes[0]);
        EXPECT_EQ(0xD8, f.bytes[1]);
        int w = 0, ht = 0, sub = 0, cs = 0;
        EXPECT_EQ(0, tjDecompressHeader3(d, f.bytes.data(), f.bytes.size(), &w, &ht, &sub, &cs));
        EXPECT_EQ(320, w);
        EXPECT_EQ(240, ht);
    }
    tjDestroy(d);
}

TEST_F(StreamingTest, H264FramesComeFromTheFilesInOrder) {
    char tmpl[] = "/tmp/h264_frames_XXXXXX";
    const std::string root = mkdtemp(tmpl);
    ASSERT_EQ(0, std::system(("mkdir -p " + root + "/160_120").c_str()));
    const std::vector<std::string> contents = {"frame zero", "frame one!", "frame two!!"};
    for (size_t i = 0; i < contents.size(); ++i) {
        std::ofstream(root + "/160_120/frame" + std::to_string(i)) << contents[i];
    }
    hidl_uvc_client::setFrameFilesRoot(root);
    {
        ClientHarness h;
        // A slow rate, so that no frame is dropped for want of a buffer.
        h.change(0, 0, streamConfig(160, 120, 10, DemoBuffer::kFormatH264, 1));
        ASSERT_TRUE(host.waitForFrames(0, 0, 5, 5s));
    }
    hidl_uvc_client::setFrameFilesRoot("/data/h264_frames");
    auto frames = host.frames();
    ASSERT_GE(frames.size(), 5u);
    for (size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(contents[i % 3], std::string(frames[i].bytes.begin(), frames[i].bytes.end()));
    }
    EXPECT_EQ(0, std::system(("rm -rf " + root).c_str()));
}

TEST_F(StreamingTest, AllStreamsStartAndCarryTheirOwnNumbers) {
    auto width = [](int id, int idx) { return 16 + 16 * (id * 4 + idx); };
    for (uint8_t id = 0; id < 2; ++id) {
        for (uint8_t idx = 0; idx < 4; ++idx) {
            host.setConfig(id, idx,
                           streamConfig(width(id, idx), 8, 30, DemoBuffer::kFormatYUYV, 1));
        }
    }
    ClientHarness h;
    ASSERT_TRUE(host.waitDelivered(host.hotplug(4, 255, 7), 10s));
    EXPECT_EQ((std::vector<std::string>{"0:0", "0:1", "0:2", "0:3", "1:0", "1:1", "1:2", "1:3"}),
              h.client().streamKeysForTest());
    for (uint8_t id = 0; id < 2; ++id) {
        for (uint8_t idx = 0; idx < 4; ++idx) {
            EXPECT_TRUE(host.waitForFrames(id, idx, 3, 5s)) << int(id) << ":" << int(idx);
        }
    }
    for (const auto& f : host.frames()) {
        EXPECT_EQ(static_cast<uint32_t>(width(f.streamId, f.streamIdx) * 2 * 8), f.size);
        EXPECT_TRUE(hasRowPattern(f.bytes, width(f.streamId, f.streamIdx) * 2));
    }
}

TEST_F(StreamingTest, LostConnectionIsReportedOnceAndStreamingGoesOn) {
    ClientHarness h;
    h.change(0, 0, streamConfig(64, 48, 30, DemoBuffer::kFormatYUYV, 1));
    ASSERT_TRUE(host.waitForFrames(0, 0, 2, 5s));
    EXPECT_EQ(1u, host.countCalls("registerProjector(0)"));
    android_standin::LogCapture log;
    host.failSends(1);
    ASSERT_TRUE(host.waitForCalls("registerProjector(0)", 2, 5s));
    const size_t after = host.frameCount(0, 0);
    EXPECT_TRUE(host.waitForFrames(0, 0, after + 3, 5s));
    size_t warnings = 0;
    for (const auto& r : log.withTag("ConvFactory")) {
        if (r.priority == ANDROID_LOG_WARN) {
            ++warnings;
            EXPECT_EQ("BUG: socket connection dropped to uvc_gadget. Trying to recover.", r.text);
        }
    }
    EXPECT_EQ(1u, warnings);
    EXPECT_EQ(2u, host.countCalls("registerProjector(0)"));
}

}  // namespace
}  // namespace client_test
