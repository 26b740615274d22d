#include "base/SystemUtil.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/system_properties.h>
#include <unistd.h>

#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstring>

#include "base/Log.h"
#include "base/ifaddrs.h"

namespace VOLUT {

namespace {

std::atomic<SystemUtil::ClockFunction> gClock{&clock_gettime};

// The failure line itself is stamped by getCPUTime; this stops a failing
// clock from recursing through the log pipeline.
thread_local bool tReportingClockFailure = false;

bool readMonotonic(timespec& ts, const char* signature, int line) {
    if (gClock.load(std::memory_order_relaxed)(CLOCK_MONOTONIC, &ts) == 0) {
        return true;
    }
    int err = errno;
    if (!tReportingClockFailure) {
        tReportingClockFailure = true;
        Log::log("VOLUT", LOG_ERROR, "[%s] %d \"cannot get CPU time: error=%d\"", signature, line,
                 err);
        tReportingClockFailure = false;
    }
    return false;
}

std::string lowerCase(const char* text) {
    std::string out(text);
    for (char& c : out) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return out;
}

}  // namespace

SystemUtil::ClockFunction SystemUtil::setClockForTesting(ClockFunction clock) {
    return gClock.exchange(clock ? clock : &clock_gettime);
}

pid_t SystemUtil::getpid() {
    return ::getpid();
}

void SystemUtil::sleep(unsigned int ms) {
    timespec request{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
    timespec remaining{};
    while (nanosleep(&request, &remaining) != 0 && errno == EINTR) {
        request = remaining;
    }
}

uint64_t SystemUtil::getCPUTime() {
    timespec ts{};
    if (!readMonotonic(ts, "static uint64_t VOLUT::SystemUtil::getCPUTime()", __LINE__)) {
        return 0;
    }
    return static_cast<uint64_t>(ts.tv_sec) * 1000u + static_cast<uint64_t>(ts.tv_nsec) / 1000000u;
}

uint64_t SystemUtil::getCPUTimeInMicroseconds() {
    timespec ts{};
    if (!readMonotonic(ts, "static uint64_t VOLUT::SystemUtil::getCPUTimeInMicroseconds()",
                       __LINE__)) {
        return 0;
    }
    return static_cast<uint64_t>(ts.tv_sec) * 1000000u + static_cast<uint64_t>(ts.tv_nsec) / 1000u;
}

std::vector<LocalIPInfo> SystemUtil::getLocalIPList() {
    static const char kSignature[] =
        "static std::vector<LocalIPInfo> VOLUT::SystemUtil::getLocalIPList()";
    std::vector<LocalIPInfo> result;
    ifaddrs* list = nullptr;
    if (VOLUT::getifaddrs(&list) != 0) {
        return result;
    }
    Log::log("VOLUT", LOG_INFO, "[%s] %d \"temp_addr = %p\"", kSignature, __LINE__,
             static_cast<void*>(list));
    for (ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr) {
            continue;
        }
        Log::log("VOLUT", LOG_INFO, "[%s] %d \"temp_addr->ifa_addr->sa_family = %d\"", kSignature,
                 __LINE__, entry->ifa_addr->sa_family);
        if (entry->ifa_addr->sa_family != AF_INET) {
            continue;
        }
        char ipStr[256] = {};
        const auto* in = reinterpret_cast<const sockaddr_in*>(entry->ifa_addr);
        if (inet_ntop(AF_INET, &in->sin_addr, ipStr, sizeof(ipStr)) == nullptr) {
            continue;
        }
        Log::log("VOLUT", LOG_INFO, "[%s] %d \"temp_addr->ifa_name = %s, ipStr = %s\"", kSignature,
                 __LINE__, entry->ifa_name, ipStr);
        result.push_back(LocalIPInfo{entry->ifa_name, ipStr});
    }
    VOLUT::freeifaddrs(list);
    return result;
}

std::string SystemUtil::getIPAddrFromDomain(std::string domain) {
    static const char kSignature[] =
        "static std::string VOLUT::SystemUtil::getIPAddrFromDomain(std::string)";
    if (domain.empty()) {
        Log::log("VOLUT", LOG_ERROR,
                 "[%s] %d \"Failed to get ip address from domain, the passing domain is empty\"",
                 kSignature, __LINE__);
        return "";
    }
    // The reentrant lookup: gethostbyname's result is shared by the process.
    std::vector<char> work(1024);
    hostent host{};
    hostent* found = nullptr;
    int hostErr = 0;
    int rc;
    while ((rc = gethostbyname_r(domain.c_str(), &host, work.data(), work.size(), &found,
                                 &hostErr)) == ERANGE &&
           work.size() < 65536) {
        work.resize(work.size() * 2);
    }
    if (rc != 0 || found == nullptr) {
        Log::log("VOLUT", LOG_ERROR, "[%s] %d \"Failed to get ip address from domain\"", kSignature,
                 __LINE__);
        return "";
    }
    if (found->h_addrtype != AF_INET || found->h_addr_list == nullptr ||
        found->h_addr_list[0] == nullptr) {
        return "";
    }
    char text[32] = {};
    if (inet_ntop(AF_INET, found->h_addr_list[0], text, sizeof(text)) == nullptr) {
        return "";
    }
    Log::log("VOLUT", LOG_DEBUG, "[%s] %d \"The converted ip address is %s\\n\"", kSignature,
             __LINE__, text);
    if (std::strcmp(text, "0.0.0.0") == 0) {
        return "";
    }
    return text;
}

std::string SystemUtil::getAppDataFolder() {
    return "/mnt/sdcard/";
}

bool SystemUtil::getDeviceInfo(std::string& manufacturer, std::string& model) {
    char value[PROP_VALUE_MAX + 1] = {};
    if (__system_property_get("ro.product.manufacturer", value) <= 0 || value[0] == '\0') {
        return false;
    }
    manufacturer = lowerCase(value);
    std::memset(value, 0, sizeof(value));
    if (__system_property_get("ro.product.model", value) <= 0 || value[0] == '\0') {
        return false;
    }
    model = lowerCase(value);
    return true;
}

}  // namespace VOLUT
