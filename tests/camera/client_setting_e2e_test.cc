#include <dlfcn.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "CameraTestSupport.h"
#include "trevo_host.h"

using camera_test::StdoutCapture;
using trevo_standin::Host;
using namespace std::chrono_literals;

namespace {

// The product library as the device loads it, next to the tests folder of the
// build tree. It shares the bridge stand-in (and so the Host) with this
// program, but has settings of its own: a fresh table.
std::string productLibraryPath() {
    char exe[PATH_MAX] = {};
    const ssize_t n = readlink("/proc/self/exe", exe, sizeof(exe) - 1);
    if (n <= 0) {
        return "";
    }
    std::string dir(exe, static_cast<size_t>(n));
    dir = dir.substr(0, dir.rfind('/'));  // <build>/tests
    dir = dir.substr(0, dir.rfind('/'));  // <build>
    return dir + "/libhidl_uvc_client.so";
}

}  // namespace

// The host sends camera-control messages through the bridge; the running
// client hands them to the message handler, whose replies come back to the
// host.
TEST(ClientCameraControl, HostGetsRepliesThroughTheRunningClient) {
    const std::string path = productLibraryPath();
    if (access(path.c_str(), R_OK) != 0) {
        GTEST_SKIP() << "product library not built: " << path;
    }
    // Never closed: the library's threads and statics live to process exit.
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    auto init = reinterpret_cast<int (*)(bool)>(dlsym(library, "_ZN15hidl_uvc_client4initEb"));
    auto stop = reinterpret_cast<void (*)()>(dlsym(library, "_ZN15hidl_uvc_client4stopEv"));
    ASSERT_NE(init, nullptr);
    ASSERT_NE(stop, nullptr);

    Host& host = Host::instance();
    host.reset();
    StdoutCapture quiet;
    std::thread loop([init] { init(false); });
    const bool registered = host.waitForHandler(5s);

    std::vector<std::string> replies;
    if (registered) {
        const uint64_t get =
            host.setting(R"({"msg_type":"uvc_report","content":{"brightness":"get"}})", 0, 0);
        const bool gotFirst = host.waitDelivered(get, 5s);
        const uint64_t set = host.setting(
            R"({"msg_type":"uvc_report","content":{"brightness":"set","value":"42"}})", 1, 2);
        const uint64_t again =
            host.setting(R"({"msg_type":"uvc_report","content":{"brightness":"get"}})", 0, 0);
        EXPECT_TRUE(gotFirst && host.waitDelivered(set, 5s) && host.waitDelivered(again, 5s));
        replies = host.appMessages();
    }
    stop();
    loop.join();
    quiet.finish();

    ASSERT_TRUE(registered);
    EXPECT_EQ(replies, (std::vector<std::string>{
                           R"({ "source": "app", "response": { "brightness": "-255" } })",
                           R"({ "source": "app", "response": { "brightness": "42" } })"}));
    host.reset();
}
