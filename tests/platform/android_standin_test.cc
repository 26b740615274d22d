#include <sys/system_properties.h>

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "android_testing.h"

TEST(AndroidStandIns, SystemPropertiesFollowTheNdk) {
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
