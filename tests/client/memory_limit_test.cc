#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <new>
#include <string>

#include "HeapFaults.h"
#include "client/HidlUvcClient.h"
#include "client/event_loop_utils.h"
#include "trevo_host.h"

// Sanitizers reserve terabytes of address space and abort where an allocation
// fails instead of returning; an address-space limit means nothing there.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define UVC_UNDER_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define UVC_UNDER_SANITIZER 1
#endif
#endif

#ifndef UVC_UNDER_SANITIZER
namespace {

const char kGet[] = R"({"msg_type":"uvc_report","content":{"gain":"get"}})";

rlim_t addressSpaceInUse() {
    unsigned long pages = 0;
    FILE* statm = std::fopen("/proc/self/statm", "r");
    if (statm != nullptr) {
        if (std::fscanf(statm, "%lu", &pages) != 1) {
            pages = 0;
        }
        std::fclose(statm);
    }
    return static_cast<rlim_t>(pages) * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

void limitAddressSpace(rlim_t bytes) {
    struct rlimit limit;
    getrlimit(RLIMIT_AS, &limit);
    limit.rlim_cur = bytes;
    setrlimit(RLIMIT_AS, &limit);
}

// Counts the times operator new found no memory; it then throws as usual.
int newFailures = 0;
void countAndThrow() {
    ++newFailures;
    throw std::bad_alloc();
}

[[noreturn]] void fail(const char* why) {
    std::fprintf(stderr, "FAILED: %s\n", why);
    std::fflush(stderr);
    _exit(1);
}

// The death-test child: the host's messages reach setting() with the address
// space limited. Exits 0 when every step held; an exception that left
// setting() would fail the death test.
[[noreturn]] void settingUnderAddressSpaceLimit() {
    if (event_loop_init() != 0) {
        fail("event loop");
    }
    trevo_standin::Host& host = trevo_standin::Host::instance();
    auto client = std::make_unique<hidl_uvc_client::HidlUvcClient>();
    // About 50 MB: 6.5 million integers beside a "get". Parsed whole it would
    // take over 2 GB.
    std::string huge = R"({"msg_type":"uvc_report","content":{"gain":"get","n":[0)";
    huge.reserve(53u << 20);
    for (int i = 1; i < 6500000; ++i) {
        huge += ",1234567";
    }
    huge += "]}}";
    const std::string refusal =
        "\nmessage refused: " + std::to_string(huge.size()) + " bytes, the limit is 65536\n";
    const rlim_t start = addressSpaceInUse();
    limitAddressSpace(start + (256u << 20));
    testing::internal::CaptureStdout();
    client->setting(std::move(huge), 0, 0);
    const std::string printed = testing::internal::GetCapturedStdout();
    if (printed.find(refusal) == std::string::npos) {
        fail("no refusal line");
    }
    if (!host.appMessages().empty()) {
        fail("the large message was answered");
    }
    testing::internal::CaptureStdout();  // the rest is not looked at
    client->setting(kGet, 0, 0);
    if (host.appMessages().size() != 1) {
        fail("the get after the large message was not answered");
    }

    // Memory runs out at every stage of a message within the limits (2,000
    // strings take about 0.5 MB parsed): from no room at all, then after ever
    // more allocations, until the message is handled with room to spare. The
    // allocator runs out rather than the address space, which an emulator
    // would not limit.
    std::string heavy = R"({"msg_type":"uvc_report","content":{"gain":"get","s":[)";
    for (int i = 0; i < 2000; ++i) {
        heavy += (i ? "," : "") + std::string(R"("twenty-seven bytes of text.")");
    }
    heavy += "]}}";
    std::set_new_handler(countAndThrow);
    for (long allowed = 0;; allowed += 1 + allowed / 16) {
        std::string message = heavy;  // the bridge's copy, made while there is room
        const long failuresBefore = client_test::heapFailures();
        client_test::failHeapAfter(allowed);
        client->setting(std::move(message), 0, 0);
        client_test::failHeapAfter(-1);
        if (client_test::heapFailures() == failuresBefore) {
            break;
        }
    }
    if (newFailures == 0) {
        fail("operator new never failed: the test proves nothing");
    }
    const size_t before = host.appMessages().size();
    client->setting(kGet, 0, 0);
    if (host.appMessages().size() != before + 1) {
        fail("the get after running out of memory was not answered");
    }
    std::fflush(stdout);
    _exit(0);
}

}  // namespace
#endif

// A control message far too large for the process's memory is refused
// unparsed; running out of memory inside an accepted one drops that message
// only. Either way setting() returns and the next "get" is answered.
TEST(MemoryLimitDeathTest, SettingSurvivesHugeMessagesAndExhaustedMemory) {
#ifdef UVC_UNDER_SANITIZER
    GTEST_SKIP() << "sanitizer builds reserve terabytes of address space and abort on a failed "
                    "allocation, so RLIMIT_AS cannot be used; the normal build runs this";
#else
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(settingUnderAddressSpaceLimit(), testing::ExitedWithCode(0), "");
#endif
}
