#pragma once

#include <cstdint>
#include <string>

namespace uvc_host {

// Strict decimal parsing for command-line values: digits only, no sign, no
// spaces, no trailing text, and not above `max`.
bool parseUnsigned(const std::string& text, uint64_t max, uint64_t* out);
// A non-negative decimal number such as "2", "0.5" or "10.25"; rejects
// "nan", "inf", exponents and anything above `max`.
bool parseSeconds(const std::string& text, double max, double* out);

}  // namespace uvc_host
