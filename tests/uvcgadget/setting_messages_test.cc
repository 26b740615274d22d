#include <gtest/gtest.h>

#include "uvc/SettingMessages.h"

using namespace uvc_gadget;

TEST(SettingMessages, BuildsTheLibrarysReportMessages) {
    EXPECT_EQ(makeSetMessage("brightness", 40),
              R"({"msg_type":"uvc_report","content":{"brightness":"set","value":"40"}})");
    EXPECT_EQ(makeGetMessage("whiteBalanceTempAuto"),
              R"({"msg_type":"uvc_report","content":{"whiteBalanceTempAuto":"get"}})");
}

TEST(SettingMessages, ReadsTheValueOfAReply) {
    struct Case {
        const char* text;
        std::optional<int32_t> want;
    } cases[] = {
        {R"({ "source": "app", "response": { "brightness": "40" } })", 40},
        {R"({"source":"app","response":{"brightness":"-255"}})", -255},
        {R"({"source":"app","response":{"gain":"40"}})", std::nullopt},      // another setting
        {R"({"source":"app","response":{"brightness":40}})", std::nullopt},  // not text
        {R"({"source":"app","response":{"brightness":"4x"}})", std::nullopt},
        {R"({"source":"app","response":{"brightness":"99999999999"}})", std::nullopt},
        {"send test message", std::nullopt},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(replyValue(c.text, "brightness"), c.want);
    }
}
