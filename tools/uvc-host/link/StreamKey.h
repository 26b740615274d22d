#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace uvc_host {

// The pair of stream numbers naming one UVC stream, written "id:idx".
struct StreamKey {
    uint8_t id = 0;
    uint8_t idx = 0;

    std::string text() const;
    // One of the eight streams the client serves (see all()).
    bool isUvcStream() const { return id < 2 && idx < 4; }
    bool operator==(const StreamKey& o) const { return id == o.id && idx == o.idx; }
    bool operator<(const StreamKey& o) const { return id != o.id ? id < o.id : idx < o.idx; }

    // "0:0" .. "255:255"; false for anything else (no signs, spaces or extra text).
    static bool parse(const std::string& text, StreamKey* out);
    // The eight streams the client serves: 0:0..0:3 and 1:0..1:3.
    static std::vector<StreamKey> all();
};

}  // namespace uvc_host
