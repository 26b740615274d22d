#include <gtest/gtest.h>

#include <string>

#include "CameraTestSupport.h"
#include "camera/CamSetting.h"

using camera_test::StdoutCapture;
using uvc_client::CamSetting;

namespace {

// Camel-case form that constructor 1 stores, with the printed line captured.
std::string camel(const std::string& given, std::string* printed = nullptr) {
    StdoutCapture capture;
    CamSetting setting(given, uvc_client::BRIGHTNESS, 0, 1, 1, 0);
    std::string out = capture.finish();
    if (printed != nullptr) {
        *printed = out;
    }
    return setting.name;
}

}  // namespace

TEST(CamSettingName, SeparatorRunsAndOtherPunctuation) {
    EXPECT_EQ(camel("a__b"), "aB");     // a run of separators counts once
    EXPECT_EQ(camel("a-_-b"), "aB");    // '-' separates like '_'
    EXPECT_EQ(camel("_ab"), "Ab");      // leading separator raises the first letter
    EXPECT_EQ(camel("a.b"), "ab");      // other punctuation vanishes...
    EXPECT_EQ(camel("a_.b"), "aB");     // ...without breaking the run
    EXPECT_EQ(camel("a b_ c"), "abC");  // spaces too
    EXPECT_EQ(camel("x_9y"), "x9y");    // a digit consumes the flag unchanged
    EXPECT_EQ(camel("AbC_d"), "abcD");  // everything else is lowered
    EXPECT_EQ(camel("ab_"), "ab");      // a trailing separator has nothing to raise
    EXPECT_EQ(camel(""), "");
}

TEST(CamSettingName, BytesOutsideAsciiAreDroppedSafely) {
    // Bytes above 127 must not reach the ctype functions as negative values.
    EXPECT_EQ(camel("a\xC3\xA9_\xFF"
                    "b"),
              "aB");
}

TEST(CamSettingName, PrintsConversionWithoutLineEnd) {
    std::string printed;
    camel("AE_MODE", &printed);
    EXPECT_EQ(printed, "Camel back style: AE_MODE ==> aeMode");
}

TEST(CamSettingName, NameOfExactly255CharactersIsKept) {
    std::string given(255, 'a');
    std::string printed;
    EXPECT_EQ(camel(given, &printed), given);
    EXPECT_EQ(printed, "Camel back style: " + given + " ==> " + given);
}

TEST(CamSettingName, LongerNameIsCutAt255CharactersWithANotice) {
    // 300 letters, then separators that would raise a following letter.
    std::string given = std::string(300, 'B') + "_c";
    std::string printed;
    std::string stored = camel(given, &printed);
    EXPECT_EQ(stored, std::string(255, 'b'));
    EXPECT_EQ(printed,
              "set_name: name cut to its first 255 characters\n"
              "Camel back style: " +
                  given + " ==> " + stored);
    // Dropped bytes do not count against the limit: only output characters do.
    std::string padded = std::string(1000, '.') + std::string(255, 'x');
    EXPECT_EQ(camel(padded), std::string(255, 'x'));
}

TEST(CamSettingName, SetNameReplacesAndAcceptsNull) {
    StdoutCapture capture;
    CamSetting setting("pan", 0, 1, 1, 0);
    setting.set_name("NEW_NAME");
    EXPECT_EQ(setting.name, "newName");
    setting.set_name(nullptr);
    EXPECT_EQ(setting.name, "");
    capture.finish();
}

TEST(CamSettingRecord, ConstructorsStoreFieldsAndStartUnset) {
    StdoutCapture capture;
    CamSetting control("ZOOM_ABS", uvc_client::ZOOM_ABS, 100, 2000, 1, 100);
    CamSetting feature("persist.vendor.group_framing", 0, 1, 1, 0);
    EXPECT_EQ(capture.finish(), "Camel back style: ZOOM_ABS ==> zoomAbs");

    EXPECT_EQ(control.ctrl, uvc_client::ZOOM_ABS);
    EXPECT_EQ(control.min, 100);
    EXPECT_EQ(control.max, 2000);
    EXPECT_EQ(control.res, 1);
    EXPECT_EQ(control.def, 100);
    // The default is descriptive only; the current value starts unset.
    EXPECT_EQ(control.cur, -255);
    EXPECT_EQ(control.cur2, -255);

    EXPECT_EQ(feature.name, "persist.vendor.group_framing");  // no conversion
    EXPECT_EQ(feature.ctrl, uvc_client::NO_CONTROL);
    EXPECT_EQ(feature.ctrl, 21);
    EXPECT_EQ(feature.cur, -255);
    EXPECT_EQ(feature.cur2, -255);
}
