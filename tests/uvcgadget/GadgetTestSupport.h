#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "support/TempDir.h"
#include "uvc/GadgetFunction.h"
#include "uvc/RequestHandler.h"

namespace gadget_test {

using uvc_test::TempDir;

// YUYV (640x480, 1280x720) then MJPEG (640x480), as a gadget script declares.
inline uvc_gadget::GadgetFunction twoFormats() {
    using namespace uvc_gadget;
    GadgetFunction f;
    f.endpoint = StreamingEndpoint::fromAttributes(3072, 1);
    f.extensionUnitId = 4;
    FormatDesc yuyv;
    yuyv.index = 1;
    yuyv.fourcc = fourcc('Y', 'U', 'Y', 'V');
    yuyv.defaultFrameIndex = 2;
    yuyv.frames = {{1, 640, 480, {333333, 666666}, 333333, 640 * 480 * 2},
                   {2, 1280, 720, {333333, 1000000}, 1000000, 1280 * 720 * 2}};
    FormatDesc mjpeg;
    mjpeg.index = 2;
    mjpeg.fourcc = fourcc('M', 'J', 'P', 'G');
    mjpeg.compressed = true;
    mjpeg.frames = {{1, 640, 480, {333333}, 333333, 300000}};
    f.formats = {yuyv, mjpeg};
    return f;
}

// The library's settings table as far as the tests need it: records every
// set and answers get with the recorded value (nothing for an unknown name).
class FakeSettings : public uvc_gadget::SettingChannel {
public:
    void set(const std::string& name, int32_t value) override {
        sets.emplace_back(name, value);
        values[name] = value;
    }
    std::optional<int32_t> get(const std::string& name) override {
        gets.push_back(name);
        auto it = values.find(name);
        if (it == values.end())
            return std::nullopt;
        return it->second;
    }

    std::map<std::string, int32_t> values;
    std::vector<std::pair<std::string, int32_t>> sets;
    std::vector<std::string> gets;
};

}  // namespace gadget_test
