#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <string>

#include "android_testing.h"
#include "base/Date.h"
#include "base/SystemUtil.h"
#include "log_test_support.h"

using VOLUT::Date;
using VOLUT::SystemUtil;
using volut_test::Has;

namespace {

// Date texts must not depend on the machine's zone, so tests set their own.
void setTimeZone(const char* tz) {
    setenv("TZ", tz, 1);
    tzset();
}

}  // namespace

TEST(SystemUtilTest, ClocksAgreeAndSleepLastsItsTime) {
    uint64_t ms = SystemUtil::getCPUTime(), us = SystemUtil::getCPUTimeInMicroseconds();
    EXPECT_GT(ms, 0u);
    EXPECT_LT(us / 1000 - ms, 1000u);  // unsigned: also fails when us is behind ms
    SystemUtil::sleep(25);
    EXPECT_GE(SystemUtil::getCPUTime(), ms + 25);
}

// A failing clock gives 0 and one error line each; the line's own time stamp
// reads the same clock, which must not recurse.
TEST(SystemUtilTest, ClockFailureGivesZeroAndOneLine) {
    volut_test::DefaultServerCapture cap;
    auto failing = [](clockid_t, timespec*) {
        errno = EINVAL;
        return -1;
    };
    auto previous = SystemUtil::setClockForTesting(failing);
    EXPECT_EQ(SystemUtil::getCPUTime(), 0u);
    EXPECT_EQ(SystemUtil::getCPUTimeInMicroseconds(), 0u);
    SystemUtil::setClockForTesting(previous);
    auto records = cap.waitFor(2);
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].text.rfind("(0) ", 0), 0u) << records[0].text;
    EXPECT_TRUE(
        Has(records[0].text, "[E][VOLUT] - [static uint64_t VOLUT::SystemUtil::getCPUTime()] "));
    EXPECT_TRUE(
        Has(records[0].text, " \"cannot get CPU time: error=" + std::to_string(EINVAL) + "\""));
    EXPECT_TRUE(
        Has(records[1].text, "[static uint64_t VOLUT::SystemUtil::getCPUTimeInMicroseconds()]"));
}

// Both properties or nothing; what comes back is lower case.
TEST(SystemUtilTest, DeviceInfoIsLowerCased) {
    android_standin::clearSystemProperties();
    std::string manufacturer = "unset", model = "unset";
    android_standin::setSystemProperty("ro.product.manufacturer", "ACME");
    EXPECT_FALSE(SystemUtil::getDeviceInfo(manufacturer, model));
    EXPECT_EQ(model, "unset");
    android_standin::setSystemProperty("ro.product.model", "Model X1");
    EXPECT_TRUE(SystemUtil::getDeviceInfo(manufacturer, model));
    EXPECT_EQ(manufacturer + "/" + model, "acme/model x1");
    android_standin::clearSystemProperties();
}

TEST(SystemUtilTest, AddressesFromDomainAndLocalList) {
    volut_test::DefaultServerCapture cap;
    EXPECT_EQ(SystemUtil::getIPAddrFromDomain(""), "");
    const std::string line = cap.onlyLine();
    EXPECT_TRUE(Has(line,
                    "[E][VOLUT] - [static std::string "
                    "VOLUT::SystemUtil::getIPAddrFromDomain(std::string)] "));
    EXPECT_TRUE(
        Has(line, " \"Failed to get ip address from domain, the passing domain is empty\""));
    EXPECT_EQ(SystemUtil::getIPAddrFromDomain("127.0.0.1"), "127.0.0.1");
    EXPECT_EQ(SystemUtil::getIPAddrFromDomain("0.0.0.0"), "");

    bool loopback = false;
    for (auto& info : SystemUtil::getLocalIPList()) {
        EXPECT_EQ(info.ipAddress.find(':'), std::string::npos);  // IPv4 only
        loopback |= info.interfaceName == "lo" && info.ipAddress == "127.0.0.1";
    }
    EXPECT_TRUE(loopback);
}

TEST(DateTest, TextsShiftByZoneHoursOnly) {
    setTimeZone("JST-9");
    Date d(2024, 3, 5, 14, 7, 9, 42);
    EXPECT_EQ(d.toString(0), "2024-03-05 14:07:09.042");
    EXPECT_EQ(d.toString(2), "2024-03-05 16:07:09.042");
    EXPECT_EQ(d.toShortString(2), "03-05 16:07:09.042");
    EXPECT_EQ(d.toString(-15), "2024-03-04 23:07:09.042");
    EXPECT_EQ(Date(0ULL).toString(-5), "1969-12-31 19:00:00.000");
    EXPECT_EQ(d.millisecondsFrom1970(), 1709647629042ULL);
}

