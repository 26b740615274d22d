#include <android/log.h>
#include <sys/system_properties.h>

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "android_testing.h"

TEST(AndroidStandIns, LogCaptureAndSystemPropertiesFollowTheNdk) {
    android_standin::LogCapture capture;
    __android_log_print(ANDROID_LOG_INFO, "Tag", "value %d", 7);
    __android_log_write(ANDROID_LOG_ERROR, nullptr, "second");
    std::string logged;  // priority, tag, text
    for (const auto& r : capture.records())
        logged += std::to_string(r.priority) + "|" + r.tag + "|" + r.text + "\n";
    EXPECT_EQ(logged, "4|Tag|value 7\n6||second\n");
    EXPECT_EQ(capture.withTag("Tag").size(), 1u);

    char value[PROP_VALUE_MAX + 8];
    android_standin::clearSystemProperties();
    EXPECT_EQ(__system_property_get("ro.absent", value), 0);
    EXPECT_STREQ(value, "");
    android_standin::setSystemProperty("ro.product.model", "Model X1");
    EXPECT_EQ(__system_property_get("ro.product.model", value), 8);
    EXPECT_STREQ(value, "Model X1");
    // A value longer than the NDK allows is cut to 91 characters plus NUL.
    android_standin::setSystemProperty("ro.long", std::string(200, 'a'));
    std::memset(value, 'z', sizeof(value));
    EXPECT_EQ(__system_property_get("ro.long", value), PROP_VALUE_MAX - 1);
    EXPECT_EQ(value[PROP_VALUE_MAX - 1], '\0');
    EXPECT_EQ(value[PROP_VALUE_MAX], 'z');
    android_standin::clearSystemProperties();
}
