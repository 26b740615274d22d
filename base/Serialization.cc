#include "base/Serialization.h"

#include <json-c/json.h>

#include <cfloat>
#include <climits>
#include <cmath>

#include "base/Log.h"

namespace VOLUT {

namespace {

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
    json_object* array = json_object_new_array();
    if (!array) {
        return nullptr;
    }
    for (const auto& value : values) {
        addElement(array, make(value));
    }
    return array;
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
    json_object* obj = json_object_new_object();
    if (!obj) {
        return nullptr;
    }
    for (const auto& key : dict.allKeys()) {
        addMember(obj, key, valueToJSON(dict, key));
    }
    return obj;
}

// Takes ownership of `root`.
std::string toText(json_object* root) {
    if (!root) {
        return std::string();
    }
    std::string text = json_object_to_json_string(root);
    json_object_put(root);
    return text;
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

std::string Serialization::serialize(const Dictionary& dict) {
    return toText(objectToJSONObject(dict));
}

Dictionary Serialization::deserialize(const std::string& text) {
    json_tokener_error error = json_tokener_success;
    json_object* root = json_tokener_parse_verbose(text.c_str(), &error);
    if (!root) {
        // The input is deliberately left out of the line: it may carry
        // credentials (see maskPasswordValue).
        Log::log("VOLUT", LOG_ERROR, "JSON parsing error");
        return Dictionary();
    }
    Dictionary dict = JSONObjectToObject(root);
    json_object_put(root);
    return dict;
}

std::string Serialization::serializeArray(const std::vector<Dictionary>& list) {
    return toText(makeArray(list, objectToJSONObject));
}

std::vector<Dictionary> Serialization::deserializeArray(const std::string& text) {
    std::vector<Dictionary> list;
    json_object* root = json_tokener_parse(text.c_str());
    if (!root) {
        return list;
    }
    if (json_object_get_type(root) == json_type_array) {
        size_t length = json_object_array_length(root);
        for (size_t i = 0; i < length; ++i) {
            json_object* element = json_object_array_get_idx(root, i);
            if (element) {
                list.push_back(JSONObjectToObject(element));
            }
        }
    }
    json_object_put(root);
    return list;
}

std::string maskPasswordValue(const std::string& text) {
    static const std::string kKeyText = "Password\":\"";
    size_t pos = text.find(kKeyText);
    if (pos == std::string::npos) {
        return text;
    }
    size_t start = pos + kKeyText.size();
    if (start == text.size()) {
        return text;
    }
    // The value ends at its closing quote; an escaped quote (odd run of
    // backslashes before it) is part of the value and must stay hidden.
    size_t end = start;
    for (;;) {
        end = text.find('"', end);
        if (end == std::string::npos) {
            break;
        }
        size_t slashes = 0;
        while (end - slashes > start && text[end - slashes - 1] == '\\') {
            ++slashes;
        }
        if (slashes % 2 == 0) {
            break;
        }
        ++end;
    }
    std::string masked = text.substr(0, start) + "*";
    if (end != std::string::npos) {
        masked += text.substr(end);
    }
    return masked;
}

}  // namespace VOLUT
