#include "StandInState.h"

#include <atomic>
#include <mutex>

namespace convfact_standin {

namespace {

std::mutex gMutex;
std::map<std::string, PluginMaker>& makers() {
    static std::map<std::string, PluginMaker> table;
    return table;
}
int gFailConversions = 0;
std::atomic<size_t> gConvertCalls{0};
std::atomic<size_t> gDelivered{0};

}  // namespace

std::map<std::string, PluginMaker> pluginMakers() {
    std::lock_guard<std::mutex> guard(gMutex);
    return makers();
}

void countConvert() {
    ++gConvertCalls;
}
void countDelivery() {
    ++gDelivered;
}

bool takeConversionFailure() {
    std::lock_guard<std::mutex> guard(gMutex);
    if (gFailConversions <= 0)
        return false;
    --gFailConversions;
    return true;
}

void addPlugin(const std::string& name, PluginMaker make) {
    std::lock_guard<std::mutex> guard(gMutex);
    makers()[name] = std::move(make);
}

void clearPlugins() {
    std::lock_guard<std::mutex> guard(gMutex);
    makers().clear();
}

size_t convertCalls() {
    return gConvertCalls.load();
}
size_t deliveredFrames() {
    return gDelivered.load();
}

void resetCounters() {
    gConvertCalls = 0;
    gDelivered = 0;
}

void failConversions(int n) {
    std::lock_guard<std::mutex> guard(gMutex);
    gFailConversions = n;
}

}  // namespace convfact_standin
