#include "StandInState.h"

#include <atomic>
#include <memory>
#include <mutex>

#include "DeliveryThread.h"

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
std::atomic<Delivery> gDelivery{Delivery::OnCallingThread};
// Delivery threads by factory (keyed by its plug-in manager); guarded by gMutex.
std::map<const void*, std::shared_ptr<DeliveryThread>>& deliveryThreads() {
    static auto* threads = new std::map<const void*, std::shared_ptr<DeliveryThread>>;
    return *threads;
}

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

void setDelivery(Delivery mode) {
    gDelivery = mode;
}

Delivery delivery() {
    return gDelivery.load();
}

bool deliverNow(const void* key, trevo::ConverterCbInterface* factory, trevo::GBuffer* frame) {
    if (gDelivery.load() == Delivery::OnCallingThread || DeliveryThread::onDeliveryThread())
        return true;
    std::shared_ptr<DeliveryThread> thread;
    {
        std::lock_guard<std::mutex> guard(gMutex);
        std::shared_ptr<DeliveryThread>& slot = deliveryThreads()[key];
        if (!slot)
            slot = std::make_shared<DeliveryThread>(factory);
        thread = slot;
    }
    thread->queue(*frame);
    return false;
}

void endDeliveries(const void* key) {
    std::shared_ptr<DeliveryThread> thread;
    {
        std::lock_guard<std::mutex> guard(gMutex);
        auto it = deliveryThreads().find(key);
        if (it == deliveryThreads().end())
            return;
        thread = std::move(it->second);
        deliveryThreads().erase(it);
    }
    thread.reset();  // delivers what is queued and joins, outside gMutex
}

// Waits under gMutex: delivery threads never take it, and copying the list
// out would allocate, which the allocation tests would count.
void waitForDeliveries() {
    std::lock_guard<std::mutex> guard(gMutex);
    for (auto& entry : deliveryThreads())
        entry.second->waitIdle();
}

size_t libraryBuffers() {
    return DeliveryThread::liveOutputs();
}

void failConversions(int n) {
    std::lock_guard<std::mutex> guard(gMutex);
    gFailConversions = n;
}

}  // namespace convfact_standin
