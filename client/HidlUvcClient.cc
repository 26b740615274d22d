#include "client/HidlUvcClient.h"

#include <android/log.h>

#include <chrono>
#include <cstdio>
#include <exception>
#include <iostream>

#include "camera/CamSettingOperation.h"

namespace hidl_uvc_client {

namespace {

const char kTag[] = "HidlUvcClient";

// The bridge's threads must never see an exception from a callback (memory
// can run out anywhere); the callback is given up with one line. Called in a
// catch handler: rethrows the exception being handled to name it.
void logDropped(const char* callback) {
    try {
        throw;
    } catch (const std::exception& e) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "%s dropped: %s", callback, e.what());
    } catch (...) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "%s dropped: unknown exception", callback);
    }
}

// Takes the bridge's calls once a client is gone.
class InertHotPlugHandler : public trevo::HotPlugHandler {
public:
    void hotplug(trevo::ConnectionStatus, uint8_t, uint8_t) override {}
    void setting(std::string, uint8_t, uint8_t) override {}
};

}  // namespace

HidlUvcClient::HidlUvcClient() : bridge(trevo::BridgeContext(1)) {
    uvc_client::CamSettingOperation::Instance();
    bridge.registerHotPlugHandler(*this);
    bridge.registerProjector(0);
    // The bridge may call hotplug as soon as the handler is registered, so the
    // first stream's handler is inserted under the registry lock as well.
    std::lock_guard<std::mutex> guard(streamsLock);
    const std::string key = streamKey(0, 0);
    if (streams.find(key) == streams.end()) {
        streams.emplace(key, std::make_unique<StreamHandler>(bridge, 0, 0));
    }
}

HidlUvcClient::~HidlUvcClient() {
    // The bridge has no way to unregister, but it calls one handler at a
    // time: handing it an inert one, which lives as long as the process,
    // keeps its calls away from this client while its members are destroyed.
    static auto* inert = new InertHotPlugHandler;  // never destroyed
    bridge.registerHotPlugHandler(*inert);
}

std::string HidlUvcClient::streamKey(uint8_t stream_id, uint8_t stream_idx) {
    return std::to_string(static_cast<int>(stream_id)) + ":" +
           std::to_string(static_cast<int>(stream_idx));
}

void HidlUvcClient::hotplug(trevo::ConnectionStatus status, uint8_t stream_id,
                            uint8_t stream_idx) try {
    __android_log_print(ANDROID_LOG_INFO, kTag, "Got hotplug message with status: %d",
                        static_cast<int>(status));
    std::printf("Got hotplug message with status: %d | stream_id [%u] | stream_idx [%u]\n",
                static_cast<int>(status), stream_id, stream_idx);
    std::cout << '\n' << "hotplug\n";
    if (static_cast<int>(status) != 4) {
        return;
    }
    if (stream_id == 255) {
        for (uint8_t id = 0; id < 2; ++id) {
            for (uint8_t idx = 0; idx < 4; ++idx) {
                HandleStreamChanged(id, idx);
            }
        }
        return;
    }
    HandleStreamChanged(stream_id, stream_idx);
} catch (...) {
    logDropped("hotplug");
}

void HidlUvcClient::HandleStreamChanged(uint8_t stream_id, uint8_t stream_idx) {
    std::lock_guard<std::mutex> guard(streamsLock);
    const std::string key = streamKey(stream_id, stream_idx);
    auto it = streams.find(key);
    if (it == streams.end()) {
        if (!admission.admit(stream_id, stream_idx)) {
            if (admission.shouldLogRefusal(std::chrono::steady_clock::now())) {
                __android_log_print(ANDROID_LOG_WARN, kTag,
                                    "Stream [%u] [%u]: ignored, %d stream numbers besides 0:0 to "
                                    "1:3 already have a handler (%lu stream changes ignored so "
                                    "far)\n",
                                    stream_id, stream_idx, StreamAdmission::kMaxOtherStreams,
                                    admission.refusedCount());
            }
            return;
        }
        it = streams.emplace(key, std::make_unique<StreamHandler>(bridge, stream_id, stream_idx))
                 .first;
    }
    it->second->HandleStreamChanged();
}

void HidlUvcClient::setting(std::string message, uint8_t stream_id, uint8_t stream_idx) try {
    __android_log_print(ANDROID_LOG_INFO, kTag, "Got %s message\n", "setting");
    std::printf("Got %s message with: stream_id [%u] | stream_idx [%u]\n", "setting", stream_id,
                stream_idx);
    {
        std::lock_guard<std::mutex> guard(settingLock);
        camMsgHandler.handleMessage(message, bridge);
    }
    std::cout << '\n' << "cam setting\n";
} catch (...) {
    logDropped("setting");
}

StreamHandler* HidlUvcClient::handlerForTest(const std::string& key) {
    std::lock_guard<std::mutex> guard(streamsLock);
    auto it = streams.find(key);
    return it == streams.end() ? nullptr : it->second.get();
}

std::vector<std::string> HidlUvcClient::streamKeysForTest() {
    std::lock_guard<std::mutex> guard(streamsLock);
    std::vector<std::string> keys;
    for (const auto& entry : streams) {
        keys.push_back(entry.first);
    }
    return keys;
}

}  // namespace hidl_uvc_client
