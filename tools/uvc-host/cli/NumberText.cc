#include "cli/NumberText.h"

#include <cstdlib>

namespace uvc_host {

bool parseUnsigned(const std::string& text, uint64_t max, uint64_t* out) {
    if (text.empty() || text.size() > 19) {
        return false;
    }
    uint64_t value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') {
            return false;
        }
        value = value * 10 + uint64_t(c - '0');
    }
    if (value > max) {
        return false;
    }
    *out = value;
    return true;
}

bool parseSeconds(const std::string& text, double max, double* out) {
    bool digits = false;
    bool dot = false;
    for (char c : text) {
        if (c >= '0' && c <= '9') {
            digits = true;
        } else if (c == '.' && !dot) {
            dot = true;
        } else {
            return false;
        }
    }
    if (!digits) {
        return false;
    }
    double value = std::strtod(text.c_str(), nullptr);
    if (value > max) {
        return false;
    }
    *out = value;
    return true;
}

}  // namespace uvc_host
