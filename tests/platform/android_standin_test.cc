#include <android/log.h>
#include <sys/system_properties.h>

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "android_testing.h"

using android_standin::LogCapture;

TEST(AndroidLogStandIn, CapturesPriorityTagAndTextInOrder) {
    LogCapture capture;
    __android_log_print(ANDROID_LOG_INFO, "Tag", "value %d", 7);
    __android_log_write(ANDROID_LOG_ERROR, nullptr, "second");
    auto recs = capture.records();
    ASSERT_EQ(recs.size(), 2u);
    EXPECT_EQ(recs[0].priority, 4);
    EXPECT_EQ(recs[0].tag, "Tag");
    EXPECT_EQ(recs[0].text, "value 7");
    EXPECT_EQ(recs[1].priority, 6);
    EXPECT_EQ(recs[1].tag, "");
    EXPECT_EQ(capture.withTag("Tag").size(), 1u);
}

TEST(SystemPropertiesStandIn, FollowsTheNdkContract) {
    char value[PROP_VALUE_MAX];
    android_standin::clearSystemProperties();
    EXPECT_EQ(__system_property_get("ro.absent", value), 0);
    EXPECT_STREQ(value, "");

    android_standin::setSystemProperty("ro.product.model", "Model X1");
    EXPECT_EQ(__system_property_get("ro.product.model", value), 8);
    EXPECT_STREQ(value, "Model X1");

    // A value longer than the NDK allows is cut to 91 characters plus NUL.
    android_standin::setSystemProperty("ro.long", std::string(200, 'a'));
    char guarded[PROP_VALUE_MAX + 8];
    std::memset(guarded, 'z', sizeof(guarded));
    EXPECT_EQ(__system_property_get("ro.long", guarded), PROP_VALUE_MAX - 1);
    EXPECT_EQ(guarded[PROP_VALUE_MAX - 1], '\0');
    EXPECT_EQ(guarded[PROP_VALUE_MAX], 'z');
    android_standin::clearSystemProperties();
}
