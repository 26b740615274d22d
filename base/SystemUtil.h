#pragma once

#include <sys/types.h>
#include <time.h>

#include <cstdint>
#include <string>
#include <vector>

#include "uvc_export.h"

namespace VOLUT {

struct LocalIPInfo {
    std::string interfaceName;
    std::string ipAddress;  // dotted IPv4
};

// Small platform services of the base library.
class UVC_EXPORT SystemUtil {
public:
    static pid_t getpid();
    // Sleeps the whole time even when signals interrupt nanosleep.
    static void sleep(unsigned int ms);
    // Milliseconds of CLOCK_MONOTONIC (not processor time); 0 when the clock
    // cannot be read.
    static uint64_t getCPUTime();
    // The same clock in microseconds; 0 when the clock cannot be read.
    static uint64_t getCPUTimeInMicroseconds();
    // One entry per IPv4 address of the local interfaces; empty on failure.
    static std::vector<LocalIPInfo> getLocalIPList();
    // First IPv4 address of a host name as dotted text, or "".
    static std::string getIPAddrFromDomain(std::string domain);
    static std::string getAppDataFolder();
    // Lower-cased "ro.product.manufacturer" and "ro.product.model"; false as
    // soon as one is missing or empty.
    static bool getDeviceInfo(std::string& manufacturer, std::string& model);

    // Replaces the clock_gettime behind getCPUTime*; null restores the
    // system's. Returns the previous function. For tests only.
    using ClockFunction = int (*)(clockid_t, struct timespec*);
    __attribute__((visibility("hidden"))) static ClockFunction setClockForTesting(
        ClockFunction clock);
};

}  // namespace VOLUT
