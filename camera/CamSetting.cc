#include "camera/CamSetting.h"

#include <cctype>
#include <cstdio>
#include <cstring>

namespace uvc_client {

CamSetting::CamSetting(const std::string& name, uvc_ctrl_t ctrl, int min, int max, int res, int def)
    : ctrl(ctrl), min(min), max(max), res(res), def(def), cur(NOT_SET), cur2(NOT_SET) {
    set_name(name.c_str());
}

CamSetting::CamSetting(const std::string& name, int min, int max, int res, int def)
    : name(name),
      ctrl(NO_CONTROL),
      min(min),
      max(max),
      res(res),
      def(def),
      cur(NOT_SET),
      cur2(NOT_SET) {}

CamSetting::~CamSetting() = default;

void CamSetting::set_name(const char* text) {
    if (text == nullptr) {
        text = "";
    }
    char buffer[kMaxNameLength + 1];
    memset(buffer, 0, sizeof(buffer));
    size_t length = 0;
    bool capitalizeNext = false;
    bool cut = false;
    for (const char* p = text; *p != '\0'; ++p) {
        // The ctype functions take an unsigned char value; plain char may be
        // signed and bytes above 127 would be out of their domain.
        const int lowered = tolower(static_cast<unsigned char>(*p));
        if (isalnum(lowered)) {
            if (length == kMaxNameLength) {
                cut = true;
                break;
            }
            buffer[length++] = static_cast<char>(capitalizeNext ? toupper(lowered) : lowered);
            capitalizeNext = false;
        } else if (lowered == '_' || lowered == '-') {
            capitalizeNext = true;
        }
    }
    buffer[length] = '\0';
    name = buffer;
    if (cut) {
        printf("set_name: name cut to its first %zu characters\n", kMaxNameLength);
    }
    printf("Camel back style: %s ==> %s", text, name.c_str());
}

}  // namespace uvc_client
