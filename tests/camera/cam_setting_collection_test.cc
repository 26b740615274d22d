#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <utility>

#include "CameraTestSupport.h"
#include "camera/CamSettingCollection.h"

using namespace camera_test;

TEST(CamSettingName, CamelCaseRuleAndTheCutAt255Characters) {
    const std::string a255(255, 'a'), b300 = std::string(300, 'B') + "_c";
    // clang-format off
    const std::pair<std::string, std::string> cases[] = {
        {"AE_MODE", "aeMode"}, {"AbC_d", "abcD"}, {"", ""},
        // Separator runs count once; other punctuation and spaces vanish without
        // breaking the run; a digit consumes the raise unchanged.
        {"a__b", "aB"}, {"a-_-b", "aB"}, {"_ab", "Ab"}, {"ab_", "ab"}, {"a.b", "ab"},
        {"a_.b", "aB"}, {"a b_ c", "abC"}, {"x_9y", "x9y"},
        // Bytes above 127 must not reach the ctype functions as negative values.
        {"a\xC3\xA9_\xFF" "b", "aB"},
        // Longer camel-case forms are cut, with a notice; dropped bytes do not count.
        {a255, a255}, {b300, std::string(255, 'b')}, {std::string(1000, '.') + a255, a255}};
    // clang-format on
    for (const auto& c : cases) {
        SCOPED_TRACE(c.first.substr(0, 40));
        CaptureStdout();
        uvc_client::CamSetting setting(c.first, uvc_client::BRIGHTNESS, 0, 1, 1, 0);
        EXPECT_EQ(GetCapturedStdout(),
                  (c.first == b300 ? "set_name: name cut to its first 255 characters\n" : "") +
                      ("Camel back style: " + c.first + " ==> " + c.second));
        EXPECT_EQ(setting.name, c.second);
    }
    CaptureStdout();
    uvc_client::CamSetting setting("pan", 0, 1, 1, 0);
    setting.set_name(nullptr);
    EXPECT_EQ(GetCapturedStdout(), "Camel back style:  ==> ");
    EXPECT_EQ(setting.name, "");
}

TEST(CamSettingValues, WritesByNameStoreAtoiOfTheText) {
    auto& table = freshTable();
    // clang-format off
    const std::pair<std::string, int> cases[] = {
        {"300", 300},  // above max: nothing enforces the range
        {"abc", 0}, {"12abc", 12}, {"  -7", -7}, {"+8", 8}, {"", 0}, {std::string("5\0" "9", 3), 5},
        // Beyond int: clamped, as atoi behaves where long is 32 bits.
        {"99999999999", INT_MAX}, {"-99999999999999999999999", INT_MIN},
        {"2147483647", INT_MAX}, {"-2147483648", INT_MIN}};
    // clang-format on
    CaptureStdout();
    for (const auto& c : cases) {
        table.setCurrent("brightness", c.first);
        EXPECT_EQ(table.getCurrent("brightness"), c.second) << c.first;
    }
    EXPECT_EQ(table.getCurrent("nope"), -1);
    table.setCurrent("BRIGHTNESS", "5");
    table.setCurrent("", "5");
    EXPECT_EQ(GetCapturedStdout(),
              "no setting named: [nope]\nno setting named: [BRIGHTNESS]\nno setting named: []\n");
    EXPECT_EQ(writtenRows(), "brightness=-2147483648/-255 ");  // cur2 is left alone
    EXPECT_EQ(table.settingsByName.size(), 29u);               // lookups never insert
}

TEST(CamSettingValues, SetCamParamWritesByControlNumber) {
    auto& table = freshTable();
    CaptureStdout();
    table.setCamParam(1, 10, 20);
    table.setCamParam(0, 1, 2);               // 0 is a real row
    table.setCamParam(14, 5, 6);              // PAN_TILT: cur of "pan" and "tile" only
    for (int type : {21, 17, -1, INT_MIN}) {  // feature rows are reachable by name only
        table.setCamParam(type, 3, 3);
    }
    EXPECT_EQ(GetCapturedStdout(),
              "no setting named: [21]\nno setting named: [17]\nno setting named: [-1]\n"
              "no setting named: [-2147483648]\n");
    EXPECT_EQ(writtenRows(), "backlightCompensation=1/2 brightness=10/20 pan=5/-255 tile=6/-255 ");
}
