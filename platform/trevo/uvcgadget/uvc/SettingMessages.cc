#include "uvc/SettingMessages.h"

#include <json-c/json.h>

#include <cerrno>
#include <cstdlib>
#include <memory>

namespace uvc_gadget {

namespace {

struct JsonPut {
    void operator()(json_object* object) const { json_object_put(object); }
};
using JsonPtr = std::unique_ptr<json_object, JsonPut>;

std::string reportMessage(const std::string& name, const char* operation, const char* value) {
    JsonPtr message(json_object_new_object());
    json_object* content = json_object_new_object();
    json_object_object_add(content, name.c_str(), json_object_new_string(operation));
    if (value != nullptr)
        json_object_object_add(content, "value", json_object_new_string(value));
    json_object_object_add(message.get(), "msg_type", json_object_new_string("uvc_report"));
    json_object_object_add(message.get(), "content", content);
    return json_object_to_json_string_ext(message.get(), JSON_C_TO_STRING_PLAIN);
}

}  // namespace

std::string makeSetMessage(const std::string& name, int32_t value) {
    return reportMessage(name, "set", std::to_string(value).c_str());
}

std::string makeGetMessage(const std::string& name) {
    return reportMessage(name, "get", nullptr);
}

std::optional<int32_t> replyValue(const std::string& text, const std::string& name) {
    JsonPtr root(json_tokener_parse(text.c_str()));
    json_object* response = nullptr;
    json_object* value = nullptr;
    if (!root || !json_object_object_get_ex(root.get(), "response", &response) ||
        !json_object_object_get_ex(response, name.c_str(), &value) ||
        !json_object_is_type(value, json_type_string))
        return std::nullopt;
    const char* digits = json_object_get_string(value);
    char* end = nullptr;
    errno = 0;
    const long long number = strtoll(digits, &end, 10);
    if (errno != 0 || end == digits || *end != '\0' || number < INT32_MIN || number > INT32_MAX)
        return std::nullopt;
    return static_cast<int32_t>(number);
}

}  // namespace uvc_gadget
