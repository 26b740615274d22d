#include "link/StreamKey.h"

#include "cli/NumberText.h"

namespace uvc_host {

std::string StreamKey::text() const {
    return std::to_string(int(id)) + ":" + std::to_string(int(idx));
}

bool StreamKey::parse(const std::string& text, StreamKey* out) {
    size_t colon = text.find(':');
    if (colon == std::string::npos) {
        return false;
    }
    uint64_t id = 0;
    uint64_t idx = 0;
    if (!parseUnsigned(text.substr(0, colon), 255, &id) ||
        !parseUnsigned(text.substr(colon + 1), 255, &idx)) {
        return false;
    }
    out->id = uint8_t(id);
    out->idx = uint8_t(idx);
    return true;
}

std::vector<StreamKey> StreamKey::all() {
    std::vector<StreamKey> keys;
    for (uint8_t id = 0; id < 2; ++id) {
        for (uint8_t idx = 0; idx < 4; ++idx) {
            keys.push_back({id, idx});
        }
    }
    return keys;
}

}  // namespace uvc_host
