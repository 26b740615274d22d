#include <dlfcn.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "trevo_host.h"

using namespace std::chrono_literals;

// Host messages through the bridge stand-in to the running client of the
// product library, loaded as the device loads it: it shares the stand-in (and
// so the Host) with this program, but has a fresh settings table of its own.
TEST(ClientCameraControl, HostGetsRepliesThroughTheRunningClient) {
    char exe[PATH_MAX] = {};
    ASSERT_GT(readlink("/proc/self/exe", exe, sizeof(exe) - 1), 0);
    std::string path = exe;
    path = path.substr(0, path.rfind("/tests/")) + "/libhidl_uvc_client.so";  // build dir
    if (access(path.c_str(), R_OK) != 0) {
        GTEST_SKIP() << "product library not built: " << path;
    }
    // Never closed: the library's threads and statics live to process exit.
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    auto init = reinterpret_cast<int (*)(bool)>(dlsym(library, "_ZN15hidl_uvc_client4initEb"));
    auto stop = reinterpret_cast<void (*)()>(dlsym(library, "_ZN15hidl_uvc_client4stopEv"));
    ASSERT_TRUE(init != nullptr && stop != nullptr);

    trevo_standin::Host& host = trevo_standin::Host::instance();
    host.reset();
    testing::internal::CaptureStdout();
    std::thread loop([init] { init(false); });
    const bool registered = host.waitForHandler(5s);
    if (registered) {  // one lane: delivered in this order, each handled before the next
        const std::string get = R"({"msg_type":"uvc_report","content":{"brightness":"get"}})";
        const std::string set =
            R"({"msg_type":"uvc_report","content":{"brightness":"set","value":"42"}})";
        host.setting(get, 0, 0);
        host.setting(set, 1, 2);
        host.setting(get, 0, 0);
    }
    EXPECT_TRUE(registered && host.waitForAppMessages(2, 5s));
    const std::vector<std::string> replies = host.appMessages();
    stop();
    loop.join();
    testing::internal::GetCapturedStdout();

    EXPECT_EQ(replies, (std::vector<std::string>{
                           R"({ "source": "app", "response": { "brightness": "-255" } })",
                           R"({ "source": "app", "response": { "brightness": "42" } })"}));
    host.reset();
}
