#include <sys/system_properties.h>

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "android_testing.h"

// SystemUtil reads properties into a buffer of PROP_VALUE_MAX + 1 bytes; the
// plain set-and-read path is covered there (getDeviceInfo).
TEST(AndroidStandIns, SystemPropertyValuesAreCutAsByTheNdk) {
    char value[PROP_VALUE_MAX + 8];
    // A value longer than the NDK allows is cut to 91 characters plus NUL.
    android_standin::setSystemProperty("ro.long", std::string(200, 'a'));
    std::memset(value, 'z', sizeof(value));
    EXPECT_EQ(__system_property_get("ro.long", value), PROP_VALUE_MAX - 1);
    EXPECT_EQ(value[PROP_VALUE_MAX - 1], '\0');
    EXPECT_EQ(value[PROP_VALUE_MAX], 'z');
    android_standin::clearSystemProperties();
}
