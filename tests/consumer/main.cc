// A program built only from the installed package: the library's entry point
// and base library, and the bridge stand-in playing the USB host for a short
// YUYV stream. Exit status 0 when the frames arrived whole.

#include <chrono>
#include <cstdio>
#include <thread>

#include "base/Dictionary.h"
#include "base/Serialization.h"
#include "hidl_uvc_client.h"
#include "trevo/HalUvcConfig.h"
#include "trevo_host.h"

namespace {

using namespace std::chrono_literals;

constexpr uint32_t kYuyv = 0x56595559;
constexpr int kWidth = 320;
constexpr int kHeight = 240;
constexpr size_t kFrames = 10;
// Generous: under an emulator the stream runs several times slower.
constexpr auto kTimeout = 30s;

bool fail(const char* what) {
    std::printf("consumer: %s\n", what);
    return false;
}

bool baseLibraryWorks() {
    VOLUT::Dictionary d;
    d.setString("source", "consumer");
    d.setInteger("frames", static_cast<long long>(kFrames));
    const VOLUT::Dictionary back = VOLUT::Serialization::deserialize(VOLUT::Serialization::serialize(d));
    return back.getString("source") == "consumer" && back.getInteger("frames") == static_cast<long long>(kFrames);
}

bool streams() {
    auto& host = trevo_standin::Host::instance();
    std::thread client([] { hidl_uvc_client::init(false); });
    bool ok = host.waitForHandler(kTimeout) || fail("the client never registered with the bridge");
    if (ok) {
        trevo::HalUvcConfig c;
        c.width = kWidth;
        c.height = kHeight;
        c.fps = 30;
        c.format = kYuyv;
        c.streaming = 1;
        host.setConfig(0, 0, c);
        ok = (host.waitDelivered(host.hotplug(4, 0, 0), kTimeout) || fail("stream change not handled")) &&
             (host.waitForFrames(0, 0, kFrames, kTimeout) || fail("too few frames"));
    }
    hidl_uvc_client::stop();
    client.join();
    if (!ok) {
        return false;
    }
    const size_t frameBytes = size_t{kWidth} * kHeight * 2;
    for (const auto& f : host.frames()) {
        if (f.size != frameBytes || f.bytes.size() != frameBytes) {
            return fail("a frame arrived with the wrong size");
        }
    }
    std::printf("consumer: %zu frames of %dx%d YUYV\n", host.frames().size(), kWidth, kHeight);
    return true;
}

}  // namespace

int main() {
    if (!baseLibraryWorks()) {
        fail("a record did not survive its JSON form");
        return 1;
    }
    return streams() ? 0 : 1;
}
