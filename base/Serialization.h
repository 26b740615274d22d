#pragma once

#include <string>
#include <vector>

#include "base/Dictionary.h"
#include "uvc_export.h"

namespace VOLUT {

// JSON text <-> Dictionary, through json-c. Members are written in
// Dictionary::allKeys() order. When parsing, a JSON array takes the kind of its
// first element and elements of other kinds are dropped; members that no kind
// can hold (null, empty arrays, arrays of arrays) are left out.
// No operation throws: when memory runs out the result is empty and one error
// line is logged.
class UVC_EXPORT Serialization {
public:
    static std::string serialize(const Dictionary& dict);
    // An empty record when the text is not JSON (one error line is logged) or
    // its top-level value is not an object (silently).
    static Dictionary deserialize(const std::string& text);
    static std::string serializeArray(const std::vector<Dictionary>& list);
    // An empty vector when the text is not a JSON array; never logs.
    static std::vector<Dictionary> deserializeArray(const std::string& text);
};

// Copy of `text` in which the value of every `Password":"` member is replaced
// by one asterisk, for any diagnostic that wants to show rejected input. Internal to
// the library (not exported).
std::string maskPasswordValue(const std::string& text);

}  // namespace VOLUT