TEST(DateTest, ArithmeticAndOutOfRangeFields) {
    EXPECT_EQ((Date(1000ULL) + -1).toString(0), "1970-01-01 00:00:00.999");
    EXPECT_EQ((Date(1000ULL) + 86400000).toString(0), "1970-01-02 00:00:01.000");
    EXPECT_EQ((Date(5ULL) + -10).millisecondsFrom1970(), 0u);  // never before 1970
    EXPECT_EQ(Date(1500ULL) - Date(2000ULL), -500);
    Date next = Date(2024, 2, 29, 23, 59, 59, 999) + 1;
    EXPECT_EQ(next.month() * 100 + next.day(), 301u);
    EXPECT_EQ(next.hour(), 0u);

    Date overflow(2023, 13, 1, 0, 0, 0, 1500);
    EXPECT_EQ(overflow.toString(0), "2024-01-01 00:00:01.500");
    EXPECT_EQ(overflow.year() * 1000 + overflow.millisecond(), 2024500u);
    EXPECT_EQ(Date(1969, 12, 31, 0, 0, 0, 0).millisecondsFrom1970(), 0u);
    EXPECT_EQ(Date(4000000000u, 1, 1, 0, 0, 0, 0).toString(0), "9999-12-31 23:59:59.999");
    // Beyond what the calendar can show: no text rather than garbage.
    EXPECT_EQ(Date(~0ULL).toString(0), "");
    EXPECT_EQ(Date(~0ULL).year(), 0u);
}

// Past the end of a 32-bit time_t (2038-01-19 03:14:08) and of an unsigned
// one (2106), through leap rules, both ways between fields and count.
TEST(DateTest, CalendarIsRightFrom1970PastThe32BitEnds) {
    const struct {
        unsigned int year, month, day, hour, minute, second;
        unsigned long long ms;
        const char* text;
    } cases[] = {
        {1970, 1, 1, 0, 0, 0, 0ULL, "1970-01-01 00:00:00.000"},
        {2038, 1, 19, 3, 14, 8, 2147483648000ULL, "2038-01-19 03:14:08.000"},
        {2096, 10, 2, 7, 6, 40, 4000000000000ULL, "2096-10-02 07:06:40.000"},
        {2100, 3, 1, 0, 0, 0, 4107542400000ULL, "2100-03-01 00:00:00.000"},  // 2100: no 29 Feb
        {2106, 2, 7, 6, 28, 16, 4294967296000ULL, "2106-02-07 06:28:16.000"},
        {2400, 2, 29, 0, 0, 0, 13574563200000ULL, "2400-02-29 00:00:00.000"},
    };
    for (const auto& c : cases) {
        Date fromFields(c.year, c.month, c.day, c.hour, c.minute, c.second, 0);
        EXPECT_EQ(fromFields.millisecondsFrom1970(), c.ms) << c.text;
        Date fromCount(c.ms);
        EXPECT_EQ(fromCount.toString(0), c.text);
        EXPECT_EQ(fromCount.year() * 10000 + fromCount.month() * 100 + fromCount.day(),
                  c.year * 10000 + c.month * 100 + c.day)
            << c.text;
        EXPECT_EQ(fromCount.hour() * 3600 + fromCount.minute() * 60 + fromCount.second(),
                  c.hour * 3600 + c.minute * 60 + c.second)
            << c.text;
    }
    EXPECT_EQ((Date(2147483647999ULL) + 1).toString(0), "2038-01-19 03:14:08.000");
}

// A 32-bit time_t clock has turned negative by then; now() still reads it.
TEST(DateTest, NowPast2038) {
    auto clock = [](clockid_t, timespec* ts) {
        ts->tv_sec = static_cast<time_t>(4000000000LL);
        ts->tv_nsec = 7000000;
        return 0;
    };
    auto previous = Date::setClockForTesting(clock);
    const Date now = Date::now();
    Date::setClockForTesting(previous);
    EXPECT_EQ(now.millisecondsFrom1970(), 4000000000007ULL);
    EXPECT_GE(Date::now().year(), 2026u);
}

TEST(DateTest, CurrentTimeZoneInWholeHours) {
    // The half hours are dropped.
    const std::pair<const char*, int> zones[] = {
        {"UTC0", 0}, {"JST-9", 9}, {"EST5", -5}, {"IST-5:30", 5}, {"NST3:30", -3}};
    for (const auto& zone : zones) {
        setTimeZone(zone.first);
        EXPECT_EQ(Date::currentTimeZone(), zone.second) << zone.first;
    }
    // Daylight saving is honoured whatever the season of the test run.
    setTimeZone("CET-1CEST,M3.5.0,M10.5.0/3");
    time_t t = time(nullptr);
    tm local{};
    localtime_r(&t, &local);
    EXPECT_EQ(Date::currentTimeZone(), static_cast<int>(local.tm_gmtoff / 3600));
}
