#include <android/log.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>

#include "android_testing.h"
#include "client/StreamHandler.h"
#include "hardware_buffer_testing.h"
#include "client_harness.h"
#include "hidl_uvc_client.h"
#include "pace_yardstick.h"

namespace client_test {
namespace {

// Rows of a pattern frame: each row one value, one more than the row before.
bool hasRowPattern(const std::vector<uint8_t>& bytes, size_t rowLength) {
    bool ok = !bytes.empty() && bytes.size() % rowLength == 0;
    for (size_t i = 0; ok && i < bytes.size(); ++i) {
        ok = bytes[i] == static_cast<uint8_t>(bytes[0] + i / rowLength);
    }
    return ok;
}

class StreamingTest : public HostTest {};

TEST_F(StreamingTest, RawFramesCarryTheRowPatternAtTheFrameRateUntilStopped) {
    ClientHarness h;
    h.change(0, 0, streamConfig(1280, 720, 30, DemoBuffer::kFormatYUYV, 1));
    ASSERT_TRUE(host.waitForFrames(0, 0, 3, 5s));
    host.setCopyFrameBytes(false);
    auto first = host.frames();
    for (const auto& f : first) {
        EXPECT_EQ(1843200u, f.size);
        EXPECT_EQ(3686400u, f.width);  // the blob buffer's byte width
        EXPECT_TRUE(f.bytes.empty() || hasRowPattern(f.bytes, 2560));
    }
    // The next frame continues the row counter 720 rows later, or some
    // times that when a busy machine made the stream drop frames between.
    ASSERT_FALSE(first[1].bytes.empty());
    const uint8_t step = static_cast<uint8_t>(first[1].bytes[0] - first[0].bytes[0]);
    bool continued = false;
    for (int frames = 1; frames <= 10; ++frames)
        continued = continued || step == static_cast<uint8_t>(720 * frames);
    EXPECT_TRUE(continued) << "row counter moved by " << int(step);
    expectKeepsPace(measurePace(host, 0, 0, 30));

    h.change(0, 0, streamConfig(1280, 720, 30, DemoBuffer::kFormatYUYV, 0));
    std::this_thread::sleep_for(100ms);
    const size_t stopped = host.frameCount(0, 0);
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(stopped, host.frameCount(0, 0));

    host.setCopyFrameBytes(true);
    h.change(0, 0, streamConfig(640, 480, 30, DemoBuffer::kFormatNV12, 1));
    host.clearFrames();
    ASSERT_TRUE(host.waitForFrames(0, 0, 3, 5s));
    for (const auto& f : host.frames()) {
        EXPECT_EQ(460800u, f.size);
        EXPECT_EQ(640u * 480 * 4, f.width);
        EXPECT_TRUE(hasRowPattern(f.bytes, 960));
    }
}

// A FIFO among the frame files would block the loop thread, and with it
// every stream, were it opened like a file: its stream sends empty frames
// instead, with one warning per start.
TEST_F(StreamingTest, FrameFilesGoOutWholeAndAFifoAmongThemSendsEmptyFramesWarnedOnce) {
    char tmpl[] = "/tmp/h264_frames_XXXXXX";
    const std::string root = mkdtemp(tmpl);
    ASSERT_EQ(0, std::system(("mkdir -p " + root + "/160_120 " + root + "/64_48").c_str()));
    const std::vector<std::string> contents = {"frame zero", "frame one!", "frame two!!"};
    for (size_t i = 0; i < contents.size(); ++i) {
        std::ofstream(root + "/160_120/frame" + std::to_string(i)) << contents[i];
    }
    ASSERT_EQ(0, mkfifo((root + "/64_48/frame0").c_str(), 0600));
    hidl_uvc_client::setFrameFilesRoot(root);
    android_standin::LogCapture log;
    {
        ClientHarness h;
        h.change(0, 0, streamConfig(160, 120, 10, DemoBuffer::kFormatH264, 1));
        h.change(0, 1, streamConfig(64, 48, 30, DemoBuffer::kFormatH264, 1));
        ASSERT_TRUE(host.waitForFrames(0, 0, 5, 5s));
        ASSERT_TRUE(host.waitForFrames(0, 1, 3, 5s));
    }
    hidl_uvc_client::setFrameFilesRoot("/data/h264_frames");
    EXPECT_EQ(0, std::system(("rm -rf " + root).c_str()));
    // Their order is the frame maker's, checked there: here a busy machine
    // may drop a frame at the hand-over.
    for (const auto& f : host.frames()) {
        const std::string bytes(f.bytes.begin(), f.bytes.end());
        if (f.streamIdx == 0) {
            EXPECT_NE(contents.end(), std::find(contents.begin(), contents.end(), bytes)) << bytes;
        } else {
            EXPECT_EQ(0u, f.size);
        }
    }
    auto lines = log.withTag("ConvFactory");  // host-busy warnings may come too
    EXPECT_EQ(1, std::count_if(lines.begin(), lines.end(), [](const auto& r) {
                  return r.priority == ANDROID_LOG_WARN && r.text.rfind("Frame file ", 0) == 0;
              }));
}

TEST_F(StreamingTest, HardwareBuffersThatFailedAreMadeAgainAndTheStreamRunsAtItsRate) {
    namespace hb = hardware_buffer_standin;
    ClientHarness h;
    auto* handler = h.client().handlerForTest("0:0");
    auto missing = [&] {
        std::lock_guard<std::mutex> quiet(handler->lockForTest());
        return handler->bufferMgmtForTest()->missingBuffers();
    };
    // None of the three: nothing to send until the host asks again, even
    // with the same setup; then every buffer exists and the rate is full.
    hb::failAllocations(3);
    h.change(0, 0, streamConfig(64, 48, 30, DemoBuffer::kFormatYUYV, 1));
    EXPECT_EQ(3, missing());
    h.change(0, 0, streamConfig(64, 48, 30, DemoBuffer::kFormatYUYV, 1));
    EXPECT_EQ(0, missing());
    expectKeepsPace(measurePace(host, 0, 0, 30));

    // One of three: the two that exist carry every frame (no frame meets an
    // empty buffer), and the third is made without a stream change.
    testing::internal::CaptureStdout();
    hb::failAllocations(1);
    h.change(0, 0, streamConfig(64, 48, 60, DemoBuffer::kFormatYUYV, 1));
    EXPECT_EQ(1, missing());
    expectKeepsPace(measurePace(host, 0, 0, 60));
    EXPECT_EQ(0, missing());
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(std::string::npos, out.find("does not fit the hardware buffer")) << out;
    hb::clearFaults();
}

}  // namespace
}  // namespace client_test
