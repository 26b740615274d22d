#pragma once

#include <string>

namespace uvc_host {

// True when text is one JSON object; otherwise error says why, in a few words.
bool isJsonObject(const std::string& text, std::string* error);

}  // namespace uvc_host
