#include <gtest/gtest.h>

#include <climits>
#include <map>
#include <string>

#include "CameraTestSupport.h"
#include "camera/CamPreset.h"
#include "camera/CamSettingOperation.h"

using camera_test::StdoutCapture;
using camera_test::TableGuard;
using uvc_client::CamSettingOperation;

namespace {

CamSettingOperation& op() {
    return CamSettingOperation::Instance();
}

}  // namespace

// Replies are compared as exact texts: the host parses them, and the member
// order (strings, then integers, then objects) is part of what it sees.
TEST(UvcReport, FreshSettingReportsMinus255AsText) {
    TableGuard guard;
    StdoutCapture capture;
    EXPECT_EQ(op().getUvcReport("brightness"),
              R"({ "source": "app", "response": { "brightness": "-255" } })");
    EXPECT_EQ(capture.finish(), "");
}

TEST(UvcReport, ReportsWhatSetStored) {
    TableGuard guard;
    op().set("gain", "7");
    EXPECT_EQ(op().getUvcReport("gain"), R"({ "source": "app", "response": { "gain": "7" } })");
    op().set("gain", "x");
    EXPECT_EQ(op().getUvcReport("gain"), R"({ "source": "app", "response": { "gain": "0" } })");
    op().set("persist.vendor.group_framing", "1");
    EXPECT_EQ(op().getUvcReport("persist.vendor.group_framing"),
              R"({ "source": "app", "response": { "persist.vendor.group_framing": "1" } })");
}

TEST(UvcReport, UnknownNameIsAnsweredWithMinus1) {
    TableGuard guard;
    StdoutCapture capture;
    std::string reply = op().getUvcReport("nope");
    EXPECT_EQ(capture.finish(), "no setting named: [nope]\n");
    EXPECT_EQ(reply, R"({ "source": "app", "response": { "nope": "-1" } })");
}

TEST(SetOperation, WrongCaseNameChangesNothing) {
    TableGuard guard;
    StdoutCapture capture;
    op().set("BRIGHTNESS", "5");
    EXPECT_EQ(capture.finish(), "no setting named: [BRIGHTNESS]\n");
    EXPECT_EQ(guard.row("brightness").cur, -255);
}

TEST(SetOperation, SetCamParamOnlyAcknowledges) {
    TableGuard guard;
    StdoutCapture capture;
    op().setCamParam(1, 2, 3);
    op().setCamParam(14, 2, 3);
    EXPECT_EQ(capture.finish(),
              "Set the camera parameter: setCamParam\n"
              "Set the camera parameter: setCamParam\n");
    EXPECT_EQ(guard.row("brightness").cur, -255);
    EXPECT_EQ(guard.row("brightness").cur2, -255);
    EXPECT_EQ(guard.row("pan").cur, -255);
}

TEST(SetOperation, PresetOnlyPrints) {
    TableGuard guard;
    StdoutCapture capture;
    op().preset("apply", 3);
    uvc_client::CamPreset::Instance().preset("", INT_MIN);
    EXPECT_EQ(capture.finish(),
              "apply op [apply] on preset id: [3]\n"
              "apply op [] on preset id: [-2147483648]\n");
}

TEST(MessageBuilders, AIReportCarriesAnInteger) {
    EXPECT_EQ(op().generateAIReport("faces", 2),
              R"({ "msg_type": "ai_report", "content": { "faces": 2 } })");
    EXPECT_EQ(op().generateAIReport("x", INT_MIN),
              R"({ "msg_type": "ai_report", "content": { "x": -2147483648 } })");
}

TEST(MessageBuilders, CameraMuteNotification) {
    EXPECT_EQ(op().generateCameraMuteNtfy(),
              R"({ "operation": "camera_mute", "source": "remote" })");
}

TEST(MessageBuilders, PanTiltZoom) {
    EXPECT_EQ(op().generatePTZMsg(-3600, 0, 100),
              R"({ "source": "app", "ptzSettings": { "pan": -3600, "tilt": 0, "zoom": 100 } })");
}

TEST(MessageBuilders, SettingListsInKeyOrderAsStrings) {
    std::map<std::string, std::string> settings{{"b", "2"}, {"a", "1"}};
    EXPECT_EQ(op().generateXUSettingMsg(settings),
              R"({ "source": "app", "extensionSettings": { "a": "1", "b": "2" } })");
    EXPECT_EQ(op().generateSettingMsg(settings),
              R"({ "source": "app", "settings": { "a": "1", "b": "2" } })");
    EXPECT_EQ(op().generateSettingMsg("custom", {}), R"({ "source": "app", "custom": { } })");
    EXPECT_EQ(op().generateSettingMsg({}), R"({ "source": "app", "settings": { } })");
}

TEST(MessageBuilders, KeySourceReplacesTheSourceString) {
    EXPECT_EQ(op().generateSettingMsg("source", {{"k", "v"}}), R"({ "source": { "k": "v" } })");
}
