#include "session/JsonText.h"

#include <json-c/json.h>

namespace uvc_host {

bool isJsonObject(const std::string& text, std::string* error) {
    json_tokener* tok = json_tokener_new();
    json_object* obj = json_tokener_parse_ex(tok, text.c_str(), int(text.size()));
    json_tokener_error jerr = json_tokener_get_error(tok);
    size_t used = size_t(json_tokener_get_parse_end(tok));
    json_tokener_free(tok);
    bool ok = obj && jerr == json_tokener_success;
    if (!ok) {
        *error = jerr == json_tokener_continue ? "unexpected end of JSON text"
                                               : json_tokener_error_desc(jerr);
    } else if (text.find_first_not_of(" \t\r\n", used) != std::string::npos) {
        ok = false;
        *error = "text after the JSON value";
    } else if (json_object_get_type(obj) != json_type_object) {
        ok = false;
        *error = "not a JSON object";
    }
    json_object_put(obj);
    return ok;
}

}  // namespace uvc_host
