#include <gtest/gtest.h>

#include <linux/usb/video.h>

#include <cstring>
#include <vector>

#include "GadgetTestSupport.h"
#include "uvc/RequestHandler.h"

using namespace uvc_gadget;

namespace {

// Interfaces and ids of twoFormats(): control 0 (camera terminal 1,
// processing unit 2, extension unit 4), streaming 1.
constexpr uint8_t kToDevice = USB_TYPE_CLASS | USB_RECIP_INTERFACE | USB_DIR_OUT;
constexpr uint8_t kToHost = USB_TYPE_CLASS | USB_RECIP_INTERFACE | USB_DIR_IN;

usb_ctrlrequest setup(uint8_t request, uint8_t selector, uint8_t entity, uint8_t interface,
                      uint16_t length) {
    usb_ctrlrequest r = {};
    r.bRequestType = request == UVC_SET_CUR ? kToDevice : kToHost;
    r.bRequest = request;
    r.wValue = uint16_t(selector << 8);
    r.wIndex = uint16_t(entity << 8 | interface);
    r.wLength = length;
    return r;
}

std::vector<uint8_t> bytes(const uvc_request_data& d) {
    return d.length > 0 ? std::vector<uint8_t>(d.data, d.data + d.length) : std::vector<uint8_t>{};
}

uvc_request_data payload(const void* data, size_t size) {
    uvc_request_data d = {};
    d.length = int32_t(size);
    memcpy(d.data, data, size);
    return d;
}

struct Handler : testing::Test {
    gadget_test::FakeSettings settings;
    RequestHandler handler{gadget_test::twoFormats(), settings};

    // GET request to a control of unit or terminal `entity`.
    std::vector<uint8_t> get(uint8_t request, uint8_t entity, uint8_t selector, uint16_t length) {
        return bytes(handler.setup(setup(request, selector, entity, 0, length)));
    }
    void set(uint8_t entity, uint8_t selector, std::vector<uint8_t> value) {
        const uvc_request_data ack =
            handler.setup(setup(UVC_SET_CUR, selector, entity, 0, uint16_t(value.size())));
        ASSERT_EQ(ack.length, int32_t(value.size()));
        handler.data(payload(value.data(), value.size()));
    }
};

}  // namespace

// GET_MIN/MAX/RES/DEF/LEN/INFO come from the bridge's table, little-endian in
// the control's size.
TEST_F(Handler, RangeRequestsAnswerFromTheTable) {
    using V = std::vector<uint8_t>;
    struct Case {
        uint8_t entity, selector, request;
        V want;
    } cases[] = {
        {2, UVC_PU_BRIGHTNESS_CONTROL, UVC_GET_MAX, {255, 0}},
        {2, UVC_PU_POWER_LINE_FREQUENCY_CONTROL, UVC_GET_LEN, {1, 0}},
        {2, UVC_PU_GAIN_CONTROL, UVC_GET_INFO, {3}},
        {1, UVC_CT_EXPOSURE_TIME_ABSOLUTE_CONTROL, UVC_GET_DEF, {0, 1, 0, 0}},  // 256
        {1,
         UVC_CT_PANTILT_ABSOLUTE_CONTROL,
         UVC_GET_MIN,
         {0xc0, 0x81, 0xfa, 0xff, 0xc0, 0x81, 0xfa, 0xff}},  // -360000 twice
        {4, 3, UVC_GET_MAX, {0x50, 0x10}},                   // noise_block
        {4, 10, UVC_GET_LEN, {1, 0}},                        // tracking_speed
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << int(c.entity) << "/" << int(c.selector) << "/" << int(c.request));
        EXPECT_EQ(get(c.request, c.entity, c.selector, 64), c.want);
    }
    // The host's wLength limits the answer.
    EXPECT_EQ(get(UVC_GET_MAX, 2, UVC_PU_BRIGHTNESS_CONTROL, 1), V{255});
    EXPECT_TRUE(settings.gets.empty());
}

// SET_CUR and GET_CUR go to the library's settings; a setting it never wrote
// reads as the default, a value out of range is brought into it. The
// library's "never written" value is a valid pan or tilt once a host set it.
TEST_F(Handler, CurrentValuesGoThroughTheLibrary) {
    using V = std::vector<uint8_t>;
    EXPECT_EQ(get(UVC_GET_CUR, 2, UVC_PU_BRIGHTNESS_CONTROL, 2), (V{128, 0}));
    settings.values["brightness"] = RequestHandler::kNeverWritten;
    EXPECT_EQ(get(UVC_GET_CUR, 2, UVC_PU_BRIGHTNESS_CONTROL, 2), (V{128, 0}));

    set(2, UVC_PU_BRIGHTNESS_CONTROL, {40, 0});
    EXPECT_EQ(get(UVC_GET_CUR, 2, UVC_PU_BRIGHTNESS_CONTROL, 2), (V{40, 0}));
    set(1, UVC_CT_FOCUS_AUTO_CONTROL, {0});
    set(2, UVC_PU_GAIN_CONTROL, {0xe8, 0x03});  // 1000, above 50
    EXPECT_EQ(handler.errorCode(), RequestHandler::kOutOfRange);
    set(1, UVC_CT_PANTILT_ABSOLUTE_CONTROL, {0x10, 0x0e, 0, 0, 0xf0, 0xf1, 0xff, 0xff});
    const std::vector<std::pair<std::string, int32_t>> want = {
        {"brightness", 40}, {"focusAuto", 0}, {"gain", 50}, {"pan", 3600}, {"tile", -3600}};
    EXPECT_EQ(settings.sets, want);
    EXPECT_EQ(get(UVC_GET_CUR, 1, UVC_CT_PANTILT_ABSOLUTE_CONTROL, 8),
              (V{0x10, 0x0e, 0, 0, 0xf0, 0xf1, 0xff, 0xff}));
    set(4, 8, {1});
    set(4, 6, {0x00, 0x20});  // 0x2000, above 0x1050
    EXPECT_EQ(settings.values["start_bluetooth_pairing_mode_for_phone"], 0x1050);
    EXPECT_EQ(get(UVC_GET_CUR, 4, 8, 1), V{1});
    const V minus255 = {0x01, 0xff, 0xff, 0xff, 0x01, 0xff, 0xff, 0xff};
    set(1, UVC_CT_PANTILT_ABSOLUTE_CONTROL, minus255);
    EXPECT_EQ(get(UVC_GET_CUR, 1, UVC_CT_PANTILT_ABSOLUTE_CONTROL, 8), minus255);
}

