#include <gtest/gtest.h>

#include <climits>
#include <map>
#include <string>

#include "camera/CamSettingOperation.h"

// Exact texts: the host parses them, member order included. The report reply
// is tested with the message handler.
TEST(MessageBuilders, ExactTexts) {
    auto& op = uvc_client::CamSettingOperation::Instance();
    EXPECT_EQ(op.generateAIReport("faces", 2),
              R"({ "msg_type": "ai_report", "content": { "faces": 2 } })");
    EXPECT_EQ(op.generateAIReport("x", INT_MIN),
              R"({ "msg_type": "ai_report", "content": { "x": -2147483648 } })");
    EXPECT_EQ(op.generateCameraMuteNtfy(), R"({ "operation": "camera_mute", "source": "remote" })");
    EXPECT_EQ(op.generatePTZMsg(-3600, 0, 100),
              R"({ "source": "app", "ptzSettings": { "pan": -3600, "tilt": 0, "zoom": 100 } })");
    // Entries in key order, all as strings.
    const std::map<std::string, std::string> settings{{"b", "2"}, {"a", "1"}};
    EXPECT_EQ(op.generateXUSettingMsg(settings),
              R"({ "source": "app", "extensionSettings": { "a": "1", "b": "2" } })");
    EXPECT_EQ(op.generateSettingMsg(settings),
              R"({ "source": "app", "settings": { "a": "1", "b": "2" } })");
    // The object stored under "source" replaces the string stored there first.
    EXPECT_EQ(op.generateSettingMsg("source", {{"k", "v"}}), R"({ "source": { "k": "v" } })");
}
