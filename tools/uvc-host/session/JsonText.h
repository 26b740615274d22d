#pragma once

#include <json-c/json.h>

#include <memory>
#include <string>

namespace uvc_host {

struct JsonDeleter {
    void operator()(json_object* o) const { json_object_put(o); }
};
// Owns one reference to a json-c value.
using JsonPtr = std::unique_ptr<json_object, JsonDeleter>;

// True when text is one JSON object; otherwise error says why in a few words
// and, for text that stops parsing, at which column (counted from 1).
bool isJsonObject(const std::string& text, std::string* error);

}  // namespace uvc_host
