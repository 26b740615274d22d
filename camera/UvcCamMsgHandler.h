#pragma once

#include <string>

namespace trevo {
class CompositorBridge;
}

namespace VOLUT {
class Dictionary;
}

namespace uvc_client {

// Handles the host's camera-control messages (JSON text from the compositor
// bridge): writes settings, answers "get" entries through the bridge and
// passes preset and parameter requests on. Stateless; takes no lock.
//
// Report message:    {"msg_type":"uvc_report","content":{"<setting>":"get"|"set"|<value>,...}}
// Parameter message: {"type":..,"param":<ctrl>,"value":<int>,"value2":<int>}
class UvcCamMsgHandler {
public:
    UvcCamMsgHandler() = default;
    virtual ~UvcCamMsgHandler();

    // Returns after every reply has been handed to `bridge`. A message beyond
    // MessageLimits is refused with one line, unparsed. Never prints the value
    // of a member named Password (it shows as *). Throws nothing: a failure
    // drops the rest of the message with one line.
    void handleMessage(const std::string& message, trevo::CompositorBridge& bridge);

private:
    void handleReport(const VOLUT::Dictionary& message, trevo::CompositorBridge& bridge);
    void handleContentEntry(const VOLUT::Dictionary& content, const std::string& key,
                            trevo::CompositorBridge& bridge);
    void handleParam(const VOLUT::Dictionary& message);
};

}  // namespace uvc_client
