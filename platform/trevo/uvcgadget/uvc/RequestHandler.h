#pragma once

#include <linux/usb/ch9.h>
#include <linux/usb/g_uvc.h>

#include <cstdint>
#include <optional>
#include <set>
#include <string>

#include "uvc/ControlTable.h"
#include "uvc/GadgetFunction.h"
#include "uvc/ProbeCommit.h"

namespace uvc_gadget {

// How camera-control requests reach the library's settings table.
class SettingChannel {
public:
    virtual ~SettingChannel();
    virtual void set(const std::string& name, int32_t value) = 0;
    // The library's current value of the setting; nothing when it gave none.
    virtual std::optional<int32_t> get(const std::string& name) = 0;
};

// Answers the class-specific control requests of one UVC function, as the
// gadget delivers them (UVC_EVENT_SETUP, then UVC_EVENT_DATA for a request
// that carries data to the device):
// - streaming interface: the probe and commit controls (ProbeCommit);
// - control interface, camera terminal, processing unit and the extension
//   unit (when the function declares it): the controls of ControlTable. SET_CUR and GET_CUR go to
//   the library through a SettingChannel; GET_MIN/MAX/RES/DEF/INFO/LEN come from the table. A
//   setting the library reports as never written reads as the table's
//   default, unless this handler set it: the library's marker is a valid pan
//   or tilt. A value outside the range is brought into it before it is set;
// - control interface itself: the request-error-code control, which tells
//   the host why the last request stalled.
// Everything else stalls. Not thread-safe; used on the bridge's event thread.
class RequestHandler {
public:
    // The library reports this for a setting never written.
    static constexpr int32_t kNeverWritten = -255;

    RequestHandler(GadgetFunction function, SettingChannel& settings);
    // The probe/commit state refers to the function held here.
    RequestHandler(const RequestHandler&) = delete;
    RequestHandler& operator=(const RequestHandler&) = delete;

    // The response to send for a SETUP event (UVCIOC_SEND_RESPONSE): data for
    // a request to the host, an acknowledgement of wLength bytes for a request
    // with data to the device, or a negative length to stall.
    uvc_request_data setup(const usb_ctrlrequest& request);
    // Applies the data of the SET_CUR that setup() acknowledged last. True
    // when it was a commit (see probeCommit().committedFormat()).
    bool data(const uvc_request_data& data);

    const ProbeCommit& probeCommit() const { return probeCommit_; }
    const GadgetFunction& function() const { return function_; }

    // Values of the request-error-code control.
    enum ErrorCode : uint8_t {
        kNoError = 0x00,
        kOutOfRange = 0x04,
        kInvalidUnit = 0x05,
        kInvalidControl = 0x06,
        kInvalidRequest = 0x07,
    };
    uint8_t errorCode() const { return errorCode_; }

private:
    enum class Pending { None, Probe, Commit, Control };

    uvc_request_data streamingRequest(uint8_t request, uint8_t selector, uint16_t length);
    uvc_request_data controlRequest(uint8_t request, const ControlRow& row, uint16_t length);
    uvc_request_data interfaceRequest(uint8_t request, uint8_t selector, uint16_t length);
    uvc_request_data stall(ErrorCode code);
    uvc_request_data reply(const void* bytes, uint16_t size, uint16_t length);

    GadgetFunction function_;
    ProbeCommit probeCommit_;
    SettingChannel& settings_;
    Pending pending_ = Pending::None;
    const ControlRow* pendingRow_ = nullptr;
    uint8_t errorCode_ = kNoError;
    std::set<std::string> written_;  // settings a host set through this handler
};

}  // namespace uvc_gadget
