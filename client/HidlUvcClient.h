#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "camera/UvcCamMsgHandler.h"
#include "client/StreamAdmission.h"
#include "client/StreamHandler.h"
#include "trevo/CompositorBridge.h"
#include "trevo/HotPlugHandler.h"

namespace hidl_uvc_client {

// The bridge's callback object: keeps one stream handler per UVC stream and
// per admitted other stream number (StreamAdmission), and passes
// camera-control messages to the camera message handler.
class HidlUvcClient : public trevo::HotPlugHandler {
public:
    HidlUvcClient();
    // Turns the bridge's calls away first (see the .cc), so that none
    // reaches a half-destroyed client; then the stream handlers go.
    ~HidlUvcClient() override;

    HidlUvcClient(const HidlUvcClient&) = delete;
    HidlUvcClient& operator=(const HidlUvcClient&) = delete;

    void hotplug(trevo::ConnectionStatus status, uint8_t stream_id, uint8_t stream_idx) override;
    void setting(std::string message, uint8_t stream_id, uint8_t stream_idx) override;

    // Passes a stream change to the stream's handler, made first if the
    // stream has none and StreamAdmission admits it. Otherwise the change is
    // ignored, with a warning at most once a second naming the stream and
    // the count of changes ignored so far.
    void HandleStreamChanged(uint8_t stream_id, uint8_t stream_idx);

    // "<stream_id>:<stream_idx>", both decimal.
    static std::string streamKey(uint8_t stream_id, uint8_t stream_idx);

    // For tests and tools: the handler under `key`, null when none; and the
    // keys present. Both take the registry lock for the look-up only.
    StreamHandler* handlerForTest(const std::string& key);
    std::vector<std::string> streamKeysForTest();

private:
    trevo::CompositorBridge bridge;
    uvc_client::UvcCamMsgHandler camMsgHandler;
    std::mutex streamsLock;
    // Camera control keeps no lock of its own and the bridge may call
    // setting() on several threads, so messages are handled one at a time.
    // Never held together with another lock of the client.
    std::mutex settingLock;
    // Which stream numbers get a handler (see StreamAdmission); guarded by
    // streamsLock.
    StreamAdmission admission;
    std::map<std::string, std::unique_ptr<StreamHandler>> streams;
};

}  // namespace hidl_uvc_client
