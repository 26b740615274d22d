#include "camera/MessageLimits.h"

#include <cstdio>

namespace uvc_client {

// Heap taken by parsing one message (json-c's tree plus the Dictionary made
// from it, at their common peak), per byte of text, measured on x86-64 with
// json-c 0.16 (a 32-bit device needs roughly 60 % of it):
//
//   text of the message                              unlimited    within limits
//   one long string or key                               3 B/B        3 B/B
//   members {"0":1,"1":1,...}                           28 B/B       32 B/B
//   array of small integers [1,1,...]                   44 B/B       44 B/B
//   array of empty strings ["","",...]                  56 B/B       51 B/B
//   array of objects [{"a":1},...]                     253 B/B      254 B/B
//   array of empty objects [{},{},...]                 671 B/B      579 B/B
//
// Unlimited, a message costs up to 671 times its size (a 50 MB array of
// integers took 2.1 GB). Objects and arrays are the dear part, members and
// elements the next, and only text is cheap; so besides the byte cap there is
// a cap on each. Within all three the worst message measured took 541 KB
// (2,047 strings of 29 bytes), 8.3 times the byte cap; a typical one-entry
// "get" takes 3.3 KB.

// Counts the structure outside strings.
MessageShape messageShape(const std::string& text) {
    MessageShape shape;
    bool inString = false;
    bool escaped = false;
    for (const char c : text) {
        if (inString) {
            if (escaped) {
                escaped = false;
            } else if (c == '\\') {
                escaped = true;
            } else if (c == '"') {
                inString = false;
            }
            continue;
        }
        switch (c) {
            case '"':
                inString = true;
                break;
            case '{':
            case '[':
                ++shape.containers;
                break;
            case ',':
            case ':':
                ++shape.separators;
                break;
            default:
                break;
        }
    }
    return shape;
}

namespace {

std::string refusal(const char* what, size_t count, size_t limit) {
    char line[128];
    snprintf(line, sizeof(line), "message refused: %zu %s, the limit is %zu", count, what, limit);
    return line;
}

}  // namespace

std::string messageRefusal(const std::string& message) {
    if (message.size() > MessageLimits::kMaxBytes) {
        return refusal("bytes", message.size(), MessageLimits::kMaxBytes);
    }
    const MessageShape shape = messageShape(message);
    if (shape.containers > MessageLimits::kMaxContainers) {
        return refusal("objects and arrays", shape.containers, MessageLimits::kMaxContainers);
    }
    if (shape.separators > MessageLimits::kMaxSeparators) {
        return refusal("commas and colons", shape.separators, MessageLimits::kMaxSeparators);
    }
    return std::string();
}

}  // namespace uvc_client
