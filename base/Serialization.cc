#include "base/Serialization.h"

#include <json-c/json.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <exception>
#include <memory>

#include "base/Log.h"

namespace VOLUT {

namespace {

struct JsonPut {
    void operator()(json_object* obj) const { json_object_put(obj); }
};
// A json-c value released however the operation ends (an allocation of ours
// may throw while it is being built or read).
using JsonRoot = std::unique_ptr<json_object, JsonPut>;

// json-c leaves `val` with the caller when adding fails; release it so that
// nothing leaks on allocation failure.
void addMember(json_object* obj, const std::string& key, json_object* val) {
    if (json_object_object_add(obj, key.c_str(), val) != 0) {
        json_object_put(val);
    }
}

void addElement(json_object* array, json_object* val) {
    if (json_object_array_add(array, val) != 0) {
        json_object_put(val);
    }
}

// json-c strings may hold NUL characters; the record keeps the text up to the
// first one.
std::string textOf(json_object* value) {
    const char* text = json_object_get_string(value);
    return text ? std::string(text) : std::string();
}

template <typename T, typename Make>
json_object* makeArray(const std::vector<T>& values, Make make) {
    JsonRoot array(json_object_new_array());
    if (!array) {
        return nullptr;
    }
    for (const auto& value : values) {
        addElement(array.get(), make(value));
    }
    return array.release();
}

json_object* objectToJSONObject(const Dictionary& dict);

json_object* newString(const std::string& s) {
    return json_object_new_string(s.c_str());
}
json_object* newInt(long long v) {
    return json_object_new_int64(v);
}
// Where long double is wider than double, values beyond the double range
// become infinities explicitly instead of through an out-of-range cast.
json_object* newDouble(long double v) {
    if (v > DBL_MAX) {
        return json_object_new_double(HUGE_VAL);
    }
    if (v < -DBL_MAX) {
        return json_object_new_double(-HUGE_VAL);
    }
    return json_object_new_double(static_cast<double>(v));
}
json_object* newBoolean(bool v) {
    return json_object_new_boolean(v);
}

json_object* valueToJSON(const Dictionary& dict, const std::string& key) {
    switch (dict.getType(key)) {
        case Dictionary::Integer:
            return newInt(dict.getInteger(key));
        case Dictionary::String:
            return newString(dict.getString(key));
        case Dictionary::Decimal:
            return newDouble(dict.getDecimal(key));
        case Dictionary::Boolean:
            return newBoolean(dict.getBoolean(key));
        case Dictionary::Object:
            return objectToJSONObject(dict.getObject(key));
        case Dictionary::IntegerArray:
            return makeArray(dict.getIntegerArray(key), newInt);
        case Dictionary::StringArray:
            return makeArray(dict.getStringArray(key), newString);
        case Dictionary::DecimalArray:
            return makeArray(dict.getDecimalArray(key), newDouble);
        case Dictionary::BooleanArray:
            return makeArray(dict.getBooleanArray(key), newBoolean);
        case Dictionary::ObjectArray:
            return makeArray(dict.getObjectArray(key), objectToJSONObject);
        default:
            return nullptr;
    }
}

json_object* objectToJSONObject(const Dictionary& dict) {
    JsonRoot obj(json_object_new_object());
    if (!obj) {
        return nullptr;
    }
    for (const auto& key : dict.allKeys()) {
        addMember(obj.get(), key, valueToJSON(dict, key));
    }
    return obj.release();
}

// Takes ownership of `root`.
std::string toText(json_object* value) {
    JsonRoot root(value);
    if (!root) {
        return std::string();
    }
    return json_object_to_json_string(root.get());
}

Dictionary JSONObjectToObject(json_object* obj);

void convertJSONObjectArrayToDictionary(const std::string& key, json_object* array, int count,
                                        Dictionary& target) {
    std::vector<Dictionary> objects;
    for (int i = 0; i < count; ++i) {
        json_object* element = json_object_array_get_idx(array, i);
        if (json_object_get_type(element) == json_type_object) {
            objects.push_back(JSONObjectToObject(element));
        }
    }
    target.setObjectArray(key, objects);
}

// Collects the elements of exactly `type`, converted by `get`.
template <typename T, typename Get>
std::vector<T> elementsOfType(json_object* array, int count, json_type type, Get get) {
    std::vector<T> values;
    for (int i = 0; i < count; ++i) {
        json_object* element = json_object_array_get_idx(array, i);
        if (json_object_get_type(element) == type) {
            values.push_back(get(element));
        }
    }
    return values;
}

bool booleanOf(json_object* v) {
    return json_object_get_boolean(v) == 1;
}
long double decimalOf(json_object* v) {
    return json_object_get_double(v);
}
long long integerOf(json_object* v) {
    return json_object_get_int64(v);
}

void storeArray(Dictionary& dict, const std::string& key, json_object* array) {
    size_t length = json_object_array_length(array);
    if (length < 1) {
        return;
    }
    int count = length > static_cast<size_t>(INT_MAX) ? INT_MAX : static_cast<int>(length);
    json_object* first = json_object_array_get_idx(array, 0);
    if (!first) {
        return;
    }
    switch (json_object_get_type(first)) {
        case json_type_boolean:
            dict.setBooleanArray(key,
                                 elementsOfType<bool>(array, count, json_type_boolean, booleanOf));
            break;
        case json_type_double:
            dict.setDecimalArray(
                key, elementsOfType<long double>(array, count, json_type_double, decimalOf));
            break;
        case json_type_int:
            dict.setIntegerArray(key,
                                 elementsOfType<long long>(array, count, json_type_int, integerOf));
            break;
        case json_type_object:
            convertJSONObjectArrayToDictionary(key, array, count, dict);
            break;
        case json_type_string:
            dict.setStringArray(
                key, elementsOfType<std::string>(array, count, json_type_string, textOf));
            break;
        default:  // arrays of arrays have no kind
            break;
    }
}

// Recursion depth is bounded by the json-c tokener's nesting limit, since
// only parsed values come here.
Dictionary JSONObjectToObject(json_object* obj) {
    Dictionary dict;
    if (!obj || json_object_get_type(obj) != json_type_object) {
        return dict;
    }
    lh_table* members = json_object_get_object(obj);
    if (!members) {
        return dict;
    }
    for (lh_entry* entry = lh_table_head(members); entry; entry = lh_entry_next(entry)) {
        std::string key(static_cast<const char*>(lh_entry_k(entry)));
        json_object* value = static_cast<json_object*>(lh_entry_v(entry));
        switch (json_object_get_type(value)) {
            case json_type_boolean:
                dict.setBoolean(key, booleanOf(value));
                break;
            case json_type_double:
                dict.setDecimal(key, decimalOf(value));
                break;
            case json_type_int:
                dict.setInteger(key, integerOf(value));
                break;
            case json_type_object:
                dict.setObject(key, JSONObjectToObject(value));
                break;
            case json_type_string:
                dict.setString(key, textOf(value));
                break;
            case json_type_array:
                storeArray(dict, key, value);
                break;
            default:  // null
                break;
        }
    }
    return dict;
}

}  // namespace

// Every operation below is a boundary of the base library: a value or text
// too large for the memory left ends in an empty result and one error line,
// never in an exception at the caller.

std::string Serialization::serialize(const Dictionary& dict) {
    try {
        return toText(objectToJSONObject(dict));
    } catch (const std::exception& e) {
        Log::log("VOLUT", LOG_ERROR, "JSON writing failed: %s", e.what());
        return std::string();
    }
}

Dictionary Serialization::deserialize(const std::string& text) {
    json_tokener_error error = json_tokener_success;
    JsonRoot root(json_tokener_parse_verbose(text.c_str(), &error));
    if (!root) {
        // The input is deliberately left out of the line: it may carry
        // credentials (see maskPasswordValue).
        Log::log("VOLUT", LOG_ERROR, "JSON parsing error");
        return Dictionary();
    }
    try {
        return JSONObjectToObject(root.get());
    } catch (const std::exception& e) {
        Log::log("VOLUT", LOG_ERROR, "JSON conversion failed: %s", e.what());
        return Dictionary();
    }
}

std::string Serialization::serializeArray(const std::vector<Dictionary>& list) {
    try {
        return toText(makeArray(list, objectToJSONObject));
    } catch (const std::exception& e) {
        Log::log("VOLUT", LOG_ERROR, "JSON writing failed: %s", e.what());
        return std::string();
    }
}

std::vector<Dictionary> Serialization::deserializeArray(const std::string& text) {
    JsonRoot root(json_tokener_parse(text.c_str()));
    if (!root || json_object_get_type(root.get()) != json_type_array) {
        return {};
    }
    try {
        std::vector<Dictionary> list;
        size_t length = json_object_array_length(root.get());
        for (size_t i = 0; i < length; ++i) {
            json_object* element = json_object_array_get_idx(root.get(), i);
            if (element) {
                list.push_back(JSONObjectToObject(element));
            }
        }
        return list;
    } catch (const std::exception& e) {
        Log::log("VOLUT", LOG_ERROR, "JSON conversion failed: %s", e.what());
        return {};
    }
}

namespace {

// End of the string value that starts at `start`: its closing quote (an
// escaped quote, after an odd run of backslashes, is part of the value), or
// npos when the text ends first.
size_t closingQuote(const std::string& text, size_t start) {
    for (size_t end = start;; ++end) {
        end = text.find('"', end);
        if (end == std::string::npos) {
            return end;
        }
        size_t slashes = 0;
        while (end - slashes > start && text[end - slashes - 1] == '\\') {
            ++slashes;
        }
        if (slashes % 2 == 0) {
            return end;
        }
    }
}

}  // namespace

std::string maskPasswordValue(const std::string& text) {
    static const std::string kKeyText = "Password\":\"";
    std::string masked;
    size_t from = 0;
    for (;;) {
        const size_t pos = text.find(kKeyText, from);
        const size_t start = pos == std::string::npos ? pos : pos + kKeyText.size();
        if (pos == std::string::npos || start == text.size()) {
            return masked + text.substr(from);
        }
        masked.append(text, from, start - from).append("*");
        from = closingQuote(text, start);
        if (from == std::string::npos) {
            return masked;
        }
    }
}

}  // namespace VOLUT
