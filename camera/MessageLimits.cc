#include "camera/MessageLimits.h"

#include <cstdio>

namespace uvc_client {

// Heap taken by parsing one message (json-c's tree plus the Dictionary made
// from it, at their common peak), per byte of text, measured on x86-64 with
// json-c 0.16 (a 32-bit device needs roughly 60 % of it):
//
//   text of the message                              unlimited    within limits
//   one long comment (/* */ or //)                       1 B/B        1 B/B
//   one long string or key (either quote)                3 B/B        3 B/B
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
// (2,047 strings of 29 bytes, in either quote: single-quoted strings cost
// what double-quoted ones do), 8.3 times the byte cap; a typical one-entry
// "get" takes 3.3 KB.

// The count follows json-c's default (non-strict) reading, as its 0.16
// tokenizer has it, since what json-c takes for structure is what costs:
// - A string opens with '"' or '\'' (values and names alike) and ends at the
//   same quote; the other quote is plain text inside it. A backslash takes
//   the next byte with it.
// - Outside strings, "/*" opens a comment that ends at "*/", but the byte
//   after a '*' is never itself taken for a '*' ("**/" and "/***/" end
//   nothing, "***/" does); "//" opens one that ends at '\n' ('\r' does not).
//   A comment costs its bytes only, which the byte cap has.
// - json-c stops at the first NUL, after the first whole value and at the
//   first error (a '/' opening no comment, an escape it does not know such
//   as \'); after that it builds nothing, whatever the count makes of the rest.
// Up to there the scanner must be in a string or comment exactly where json-c
// is: one step out of line lets the structure behind it through uncounted
// (end a comment at "**/" and `/* **/ " */ [{},...]` hides every object after
// the quote), hence the quirks. In doubt it counts rather than skips, as for
// a '/' that opens no comment: the fault that matters is thinking itself in a
// string or comment where json-c is not.
MessageShape messageShape(const std::string& text) {
    enum class In { kStructure, kString, kEscape, kSlash, kComment, kCommentStar, kLineComment };
    MessageShape shape;
    In in = In::kStructure;
    char quote = 0;
    for (const char c : text) {
        switch (in) {
            case In::kString:
                if (c == '\\') {
                    in = In::kEscape;
                } else if (c == quote) {
                    in = In::kStructure;
                }
                continue;
            case In::kEscape:
                in = In::kString;
                continue;
            case In::kComment:
                if (c == '*') {
                    in = In::kCommentStar;
                }
                continue;
            case In::kCommentStar:
                in = c == '/' ? In::kStructure : In::kComment;
                continue;
            case In::kLineComment:
                if (c == '\n') {
                    in = In::kStructure;
                }
                continue;
            case In::kSlash:
                if (c == '*' || c == '/') {
                    in = c == '*' ? In::kComment : In::kLineComment;
                    continue;
                }
                in = In::kStructure;  // json-c stops here; `c` is counted all the same
                break;
            case In::kStructure:
                break;
        }
        switch (c) {
            case '"':
            case '\'':
                quote = c;
                in = In::kString;
                break;
            case '/':
                in = In::kSlash;
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
