// scripts/bench: the library's cost and pacing beside their yardsticks, all
// measured in this run. Not part of the tests: its figures depend on the
// machine and on what else runs on it.

#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "android_testing.h"
#include "bench.h"

namespace uvc_bench {

FILE* gOut = stdout;

FILE* out() {
    return gOut;
}

Percentiles percentiles(std::vector<double> ms) {
    Percentiles p;
    if (ms.empty())
        return p;
    std::sort(ms.begin(), ms.end());
    p.p50 = ms[ms.size() / 2];
    p.p99 = ms[ms.size() * 99 / 100];
    p.max = ms.back();
    return p;
}

}  // namespace uvc_bench

namespace {

void printMachine() {
    std::string cpu = "unknown CPU";
    std::ifstream info("/proc/cpuinfo");
    for (std::string line; std::getline(info, line);) {
        if (line.rfind("model name", 0) == 0) {
            cpu = line.substr(line.find(':') + 2);
            break;
        }
    }
    double load[3] = {};
    getloadavg(load, 3);
    utsname u = {};
    uname(&u);
    std::fprintf(uvc_bench::out(), "machine: %s, %ld cores, %s %s; load average %.2f %.2f %.2f\n", cpu.c_str(),
                sysconf(_SC_NPROCESSORS_ONLN), u.sysname, u.release, load[0], load[1], load[2]);
}

}  // namespace

int main(int argc, char** argv) {
    // Sections by name (frames, pacing, jpeg, capture, allocations, latency); all by default.
    auto wanted = [&](const char* name) {
        if (argc < 2)
            return true;
        for (int i = 1; i < argc; ++i) {
            if (std::strcmp(argv[i], name) == 0)
                return true;
        }
        return false;
    };
    const int table = dup(STDOUT_FILENO);
    if (table >= 0) {
        uvc_bench::gOut = fdopen(table, "w");
        std::setvbuf(uvc_bench::gOut, nullptr, _IOLBF, 0);
        if (std::freopen("/dev/null", "w", stdout) == nullptr)
            uvc_bench::gOut = stdout;
    }
    printMachine();
    android_standin::LogCapture quiet;  // the library's information lines
    if (wanted("frames"))
        uvc_bench::frameCost();
    if (wanted("jpeg"))
        uvc_bench::jpegCost();
    if (wanted("capture"))
        uvc_bench::captureCost();
    if (wanted("allocations"))
        uvc_bench::allocations();
    if (wanted("latency"))
        uvc_bench::captureLatency();
    if (wanted("pacing"))
        uvc_bench::pacing();
    return 0;
}
