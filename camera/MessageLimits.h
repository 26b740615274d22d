#pragma once

#include <cstddef>
#include <string>

namespace uvc_client {

// Limits on one camera-control message, checked on its text before anything
// is parsed, so that the memory one message can take stays bounded (the
// numbers behind them are in MessageLimits.cc).
struct MessageLimits {
    static constexpr size_t kMaxBytes = 64 * 1024;
    // '{' and '[' outside strings and comments: a parsed object takes up to
    // about 2 KB.
    static constexpr size_t kMaxContainers = 64;
    // ',' and ':' outside strings and comments: about one per array element
    // and two per object member.
    static constexpr size_t kMaxSeparators = 2048;
};

// Structure of a message as the limits count it, outside strings and
// comments as json-c reads them: whatever json-c builds from the message holds
// at most `containers` objects and arrays and `separators` + `containers`
// members and elements.
struct MessageShape {
    size_t containers = 0;
    size_t separators = 0;
};

// Counts `message` whole; it need not be valid JSON (the parser judges that
// later). Allocates nothing.
MessageShape messageShape(const std::string& message);

// Empty when `message` is within the limits; otherwise one line (without line
// end) naming the limit it exceeds. Reads the text once and allocates only
// for the line.
std::string messageRefusal(const std::string& message);

}  // namespace uvc_client
