#include <gtest/gtest.h>

#include "GadgetTestSupport.h"
#include "uvc/ProbeCommit.h"

using namespace uvc_gadget;

namespace {

uvc_streaming_control request(uint8_t format, uint8_t frame, uint32_t interval) {
    uvc_streaming_control c = {};
    c.bFormatIndex = format;
    c.bFrameIndex = frame;
    c.dwFrameInterval = interval;
    return c;
}

}  // namespace

// Every proposal ends as a declared format, frame and interval, with the
// sizes the host needs to pick its bandwidth.
TEST(ProbeCommit, NegotiatesTheNearestDeclaredCombination) {
    const GadgetFunction function = gadget_test::twoFormats();
    const ProbeCommit pc(function);
    struct Case {
        uint8_t format, frame;
        uint32_t interval;
        uint8_t wantFormat, wantFrame;
        uint32_t wantInterval, wantSize;
    } cases[] = {
        {1, 1, 333333, 1, 1, 333333, 640 * 480 * 2},   // exact
        {1, 2, 0, 1, 2, 1000000, 1280 * 720 * 2},      // no interval: the frame's default
        {1, 2, 400000, 1, 2, 333333, 1280 * 720 * 2},  // nearest interval
        {1, 9, 333333, 1, 2, 333333, 1280 * 720 * 2},  // unknown frame: the default frame
        {2, 1, 666666, 2, 1, 333333, 300000},          // MJPEG: its buffer size
        {0, 0, 0, 1, 2, 1000000, 1280 * 720 * 2},      // nothing asked: the defaults
        {7, 1, 333333, 1, 1, 333333, 640 * 480 * 2},   // unknown format: the first
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << int(c.format) << "/" << int(c.frame) << "/" << c.interval);
        const uvc_streaming_control got = pc.negotiate(request(c.format, c.frame, c.interval));
        EXPECT_EQ(got.bFormatIndex, c.wantFormat);
        EXPECT_EQ(got.bFrameIndex, c.wantFrame);
        EXPECT_EQ(got.dwFrameInterval, c.wantInterval);
        EXPECT_EQ(got.dwMaxVideoFrameSize, c.wantSize);
        EXPECT_EQ(got.dwMaxPayloadTransferSize, 3072u);
    }
    EXPECT_EQ(pc.defaults().bFrameIndex, 2);
    EXPECT_EQ(pc.minimum().dwFrameInterval, 333333u);
}

TEST(ProbeCommit, CommitGivesTheStreamTheBridgeReports) {
    GadgetFunction function = gadget_test::twoFormats();
    ProbeCommit pc(function);
    // Before any commit: the default format and frame.
    EXPECT_EQ(pc.committedFormat().width, 1280);
    EXPECT_EQ(pc.committedFormat().fps(), 10);

    const StreamFormat yuyv = pc.commit(request(1, 1, 333333));
    EXPECT_EQ(yuyv.width, 640);
    EXPECT_EQ(yuyv.fps(), 30);  // 333333 x 100 ns rounds to 30
    EXPECT_EQ(pc.commit(request(2, 1, 333333)).maxFrameSize, 300000u);
    EXPECT_EQ(pc.committed().bFormatIndex, 2);

    function.uvcVersion = 0x0100;
    EXPECT_EQ(ProbeCommit(function).controlSize(), 26);

    // A default interval the frame does not declare is never answered or
    // committed, not even for a host that asks for none.
    function.formats[0].frames[1].defaultInterval = 0;
    ProbeCommit undeclared(function);
    EXPECT_EQ(undeclared.defaults().dwFrameInterval, 333333u);
    EXPECT_EQ(undeclared.commit(request(1, 2, 0)).interval, 333333u);
}
