#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace uvc_gadget {

// The library's camera-control messages, as the bridge builds and reads them.

// {"msg_type":"uvc_report","content":{"<name>":"set","value":"<value>"}}
std::string makeSetMessage(const std::string& name, int32_t value);
// {"msg_type":"uvc_report","content":{"<name>":"get"}}
std::string makeGetMessage(const std::string& name);
// The value a reply {"source":"app","response":{"<name>":"<value>"}} gives
// for `name`; nothing when `text` is no such reply or the value is not a
// whole number that fits 32 bits.
std::optional<int32_t> replyValue(const std::string& text, const std::string& name);

}  // namespace uvc_gadget
