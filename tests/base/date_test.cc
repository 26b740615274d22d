#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>

#include "base/Date.h"

using VOLUT::Date;

namespace {

// Sets TZ for one test and restores the previous value afterwards.
class ScopedTimeZone {
public:
    explicit ScopedTimeZone(const char* tz) {
        const char* old = std::getenv("TZ");
        hadOld_ = old != nullptr;
        if (hadOld_)
            old_ = old;
        setenv("TZ", tz, 1);
        tzset();
    }
    ~ScopedTimeZone() {
        if (hadOld_) {
            setenv("TZ", old_.c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }

private:
    bool hadOld_ = false;
    std::string old_;
};

}  // namespace

TEST(DateTest, TextFormsShiftByZoneHours) {
    // Local time of the machine must not matter.
    ScopedTimeZone tz("JST-9");
    Date d(2024, 3, 5, 14, 7, 9, 42);
    EXPECT_EQ(d.toString(0), "2024-03-05 14:07:09.042");
    EXPECT_EQ(d.toString(2), "2024-03-05 16:07:09.042");
    EXPECT_EQ(d.toShortString(2), "03-05 16:07:09.042");
    EXPECT_EQ(d.toString(-15), "2024-03-04 23:07:09.042");
    EXPECT_EQ(Date(0ULL).toString(-5), "1969-12-31 19:00:00.000");
    EXPECT_EQ(d.millisecondsFrom1970(), 1709647629042ULL);
}

TEST(DateTest, MillisecondConstructorAndArithmetic) {
    EXPECT_EQ(Date(0ULL).toString(0), "1970-01-01 00:00:00.000");
    EXPECT_TRUE(Date(999ULL) < Date(1000ULL));
    EXPECT_FALSE(Date(1000ULL) < Date(1000ULL));
    EXPECT_TRUE(Date(1000ULL) == Date(1970, 1, 1, 0, 0, 1, 0));
    EXPECT_EQ((Date(1000ULL) + -1).toString(0), "1970-01-01 00:00:00.999");
    EXPECT_EQ((Date(1000ULL) + 86400000).toString(0), "1970-01-02 00:00:01.000");
    EXPECT_EQ((Date(5ULL) + -10).millisecondsFrom1970(), 0u);  // never before 1970
    EXPECT_EQ(Date(1500ULL) - Date(2000ULL), -500);
    EXPECT_EQ(Date(2000ULL) - Date(1500ULL), 500);
    Date leap(2024, 2, 29, 23, 59, 59, 999);
    Date next = leap + 1;
    EXPECT_EQ(next.month(), 3u);
    EXPECT_EQ(next.day(), 1u);
    EXPECT_EQ(next.hour(), 0u);
    Date copy(next);
    EXPECT_TRUE(copy == next);
    EXPECT_EQ(copy.toString(0), "2024-03-01 00:00:00.000");
}

TEST(DateTest, OutOfRangeFieldsStayConsistent) {
    Date overflow(2023, 13, 1, 0, 0, 0, 1500);
    EXPECT_EQ(overflow.toString(0), "2024-01-01 00:00:01.500");
    EXPECT_EQ(overflow.year(), 2024u);
    EXPECT_EQ(overflow.millisecond(), 500u);
    EXPECT_EQ(Date(1969, 12, 31, 0, 0, 0, 0).millisecondsFrom1970(), 0u);
    EXPECT_EQ(Date(4000000000u, 1, 1, 0, 0, 0, 0).toString(0), "9999-12-31 23:59:59.999");
    // Beyond what the calendar can show: no text rather than garbage.
    Date huge(~0ULL);
    EXPECT_EQ(huge.toString(0), "");
    EXPECT_EQ(huge.year(), 0u);
}

TEST(DateTest, CurrentTimeZoneInWholeHours) {
    {
        ScopedTimeZone tz("UTC0");
        EXPECT_EQ(Date::currentTimeZone(), 0);
    }
    {
        ScopedTimeZone tz("JST-9");
        EXPECT_EQ(Date::currentTimeZone(), 9);
    }
    {
        ScopedTimeZone tz("EST5");
        EXPECT_EQ(Date::currentTimeZone(), -5);
    }
    {
        ScopedTimeZone tz("IST-5:30");
        EXPECT_EQ(Date::currentTimeZone(), 5);  // the half hour is dropped
    }
    {
        ScopedTimeZone tz("NST3:30");
        EXPECT_EQ(Date::currentTimeZone(), -3);
    }
    {
        // Daylight saving is honoured whatever the season of the test run.
        ScopedTimeZone tz("CET-1CEST,M3.5.0,M10.5.0/3");
        time_t t = time(nullptr);
        tm local{};
        localtime_r(&t, &local);
        EXPECT_EQ(Date::currentTimeZone(), static_cast<int>(local.tm_gmtoff / 3600));
    }
}
