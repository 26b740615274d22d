#include "uvc/RequestHandler.h"

#include <endian.h>
#include <linux/usb/video.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace uvc_gadget {

namespace {

// GET_INFO bits: the control supports GET and SET requests.
constexpr uint8_t kInfoGetSet = 0x03;
constexpr uint8_t kInfoGet = 0x01;

// The interface numbers of 6.12's events (its g_uvc.h; 6.1's has none).
constexpr uint8_t kKernelControlIndex = 0;
constexpr uint8_t kKernelStreamingIndex = 1;

}  // namespace

SettingChannel::~SettingChannel() = default;

RequestHandler::RequestHandler(GadgetFunction function, SettingChannel& settings)
    : function_(std::move(function)), probeCommit_(function_), settings_(settings) {}

uvc_request_data RequestHandler::stall(ErrorCode code) {
    errorCode_ = code;
    pending_ = Pending::None;
    uvc_request_data response = {};
    response.length = -EPIPE;
    return response;
}

uvc_request_data RequestHandler::reply(const void* bytes, uint16_t size, uint16_t length) {
    errorCode_ = kNoError;
    uvc_request_data response = {};
    const uint16_t n = std::min<uint16_t>({size, length, uint16_t(sizeof(response.data))});
    memcpy(response.data, bytes, n);
    response.length = n;
    return response;
}

uvc_request_data RequestHandler::setup(const usb_ctrlrequest& request) {
    pending_ = Pending::None;
    if ((request.bRequestType & USB_TYPE_MASK) != USB_TYPE_CLASS ||
        (request.bRequestType & USB_RECIP_MASK) != USB_RECIP_INTERFACE)
        return stall(kInvalidRequest);
    const uint16_t index = le16toh(request.wIndex);
    uint8_t interface = index & 0xff;
    // 6.12's function hands on 0 for its control interface and 1 for its
    // streaming one (UVC_STRING_CONTROL_IDX, UVC_STRING_STREAMING_IDX), 6.1's
    // the host's numbers; a number that is neither of the function's own is
    // read the 6.12 way.
    if (interface != function_.controlInterface && interface != function_.streamingInterface) {
        if (interface == kKernelControlIndex)
            interface = function_.controlInterface;
        else if (interface == kKernelStreamingIndex)
            interface = function_.streamingInterface;
    }
    const uint8_t entity = index >> 8;
    const uint8_t selector = le16toh(request.wValue) >> 8;
    const uint16_t length = le16toh(request.wLength);
    const bool toDevice = (request.bRequestType & USB_DIR_IN) == 0;
    if (toDevice != (request.bRequest == UVC_SET_CUR))
        return stall(kInvalidRequest);

    if (interface == function_.streamingInterface && entity == 0)
        return streamingRequest(request.bRequest, selector, length);
    if (interface != function_.controlInterface)
        return stall(kInvalidUnit);
    if (entity == 0)
        return interfaceRequest(request.bRequest, selector, length);
    const ControlRow* row = nullptr;
    if (entity == function_.cameraTerminalId) {
        row = findControl(Entity::CameraTerminal, selector);
    } else if (entity == function_.processingUnitId) {
        row = findControl(Entity::ProcessingUnit, selector);
    } else if (entity == function_.extensionUnitId) {
        row = findControl(Entity::ExtensionUnit, selector);
    } else {
        return stall(kInvalidUnit);
    }
    if (row == nullptr)
        return stall(kInvalidControl);
    return controlRequest(request.bRequest, *row, length);
}

uvc_request_data RequestHandler::streamingRequest(uint8_t request, uint8_t selector,
                                                  uint16_t length) {
    if (selector != UVC_VS_PROBE_CONTROL && selector != UVC_VS_COMMIT_CONTROL)
        return stall(kInvalidControl);
    const bool probe = selector == UVC_VS_PROBE_CONTROL;
    const uint16_t size = probeCommit_.controlSize();
    uvc_streaming_control control = {};
    switch (request) {
        case UVC_SET_CUR:
            if (length < size)
                return stall(kInvalidRequest);
            pending_ = probe ? Pending::Probe : Pending::Commit;
            errorCode_ = kNoError;
            return uvc_request_data{length, {}};
        case UVC_GET_CUR:
            control = probe ? probeCommit_.probe() : probeCommit_.committed();
            break;
        case UVC_GET_MIN:
        case UVC_GET_MAX:
        case UVC_GET_DEF:
            if (!probe)
                return stall(kInvalidRequest);
            control = request == UVC_GET_MIN   ? probeCommit_.minimum()
                      : request == UVC_GET_MAX ? probeCommit_.maximum()
                                               : probeCommit_.defaults();
            break;
        case UVC_GET_LEN: {
            const uint16_t le = htole16(size);
            return reply(&le, sizeof(le), length);
        }
        case UVC_GET_INFO:
            return reply(&kInfoGetSet, 1, length);
        default:
            return stall(kInvalidRequest);
    }
    return reply(&control, size, length);
}

