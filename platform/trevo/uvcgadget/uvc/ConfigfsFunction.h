#pragma once

#include <string>

#include "uvc/GadgetFunction.h"

namespace uvc_gadget {

// Reads a UVC function's declaration from its configfs directory
// (".../usb_gadget/<gadget>/functions/uvc.<name>"): interface numbers,
// terminal and unit ids (the extension unit's by kExtensionGuid), the
// streaming endpoint (streaming_maxpacket and streaming_interval) and every
// format under streaming/uncompressed and streaming/mjpeg that has a
// bFormatIndex, that is every format linked into the streaming header.
// Uncompressed formats are known by their GUID (YUY2, NV12, I420); others
// are skipped with a reason. An uncompressed frame interval the endpoint
// cannot carry is dropped with a warning naming the mode and both
// bandwidths, so that probe never answers it (the host still reads it in
// the kernel's descriptors); a frame left without intervals goes, and so
// does a format left without frames.
class ConfigfsFunction : public FunctionSource {
public:
    explicit ConfigfsFunction(std::string functionDir);
    bool load(GadgetFunction& function, std::string& error) override;

private:
    std::string dir_;
};

}  // namespace uvc_gadget
