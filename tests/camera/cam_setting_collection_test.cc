#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <tuple>
#include <vector>

#include "CameraTestSupport.h"
#include "camera/CamSettingCollection.h"

using camera_test::lines;
using camera_test::StdoutCapture;
using camera_test::TableGuard;
using uvc_client::CamSettingCollection;

// A table built here, not the process-wide one: its construction output and
// contents do not depend on what ran before.
TEST(CamSettingTable, ConstructionPrints17ConversionLinesInRowOrder) {
    StdoutCapture capture;
    CamSettingCollection table;
    std::string out = capture.finish();
    const char* expected =
        "Camel back style: BRIGHTNESS ==> brightness"
        "Camel back style: CONTRAST ==> contrast"
        "Camel back style: POWER_LINE_FREQUENCY ==> powerLineFrequency"
        "Camel back style: SATURATION ==> saturation"
        "Camel back style: SHARPNESS ==> sharpness"
        "Camel back style: WHITE_BALANCE_TEMP_AUTO ==> whiteBalanceTempAuto"
        "Camel back style: WHITE_BALANCE_TEMP ==> whiteBalanceTemp"
        "Camel back style: BACKLIGHT_COMPENSATION ==> backlightCompensation"
        "Camel back style: HUE ==> hue"
        "Camel back style: GAMMA ==> gamma"
        "Camel back style: GAIN ==> gain"
        "Camel back style: AE_MODE ==> aeMode"
        "Camel back style: EXPOSURE_TIME_ABS ==> exposureTimeAbs"
        "Camel back style: ZOOM_ABS ==> zoomAbs"
        "Camel back style: PRIVACY ==> privacy"
        "Camel back style: FOCUS_AUTO ==> focusAuto"
        "Camel back style: FOCUS_ABS ==> focusAbs";
    EXPECT_EQ(out, expected);
}

TEST(CamSettingTable, Holds29RowsOfWhich17AreControls) {
    StdoutCapture quiet;
    CamSettingCollection table;
    quiet.finish();
    EXPECT_EQ(table.settingsByName.size(), 29u);
    EXPECT_EQ(table.settingsByCtrl.size(), 17u);

    for (const char* present : {"brightness", "pan", "tile", "whiteBalanceTempAuto",
                                "persist.vendor.talker_tracking", "persist.vendor.group_framing",
                                "start_bluetooth_pairing_mode_for_phone", "tracking_speed"}) {
        EXPECT_EQ(table.settingsByName.count(present), 1u) << present;
    }
    // Keys are the stored (camel-case) names and are case-sensitive; the tilt
    // row is "tile".
    for (const char* absent : {"BRIGHTNESS", "Brightness", "tilt", "WHITE_BALANCE_TEMP_AUTO",
                               "white_balance_temp_auto", "value", "preset"}) {
        EXPECT_EQ(table.settingsByName.count(absent), 0u) << absent;
    }
    for (int unused : {14, 17, 18, 19, 21}) {
        EXPECT_EQ(table.settingsByCtrl.count(unused), 0u) << unused;
    }
    // Every control row is shared, not copied, between the two maps.
    for (auto& entry : table.settingsByCtrl) {
        EXPECT_EQ(entry.first, entry.second->ctrl);
        EXPECT_EQ(table.settingsByName.at(entry.second->name), entry.second);
    }
    for (auto& entry : table.settingsByName) {
        EXPECT_EQ(entry.second->cur, -255) << entry.first;
        EXPECT_EQ(entry.second->cur2, -255) << entry.first;
    }
}

TEST(CamSettingTable, RowValues) {
    StdoutCapture quiet;
    CamSettingCollection table;
    quiet.finish();
    // name, ctrl, min, max, res, def
    const std::vector<std::tuple<std::string, int, int, int, int, int>> rows = {
        {"brightness", 1, 0, 255, 1, 128},
        {"contrast", 2, 0, 255, 1, 255},
        {"powerLineFrequency", 6, 0, 2, 1, 2},
        {"saturation", 3, 0, 255, 1, 128},
        {"sharpness", 4, 0, 255, 1, 128},
        {"whiteBalanceTempAuto", 8, 0, 1, 1, 1},
        {"whiteBalanceTemp", 7, 2000, 7500, 100, 4500},
        {"backlightCompensation", 0, 0, 1, 1, 0},
        {"hue", 16, 0, 270, 1, 90},
        {"gamma", 15, 1, 500, 1, 1},
        {"gain", 5, 1, 50, 1, 3},
        {"aeMode", 9, 1, 4, 7, 2},
        {"exposureTimeAbs", 10, 64, 1024, 1, 256},
        {"zoomAbs", 13, 100, 2000, 1, 100},
        {"privacy", 20, 0, 1, 1, 0},
        {"focusAuto", 11, 0, 1, 1, 1},
        {"focusAbs", 12, 1, 1000, 1, 150},
        {"pan", 21, -360000, 360000, 3600, 0},
        {"tile", 21, -360000, 360000, 3600, 0},
        {"osd", 21, 0, 1, 1, 0},
        {"acoustic_fence", 21, 0, 3, 1, 0},
        {"noise_block", 21, 0, 4176, 4176, 16},
        {"stereo_audio", 21, 0, 4176, 4176, 16},
        {"base_boost", 21, 0, 4176, 4176, 16},
        {"start_bluetooth_pairing_mode_for_phone", 21, 0, 4176, 4176, 16},
        {"persist.vendor.talker_tracking", 21, 0, 4, 1, 1},
        {"persist.vendor.group_framing", 21, 0, 1, 1, 0},
        {"framing_size", 21, 0, 2, 1, 1},
        {"tracking_speed", 21, 0, 2, 1, 1},
    };
    ASSERT_EQ(rows.size(), 29u);
    for (const auto& row : rows) {
        const std::string& name = std::get<0>(row);
        ASSERT_EQ(table.settingsByName.count(name), 1u) << name;
        const auto& s = *table.settingsByName.at(name);
        EXPECT_EQ(s.name, name);
        EXPECT_EQ(s.ctrl, std::get<1>(row)) << name;
        EXPECT_EQ(s.min, std::get<2>(row)) << name;
        EXPECT_EQ(s.max, std::get<3>(row)) << name;
        EXPECT_EQ(s.res, std::get<4>(row)) << name;
        EXPECT_EQ(s.def, std::get<5>(row)) << name;
    }
}