uvc_request_data RequestHandler::controlRequest(uint8_t request, const ControlRow& row,
                                                uint16_t length) {
    uint8_t value[8] = {};
    auto fill = [&](int32_t first, int32_t second) {
        encodeField(row, first, 0, value);
        if (row.fields() == 2)
            encodeField(row, second, 1, value);
        return reply(value, row.length(), length);
    };
    switch (request) {
        case UVC_SET_CUR:
            if (length < row.length())
                return stall(kInvalidRequest);
            pending_ = Pending::Control;
            pendingRow_ = &row;
            errorCode_ = kNoError;
            return uvc_request_data{length, {}};
        case UVC_GET_CUR: {
            int32_t current[2];
            const char* names[2] = {row.name, row.name2};
            for (unsigned f = 0; f < row.fields(); ++f) {
                const std::optional<int32_t> v = settings_.get(names[f]);
                const bool unset = !v || (*v == kNeverWritten && written_.count(names[f]) == 0);
                current[f] = unset ? row.def : *v;
            }
            return fill(current[0], row.fields() == 2 ? current[1] : 0);
        }
        case UVC_GET_MIN:
            return fill(row.min, row.min);
        case UVC_GET_MAX:
            return fill(row.max, row.max);
        case UVC_GET_RES:
            return fill(row.res, row.res);
        case UVC_GET_DEF:
            return fill(row.def, row.def);
        case UVC_GET_LEN: {
            const uint16_t le = htole16(row.length());
            return reply(&le, sizeof(le), length);
        }
        case UVC_GET_INFO:
            return reply(&kInfoGetSet, 1, length);
        default:
            return stall(kInvalidRequest);
    }
}

uvc_request_data RequestHandler::interfaceRequest(uint8_t request, uint8_t selector,
                                                  uint16_t length) {
    if (selector != UVC_VC_REQUEST_ERROR_CODE_CONTROL)
        return stall(kInvalidControl);
    // Reading the error code must not reset it before it is sent.
    const uint8_t code = errorCode_;
    uvc_request_data response;
    if (request == UVC_GET_CUR) {
        response = reply(&code, 1, length);
    } else if (request == UVC_GET_INFO) {
        response = reply(&kInfoGet, 1, length);
    } else {
        return stall(kInvalidRequest);
    }
    errorCode_ = code;
    return response;
}

bool RequestHandler::data(const uvc_request_data& data) {
    const Pending pending = std::exchange(pending_, Pending::None);
    const uint16_t size = probeCommit_.controlSize();
    const size_t received = data.length > 0 ? size_t(data.length) : 0;
    if (pending == Pending::Probe || pending == Pending::Commit) {
        if (received < size)
            return false;
        // A 1.0 host sends the shorter control; the fields it lacks stay 0.
        uvc_streaming_control control = {};
        memcpy(&control, data.data, std::min<size_t>(received, sizeof(control)));
        if (pending == Pending::Probe) {
            probeCommit_.setProbe(control);
            return false;
        }
        probeCommit_.commit(control);
        return true;
    }
    if (pending == Pending::Control && received >= pendingRow_->length()) {
        const ControlRow& row = *pendingRow_;
        const char* names[2] = {row.name, row.name2};
        for (unsigned f = 0; f < row.fields(); ++f) {
            const int32_t wanted = decodeField(row, data.data, f);
            const int32_t value = clampToRange(row, wanted);
            // The data stage is over, so the request can no longer stall; the
            // error code still tells a host that asks.
            if (value != wanted)
                errorCode_ = kOutOfRange;
            settings_.set(names[f], value);
            written_.insert(names[f]);
        }
    }
    return false;
}

}  // namespace uvc_gadget
