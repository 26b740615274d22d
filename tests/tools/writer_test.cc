#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

#include "ToolTestSupport.h"
#include "media/FrameWriter.h"
#include "media/OutputNaming.h"
#include "media/WriteQueue.h"

using namespace uvc_host;

TEST(FrameWriterTest, RawVideoKeepsOnlyWholeFrames) {
    uvc_host_test::TempDir dir;
    FrameWriter w;
    std::string error;
    ASSERT_TRUE(w.open(dir.file("v.yuv"), *findFormat("YUYV"), {4, 2}, &error)) << error;
    std::vector<uint8_t> frame(16, 7), shortFrame(15, 9);
    EXPECT_TRUE(w.write(frame.data(), frame.size()));
    EXPECT_TRUE(w.write(shortFrame.data(), shortFrame.size()));
    EXPECT_TRUE(w.write(frame.data(), 0));
    EXPECT_TRUE(w.write(frame.data(), frame.size()));
    ASSERT_TRUE(w.close(&error)) << error;
    EXPECT_EQ(w.framesWritten(), 2u);
    EXPECT_EQ(w.framesSkipped(), 2u);
    EXPECT_EQ(dir.read("v.yuv").size(), 32u);

    // 4:2:0 chroma rounds up on odd widths.
    EXPECT_EQ(findFormat("NV12")->rawFrameBytes(7, 2), 20u);
}

TEST(FrameWriterTest, JpegAndH264StreamsStayParsable) {
    uvc_host_test::TempDir dir;
    std::string error;
    FrameWriter jpeg;
    ASSERT_TRUE(jpeg.open(dir.file("v.mjpg"), *findFormat("MJPG"), {4, 2}, &error));
    const uint8_t good[] = {0xFF, 0xD8, 0xFF, 0xE0, 0xFF, 0xD9};
    const uint8_t junk[] = {0x00, 0x01, 0x02, 0x03};
    jpeg.write(good, sizeof good);
    jpeg.write(junk, sizeof junk);
    ASSERT_TRUE(jpeg.close(&error));
    EXPECT_EQ(jpeg.framesSkipped(), 1u);
    EXPECT_EQ(dir.read("v.mjpg").size(), sizeof good);

    // A frame without a start code gets one; one with either form is kept.
    FrameWriter h264;
    ASSERT_TRUE(h264.open(dir.file("v.h264"), *findFormat("S264"), {4, 2}, &error));
    const uint8_t bare[] = {0x65, 0x88};
    const uint8_t short3[] = {0, 0, 1, 0x41, 0x9A};
    const uint8_t long4[] = {0, 0, 0, 1, 0x67};
    h264.write(bare, sizeof bare);
    h264.write(short3, sizeof short3);
    h264.write(long4, sizeof long4);
    ASSERT_TRUE(h264.close(&error));
    std::vector<uint8_t> expected = {0, 0, 0, 1, 0x65, 0x88, 0, 0, 1, 0x41, 0x9A, 0, 0, 0, 1, 0x67};
    EXPECT_EQ(dir.read("v.h264"), expected);
}

TEST(FrameWriterTest, UnwritablePathsReportTheReason) {
    FrameWriter w;
    std::string error;
    EXPECT_FALSE(w.open("/nonexistent-dir/v.yuv", *findFormat("YUYV"), {4, 2}, &error));
    EXPECT_NE(error.find("/nonexistent-dir/v.yuv"), std::string::npos);
    EXPECT_FALSE(w.write(nullptr, 0));

    // A full device: the write fails once and the failure is kept.
    FrameWriter full;
    ASSERT_TRUE(full.open("/dev/full", *findFormat("YUYV"), {256, 256}, &error));
    std::vector<uint8_t> frame(256 * 256 * 2, 1);
    for (int i = 0; i < 4; ++i) {
        full.write(frame.data(), frame.size());
    }
    EXPECT_FALSE(full.close(&error));
    EXPECT_NE(error.find("/dev/full"), std::string::npos);
}

TEST(WriteQueueTest, AStalledWriterCostsThatOutputsFramesNotTheCaller) {
    // The writer is held in its first write, as a stalled disk would hold it;
    // output 1 fails at its first frame.
    std::mutex mutex;
    std::condition_variable released;
    bool open = false;
    std::vector<std::pair<size_t, int>> written;
    WriteQueue queue(2, 2, [&](size_t output, const uint8_t* data, size_t) {
        std::unique_lock<std::mutex> lock(mutex);
        released.wait(lock, [&] { return open; });
        written.emplace_back(output, data[0]);
        return output == 0;
    });
    uint8_t frame[3] = {};
    auto push = [&](size_t output, uint8_t mark) {
        frame[0] = mark;  // the queue keeps a copy
        return queue.push(output, frame, sizeof frame);
    };
    // A frame stays in its output's share until written, so whatever the
    // writer thread has taken, two fit and the rest are counted.
    EXPECT_TRUE(push(0, 1));
    EXPECT_TRUE(push(0, 2));
    EXPECT_FALSE(push(0, 3));
    EXPECT_FALSE(push(0, 4));
    EXPECT_TRUE(push(1, 5));  // a share of its own
    EXPECT_TRUE(push(1, 6));
    EXPECT_EQ(queue.notWritten(0), 2u);
    {
        std::lock_guard<std::mutex> lock(mutex);
        open = true;
    }
    released.notify_all();
    queue.finish();
    // Frame 6 follows a failed one: discarded, not counted as not written.
    EXPECT_EQ(written, (std::vector<std::pair<size_t, int>>{{0, 1}, {0, 2}, {1, 5}}));
    EXPECT_EQ(queue.notWritten(1), 0u);
    EXPECT_FALSE(push(0, 7));
    // However large the frames, an output can queue two.
    EXPECT_EQ(WriteQueue::depthFor(1000000, 8, 10000, 120), 2u);
}

TEST(OutputNamingTest, PerStreamNamesAndPlayCommands) {
    EXPECT_EQ(perStreamPath("out.yuv", {1, 2}), "out-1_2.yuv");
    EXPECT_EQ(perStreamPath("/tmp/a.b/out", {0, 3}), "/tmp/a.b/out-0_3");
    EXPECT_EQ(perStreamPath("dir/.hidden", {0, 0}), "dir/.hidden-0_0");
    EXPECT_EQ(perStreamPath("x.tar.gz", {0, 0}), "x.tar-0_0.gz");

    EXPECT_EQ(shellQuote("/tmp/v.yuv"), "/tmp/v.yuv");
    EXPECT_EQ(shellQuote("my file's.yuv"), "'my file'\\''s.yuv'");

    // The file name is quoted in the command line a user copies.
    EXPECT_EQ(playCommand(*findFormat("YU12"), {64, 48}, 15, "a b"),
              "ffplay -f rawvideo -pixel_format yuv420p -video_size 64x48 -framerate 15 'a b'");
}
