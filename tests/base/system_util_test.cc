#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>

#include "android_testing.h"
#include "base/SystemUtil.h"
#include "log_test_support.h"

using VOLUT::SystemUtil;

namespace {

int failingClock(clockid_t, timespec*) {
    errno = EINVAL;
    return -1;
}

class FailingClock {
public:
    FailingClock() : previous_(SystemUtil::setClockForTesting(&failingClock)) {}
    ~FailingClock() { SystemUtil::setClockForTesting(previous_); }

private:
    SystemUtil::ClockFunction previous_;
};

}  // namespace

TEST(SystemUtilTest, ClocksAreMonotonicAndAgree) {
    uint64_t ms = SystemUtil::getCPUTime();
    uint64_t us = SystemUtil::getCPUTimeInMicroseconds();
    EXPECT_GT(ms, 0u);
    EXPECT_GE(us / 1000, ms);
    EXPECT_LT(us / 1000 - ms, 1000u);
    auto start = std::chrono::steady_clock::now();
    SystemUtil::sleep(25);
    auto slept = std::chrono::steady_clock::now() - start;
    EXPECT_GE(slept, std::chrono::milliseconds(25));
    EXPECT_GE(SystemUtil::getCPUTime(), ms + 25);
    EXPECT_EQ(SystemUtil::getpid(), getpid());
    EXPECT_EQ(SystemUtil::getAppDataFolder(), "/mnt/sdcard/");
}

// A failing clock gives 0 and one error line each; the line's own time stamp
// reads the same clock, which must not recurse.
TEST(SystemUtilTest, ClockFailureGivesZeroAndOneLine) {
    volut_test::DefaultServerCapture cap;
    {
        FailingClock failing;
        EXPECT_EQ(SystemUtil::getCPUTime(), 0u);
        EXPECT_EQ(SystemUtil::getCPUTimeInMicroseconds(), 0u);
    }
    auto records = cap.waitFor(2);
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].text.rfind("(0) ", 0), 0u) << records[0].text;
    EXPECT_NE(
        records[0].text.find("[E][VOLUT] - [static uint64_t VOLUT::SystemUtil::getCPUTime()] "),
        std::string::npos);
    EXPECT_NE(
        records[0].text.find(" \"cannot get CPU time: error=" + std::to_string(EINVAL) + "\""),
        std::string::npos);
    EXPECT_NE(
        records[1].text.find("[static uint64_t VOLUT::SystemUtil::getCPUTimeInMicroseconds()]"),
        std::string::npos);
}

TEST(SystemUtilTest, DeviceInfoIsLowerCased) {
    android_standin::clearSystemProperties();
    std::string manufacturer = "unset", model = "unset";
    EXPECT_FALSE(SystemUtil::getDeviceInfo(manufacturer, model));
    EXPECT_EQ(manufacturer, "unset");

    android_standin::setSystemProperty("ro.product.manufacturer", "ACME");
    EXPECT_FALSE(SystemUtil::getDeviceInfo(manufacturer, model));
    EXPECT_EQ(manufacturer, "acme");  // set before the model failed
    EXPECT_EQ(model, "unset");

    android_standin::setSystemProperty("ro.product.model", "Model X1");
    EXPECT_TRUE(SystemUtil::getDeviceInfo(manufacturer, model));
    EXPECT_EQ(manufacturer, "acme");
    EXPECT_EQ(model, "model x1");
    android_standin::clearSystemProperties();
}

TEST(SystemUtilTest, AddressFromDomain) {
    volut_test::DefaultServerCapture cap;
    EXPECT_EQ(SystemUtil::getIPAddrFromDomain(""), "");
    auto records = cap.waitFor(1);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_NE(records[0].text.find("[E][VOLUT] - [static std::string "
                                   "VOLUT::SystemUtil::getIPAddrFromDomain(std::string)] "),
              std::string::npos);
    EXPECT_NE(records[0].text.find(
                  " \"Failed to get ip address from domain, the passing domain is empty\""),
              std::string::npos);

    EXPECT_EQ(SystemUtil::getIPAddrFromDomain("127.0.0.1"), "127.0.0.1");
    auto debug = cap.waitFor(2);
    ASSERT_EQ(debug.size(), 2u);
    EXPECT_NE(debug[1].text.find("[D][VOLUT]"), std::string::npos);
    EXPECT_NE(debug[1].text.find(" \"The converted ip address is 127.0.0.1\\n\""),
              std::string::npos);
    EXPECT_EQ(SystemUtil::getIPAddrFromDomain("0.0.0.0"), "");
}

TEST(SystemUtilTest, LocalIPListHasLoopback) {
    volut_test::DefaultServerCapture cap;
    auto list = SystemUtil::getLocalIPList();
    bool loopback = false;
    for (auto& info : list) {
        EXPECT_EQ(info.ipAddress.find(':'), std::string::npos);  // IPv4 only
        if (info.interfaceName == "lo" && info.ipAddress == "127.0.0.1")
            loopback = true;
    }
    EXPECT_TRUE(loopback);
    auto records = cap.waitForText("temp_addr->ifa_name = lo, ipStr = 127.0.0.1");
    ASSERT_FALSE(records.empty());
    EXPECT_NE(records[0].text.find("[I][VOLUT] - [static std::vector<LocalIPInfo> "
                                   "VOLUT::SystemUtil::getLocalIPList()] "),
              std::string::npos);
    EXPECT_NE(records[0].text.find(" \"temp_addr = 0x"), std::string::npos);
}
