#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <new>
#include <string>

#include "HeapFaults.h"
#include "client_harness.h"

namespace client_test {
namespace {

const char kGet[] = R"({"msg_type":"uvc_report","content":{"gain":"get"}})";

// Counts the times operator new found no memory; it then throws as usual.
int newFailures = 0;
void countAndThrow() {
    ++newFailures;
    throw std::bad_alloc();
}

// The death-test child: the host's messages reach setting() with the address
// space limited. Exits 0 when every step held; an exception that left
// setting() would fail the death test.
[[noreturn]] void settingUnderAddressSpaceLimit() {
    check(event_loop_init() == 0, "event loop");
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
    unsigned long pages = 0;  // address space in use
    std::ifstream("/proc/self/statm") >> pages;
    struct rlimit limit;
    getrlimit(RLIMIT_AS, &limit);
    limit.rlim_cur = static_cast<rlim_t>(pages) * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) +
                     (256u << 20);
    setrlimit(RLIMIT_AS, &limit);
    testing::internal::CaptureStdout();
    client->setting(std::move(huge), 0, 0);
    check(testing::internal::GetCapturedStdout().find(refusal) != std::string::npos,
          "no refusal line");
    check(host.appMessages().empty(), "the large message was answered");
    testing::internal::CaptureStdout();  // the rest is not looked at
    client->setting(kGet, 0, 0);
    check(host.appMessages().size() == 1, "the get after the large message was not answered");

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
        const long failuresBefore = heapFailures();
        failHeapAfter(allowed);
        client->setting(std::move(message), 0, 0);
        failHeapAfter(-1);
        if (heapFailures() == failuresBefore) {
            break;
        }
    }
    check(newFailures > 0, "operator new never failed: the test proves nothing");
    const size_t before = host.appMessages().size();
    client->setting(kGet, 0, 0);
    check(host.appMessages().size() == before + 1,
          "the get after running out of memory was not answered");
    std::fflush(stdout);
    _exit(0);
}

// A control message far too large for the process's memory is refused
// unparsed; running out of memory inside an accepted one drops that message
// only. Either way setting() returns and the next "get" is answered.
TEST(MemoryLimitDeathTest, SettingSurvivesHugeMessagesAndExhaustedMemory) {
    if (kSanitized) {
        GTEST_SKIP() << "sanitizer builds reserve terabytes of address space and abort on a "
                        "failed allocation, so RLIMIT_AS cannot be used; the normal build runs "
                        "this";
    }
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(settingUnderAddressSpaceLimit(), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace client_test
