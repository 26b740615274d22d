#include "session/JsonText.h"

namespace uvc_host {

bool isJsonObject(const std::string& text, std::string* error) {
    size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos || (text[first] != '{' && text[first] != '[')) {
        // json-c would say "null expected" or the like about the first letter.
        *error = "a message is a JSON object, starting with '{'";
        return false;
    }
    json_tokener* tok = json_tokener_new();
    JsonPtr obj(json_tokener_parse_ex(tok, text.c_str(), int(text.size())));
    json_tokener_error jerr = json_tokener_get_error(tok);
    size_t used = size_t(json_tokener_get_parse_end(tok));
    json_tokener_free(tok);
    if (!obj || jerr != json_tokener_success) {
        std::string why = jerr == json_tokener_continue ? "unexpected end of JSON text"
                                                        : json_tokener_error_desc(jerr);
        *error = why + " at column " + std::to_string(used + 1);
        return false;
    }
    size_t trailing = text.find_first_not_of(" \t\r\n", used);
    if (trailing != std::string::npos) {
        *error = "text after the JSON value at column " + std::to_string(trailing + 1);
        return false;
    }
    if (json_object_get_type(obj.get()) != json_type_object) {
        *error = "not a JSON object";
        return false;
    }
    return true;
}

}  // namespace uvc_host
