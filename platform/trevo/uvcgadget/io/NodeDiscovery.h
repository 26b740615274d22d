#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace uvc_gadget {

// One UVC function's video node, its configfs directory and the stream
// numbers the library knows it by.
struct GadgetNode {
    std::string videoPath;    // "/dev/video0"
    std::string functionDir;  // ".../usb_gadget/g1/functions/uvc.0"
    uint8_t streamId = 0;
    uint8_t streamIdx = 0;
};

// The library names at most eight streams, 0:0 to 0:3 and 1:0 to 1:3; the
// n-th node (from 0) becomes stream n / 4 : n % 4.
constexpr size_t kMaxStreams = 8;

// Finds the UVC gadget functions' video nodes. With a list given (the
// bridge's UVC_GADGET_NODES: "VIDEO[=FUNCTIONDIR],..."), its entries in
// order; a missing FUNCTIONDIR is looked up like a found node's. Otherwise
// every video node that names its gadget function (sysfs
// "<sysClass>/videoN/function_name"), ordered by function name, so that
// "uvc.0" is stream 0:0 and "uvc.1" stream 0:1. A node's function
// directory is "<configfs>/usb_gadget/*/functions/<function name>",
// preferring a gadget bound to a controller. Nodes past kMaxStreams are left
// out with a line in `notes`, as are nodes whose directory is not found.
class NodeDiscovery {
public:
    NodeDiscovery(std::string sysClassDir, std::string configfsRoot, std::string devDir);
    std::vector<GadgetNode> find(const std::string& list, std::vector<std::string>& notes) const;

private:
    std::string functionDirOf(const std::string& functionName) const;
    std::string functionNameOf(const std::string& videoPath) const;

    std::string sysClassDir_;
    std::string configfsRoot_;
    std::string devDir_;
};

}  // namespace uvc_gadget
