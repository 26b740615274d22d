#include <linux/videodev2.h>

#include <gtest/gtest.h>

#include "pipeline/capture/CaptureNegotiation.h"

namespace {

using namespace uvc_client::capture;

const uint32_t kYuyv = V4L2_PIX_FMT_YUYV, kYu12 = V4L2_PIX_FMT_YUV420, kNv12 = V4L2_PIX_FMT_NV12,
               kMjpg = V4L2_PIX_FMT_MJPEG, kH264 = V4L2_PIX_FMT_H264;

TEST(CaptureNegotiation, ChoosesFromWhatTypicalCamerasOffer) {
    // A UVC webcam: raw 720p only at 10 fps, MJPEG up to 1080p; H.264 is ignored.
    const std::vector<CaptureMode> webcam = {
        {kYuyv, 640, 480, {{1, 30}, {1, 15}}}, {kYuyv, 1280, 720, {{1, 10}}},
        {kH264, 1920, 1080, {{1, 30}}},        {kMjpg, 640, 480, {{1, 30}, {1, 15}}},
        {kMjpg, 1280, 720, {{1, 30}}},         {kMjpg, 1920, 1080, {{1, 30}}}};
    // vivid: three raw formats, no MJPEG, NTSC rates.
    std::vector<CaptureMode> vivid;
    for (uint32_t f : {kNv12, kYuyv, kYu12}) {
        for (uint32_t w : {640, 1280})
            vivid.push_back({f, w, w * 9 / 16, {{1001, 60000}, {1001, 30000}, {1, 25}}});
    }
    const struct {
        const std::vector<CaptureMode>& camera;
        CaptureTarget target;
        const char* choice;  // the log line without its host part, which is the target's
    } cases[] = {
        // clang-format off
        {webcam, {kYuyv, 1280, 720, 30}, "1280x720 YUYV at 10 fps: copied"},
        {webcam, {kNv12, 1280, 720, 30}, "1280x720 YUYV at 10 fps: converted"},
        {webcam, {kNv12, 640, 360, 15}, "640x480 YUYV at 15 fps: converted and scaled"},
        {webcam, {kMjpg, 1280, 720, 30}, "1280x720 MJPG at 30 fps: copied"},
        {webcam, {kMjpg, 800, 600, 20}, "1280x720 MJPG at 30 fps: decoded, scaled and encoded"},
        {webcam, {kYu12, 3840, 2160, 30}, "1920x1080 MJPG at 30 fps: decoded and scaled"},
        {webcam, {kYu12, 640, 480, 60}, "640x480 YUYV at 30 fps: converted"},
        {vivid, {kYu12, 640, 360, 30}, "640x360 YU12 at 29.97 fps: copied"},
        {vivid, {kYuyv, 1280, 720, 20}, "1280x720 YUYV at 25 fps: copied"},
        {vivid, {kMjpg, 320, 180, 30}, "640x360 NV12 at 29.97 fps: scaled and encoded"},
        // clang-format on
    };
    for (const auto& c : cases) {
        const auto choice = chooseCapture(c.camera, c.target);
        ASSERT_TRUE(choice) << c.choice;
        std::string line = describeChoice(*choice, c.target);
        line.erase(line.find(" -> host "), line.rfind(':') - line.find(" -> host "));
        EXPECT_EQ(std::string("camera ") + c.choice, line);
    }
    const CaptureTarget anyRate{kYuyv, 320, 240, 0};  // takes the fastest
    EXPECT_EQ("camera 640x480 YUYV at 30 fps -> host 320x240 YUYV at an unknown rate: scaled",
              describeChoice(chooseCapture(webcam, anyRate).value(), anyRate));
    // Nothing convertible, or a target that cannot be made.
    EXPECT_FALSE(chooseCapture({{kH264, 640, 480, {}}, {kYuyv, 0, 480, {}}}, {kYuyv, 8, 8, 30}));
    EXPECT_FALSE(chooseCapture(webcam, {kH264, 640, 480, 30}));
    EXPECT_FALSE(chooseCapture(webcam, {kYuyv, 0, 480, 30}));
    // Unknown intervals (a zero on either side) are never chosen over a named
    // one, and stand as {0,0} when nothing is named (ties go to the mode
    // offered first); extreme values neither divide by zero nor overflow.
    const uint32_t big = UINT32_MAX;
    auto choice = chooseCapture({{kYuyv, big, big, {{0, 30}, {30, 0}, {big, 1}, {1, big}}}},
                                {kNv12, 65535, 65535, big});
    EXPECT_EQ(big, choice.value().interval.denominator);
    choice = chooseCapture({{kYuyv, 8, 8, {{0, 0}, {30, 0}}}, {kYu12, 8, 8, {}}}, {kNv12, 8, 8, 1});
    EXPECT_EQ(kYuyv, choice.value().fourcc);
    EXPECT_EQ(0u, choice->interval.numerator + choice->interval.denominator);
}

}  // namespace