TEST(CamSettingValues, GetAndSetByNameWithAtoiSemantics) {
    TableGuard guard;
    auto& table = CamSettingCollection::Instance();
    StdoutCapture capture;
    EXPECT_EQ(table.getCurrent("brightness"), -255);
    table.setCurrent("brightness", "300");  // above max: stored anyway
    EXPECT_EQ(table.getCurrent("brightness"), 300);
    table.setCurrent("brightness", "abc");
    EXPECT_EQ(table.getCurrent("brightness"), 0);
    table.setCurrent("brightness", "12abc");
    EXPECT_EQ(table.getCurrent("brightness"), 12);
    table.setCurrent("brightness", "  -7");
    EXPECT_EQ(table.getCurrent("brightness"), -7);
    table.setCurrent("brightness", "+8");
    EXPECT_EQ(table.getCurrent("brightness"), 8);
    table.setCurrent("brightness", "");
    EXPECT_EQ(table.getCurrent("brightness"), 0);
    table.setCurrent("brightness", std::string("5\0"
                                               "9",
                                               3));  // stops at the NUL
    EXPECT_EQ(table.getCurrent("brightness"), 5);
    table.setCurrent("pan", "-360000");  // rows made without a control number too
    EXPECT_EQ(table.getCurrent("pan"), -360000);
    // Writing by name leaves the second value alone.
    EXPECT_EQ(guard.row("brightness").cur2, -255);
    EXPECT_EQ(capture.finish(), "");
}

TEST(CamSettingValues, NumbersBeyondIntAreClamped) {
    TableGuard guard;
    auto& table = CamSettingCollection::Instance();
    table.setCurrent("gain", "99999999999");
    EXPECT_EQ(table.getCurrent("gain"), INT_MAX);
    table.setCurrent("gain", "-99999999999999999999999");
    EXPECT_EQ(table.getCurrent("gain"), INT_MIN);
    table.setCurrent("gain", "2147483647");
    EXPECT_EQ(table.getCurrent("gain"), INT_MAX);
    table.setCurrent("gain", "-2147483648");
    EXPECT_EQ(table.getCurrent("gain"), INT_MIN);
}

TEST(CamSettingValues, UnknownNamesPrintAndChangeNothing) {
    TableGuard guard;
    auto& table = CamSettingCollection::Instance();
    StdoutCapture capture;
    EXPECT_EQ(table.getCurrent("nope"), -1);
    table.setCurrent("BRIGHTNESS", "5");
    table.setCurrent("", "5");
    EXPECT_EQ(capture.finish(),
              "no setting named: [nope]\n"
              "no setting named: [BRIGHTNESS]\n"
              "no setting named: []\n");
    EXPECT_EQ(table.getCurrent("brightness"), -255);
    EXPECT_EQ(table.settingsByName.size(), 29u);  // lookups never insert
}

TEST(CamSettingValues, SetCamParamByControlNumber) {
    TableGuard guard;
    auto& table = CamSettingCollection::Instance();
    StdoutCapture capture;
    table.setCamParam(1, 10, 20);
    EXPECT_EQ(guard.row("brightness").cur, 10);
    EXPECT_EQ(guard.row("brightness").cur2, 20);
    table.setCamParam(0, 1, 2);  // control number 0 is a real row
    EXPECT_EQ(guard.row("backlightCompensation").cur, 1);
    EXPECT_EQ(guard.row("backlightCompensation").cur2, 2);

    table.setCamParam(14, 5, 6);
    EXPECT_EQ(guard.row("pan").cur, 5);
    EXPECT_EQ(guard.row("tile").cur, 6);
    EXPECT_EQ(guard.row("pan").cur2, -255);
    EXPECT_EQ(guard.row("tile").cur2, -255);
    EXPECT_EQ(capture.finish(), "");
}

TEST(CamSettingValues, SetCamParamUnknownNumbersPrintAndChangeNothing) {
    TableGuard guard;
    auto& table = CamSettingCollection::Instance();
    StdoutCapture capture;
    table.setCamParam(21, 1, 1);  // the feature rows are reachable by name only
    table.setCamParam(17, 1, 1);
    table.setCamParam(-1, 1, 1);
    table.setCamParam(INT_MIN, 1, 1);
    EXPECT_EQ(
        lines(capture.finish()),
        (std::vector<std::string>{"no setting named: [21]", "no setting named: [17]",
                                  "no setting named: [-1]", "no setting named: [-2147483648]"}));
    for (auto& entry : table.settingsByName) {
        EXPECT_EQ(entry.second->cur, -255) << entry.first;
    }
}