// What no UVC camera of this kind answers stalls, and the error-code control
// says why.
TEST_F(Handler, UnknownRequestsStallWithAReason) {
    struct Case {
        usb_ctrlrequest request;
        uint8_t code;
    } cases[] = {
        {setup(UVC_GET_CUR, UVC_PU_DIGITAL_MULTIPLIER_CONTROL, 2, 0, 2),
         RequestHandler::kInvalidControl},
        {setup(UVC_GET_CUR, 11, 4, 0, 1), RequestHandler::kInvalidControl},
        {setup(UVC_GET_CUR, UVC_PU_BRIGHTNESS_CONTROL, 9, 0, 2), RequestHandler::kInvalidUnit},
        {setup(UVC_GET_CUR, UVC_PU_BRIGHTNESS_CONTROL, 2, 5, 2), RequestHandler::kInvalidUnit},
        {setup(UVC_GET_DEF, UVC_VS_COMMIT_CONTROL, 0, 1, 34), RequestHandler::kInvalidRequest},
        {setup(UVC_SET_CUR, UVC_PU_BRIGHTNESS_CONTROL, 2, 0, 1), RequestHandler::kInvalidRequest},
        {setup(0x99, UVC_PU_BRIGHTNESS_CONTROL, 2, 0, 2), RequestHandler::kInvalidRequest},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << int(c.request.bRequest) << " " << c.request.wIndex);
        EXPECT_LT(handler.setup(c.request).length, 0);
        const std::vector<uint8_t> code =
            bytes(handler.setup(setup(UVC_GET_CUR, UVC_VC_REQUEST_ERROR_CODE_CONTROL, 0, 0, 1)));
        EXPECT_EQ(code, std::vector<uint8_t>{c.code});
    }
    // A standard (not class) request is not the function's to answer.
    usb_ctrlrequest standard = setup(UVC_GET_CUR, UVC_PU_BRIGHTNESS_CONTROL, 2, 0, 2);
    standard.bRequestType = USB_DIR_IN | USB_RECIP_INTERFACE;
    EXPECT_LT(handler.setup(standard).length, 0);
    EXPECT_TRUE(settings.sets.empty());
}

// 6.1 hands on the host's interface numbers, 6.12 0 and 1 for any function.
TEST(HandlerInterfaces, TakesTheHostsNumbersAndTheKernels) {
    gadget_test::FakeSettings settings;
    GadgetFunction second = gadget_test::twoFormats();
    second.controlInterface = 2;
    second.streamingInterface = 3;
    RequestHandler handler(second, settings);
    for (uint8_t interface : {0, 2})
        EXPECT_EQ(
            bytes(handler.setup(setup(UVC_GET_CUR, UVC_PU_BRIGHTNESS_CONTROL, 2, interface, 2))),
            (std::vector<uint8_t>{128, 0}));
    for (uint8_t interface : {1, 3})
        EXPECT_EQ(bytes(handler.setup(setup(UVC_GET_LEN, UVC_VS_PROBE_CONTROL, 0, interface, 2))),
                  (std::vector<uint8_t>{34, 0}));
}

// Probe and commit travel as SETUP then DATA; only a commit reports a change.
TEST_F(Handler, ProbeAndCommitThroughSetupAndData) {
    uvc_streaming_control proposal = {};
    proposal.bFormatIndex = 1;
    proposal.bFrameIndex = 1;
    proposal.dwFrameInterval = 666666;
    for (uint8_t selector : {UVC_VS_PROBE_CONTROL, UVC_VS_COMMIT_CONTROL}) {
        EXPECT_EQ(handler.setup(setup(UVC_SET_CUR, selector, 0, 1, 34)).length, 34);
        EXPECT_EQ(handler.data(payload(&proposal, sizeof(proposal))),
                  selector == UVC_VS_COMMIT_CONTROL);
        const std::vector<uint8_t> current =
            bytes(handler.setup(setup(UVC_GET_CUR, selector, 0, 1, 34)));
        ASSERT_EQ(current.size(), 34u);
        uvc_streaming_control answered;
        memcpy(&answered, current.data(), sizeof(answered));
        EXPECT_EQ(answered.bFrameIndex, 1);
        EXPECT_EQ(answered.dwFrameInterval, 666666u);
        EXPECT_EQ(answered.dwMaxVideoFrameSize, 640u * 480 * 2);
    }
    EXPECT_EQ(handler.probeCommit().committedFormat().fps(), 15);
    // Data that is short of a whole control changes nothing.
    handler.setup(setup(UVC_SET_CUR, UVC_VS_COMMIT_CONTROL, 0, 1, 34));
    EXPECT_FALSE(handler.data(payload(&proposal, 10)));
    // Data without an acknowledged SET_CUR is ignored.
    EXPECT_FALSE(handler.data(payload(&proposal, sizeof(proposal))));
}
