#include "base/Dictionary.h"

namespace VOLUT {

namespace {

template <typename Map>
typename Map::mapped_type lookup(const Map& map, const std::string& key) {
    auto it = map.find(key);
    return it == map.end() ? typename Map::mapped_type() : it->second;
}

template <typename Map>
void appendKeys(const Map& map, std::vector<std::string>& keys) {
    for (const auto& entry : map) {
        keys.push_back(entry.first);
    }
}

}  // namespace

Dictionary::Dictionary() = default;

Dictionary::Dictionary(const Dictionary& other) = default;

Dictionary& Dictionary::operator=(const Dictionary& other) {
    if (this == &other) {
        return *this;
    }
    _strings = other._strings;
    _integers = other._integers;
    _decimals = other._decimals;
    _booleans = other._booleans;
    _objects = other._objects;
    _stringArrays = other._stringArrays;
    _integerArrays = other._integerArrays;
    _decimalArrays = other._decimalArrays;
    _booleanArrays = other._booleanArrays;
    _objectArrays = other._objectArrays;
    return *this;
}

Dictionary::~Dictionary() = default;

size_t Dictionary::size() const {
    return _strings.size() + _integers.size() + _decimals.size() + _booleans.size() +
           _objects.size() + _stringArrays.size() + _integerArrays.size() + _decimalArrays.size() +
           _booleanArrays.size() + _objectArrays.size();
}

std::vector<std::string> Dictionary::allKeys() const {
    std::vector<std::string> keys;
    keys.reserve(size());
    appendKeys(_strings, keys);
    appendKeys(_integers, keys);
    appendKeys(_decimals, keys);
    appendKeys(_booleans, keys);
    appendKeys(_objects, keys);
    appendKeys(_stringArrays, keys);
    appendKeys(_integerArrays, keys);
    appendKeys(_decimalArrays, keys);
    appendKeys(_booleanArrays, keys);
    appendKeys(_objectArrays, keys);
    return keys;
}

bool Dictionary::hasKey(const std::string& key) const {
    return getType(key) != None;
}

int Dictionary::getType(const std::string& key) const {
    if (_integers.count(key))
        return Integer;
    if (_strings.count(key))
        return String;
    if (_decimals.count(key))
        return Decimal;
    if (_booleans.count(key))
        return Boolean;
    if (_objects.count(key))
        return Object;
    if (_stringArrays.count(key))
        return StringArray;
    if (_integerArrays.count(key))
        return IntegerArray;
    if (_decimalArrays.count(key))
        return DecimalArray;
    if (_booleanArrays.count(key))
        return BooleanArray;
    if (_objectArrays.count(key))
        return ObjectArray;
    return None;
}

void Dictionary::setInteger(const std::string& key, long long value) {
    eraseOriginalValue(key);
    _integers[key] = value;
}

long long Dictionary::getInteger(const std::string& key) const {
    return lookup(_integers, key);
}

void Dictionary::setString(const std::string& key, const std::string& value) {
    eraseOriginalValue(key);
    _strings[key] = value;
}

std::string Dictionary::getString(const std::string& key) const {
    return lookup(_strings, key);
}

void Dictionary::setDecimal(const std::string& key, long double value) {
    eraseOriginalValue(key);
    _decimals[key] = value;
}

long double Dictionary::getDecimal(const std::string& key) const {
    return lookup(_decimals, key);
}

void Dictionary::setBoolean(const std::string& key, bool value) {
    eraseOriginalValue(key);
    _booleans[key] = value;
}

bool Dictionary::getBoolean(const std::string& key) const {
    return lookup(_booleans, key);
}

void Dictionary::setObject(const std::string& key, const Dictionary& value) {
    // Copy first: `value` may be this very record (d.setObject("k", d)), which
    // the erase below would change.
    Dictionary copy(value);
    eraseOriginalValue(key);
    _objects[key] = copy;
}

Dictionary Dictionary::getObject(const std::string& key) const {
    return lookup(_objects, key);
}

void Dictionary::setIntegerArray(const std::string& key, const std::vector<long long>& value) {
    eraseOriginalValue(key);
    _integerArrays[key] = value;
}

std::vector<long long> Dictionary::getIntegerArray(const std::string& key) const {
    return lookup(_integerArrays, key);
}

void Dictionary::setStringArray(const std::string& key, const std::vector<std::string>& value) {
    eraseOriginalValue(key);
    _stringArrays[key] = value;
}

std::vector<std::string> Dictionary::getStringArray(const std::string& key) const {
    return lookup(_stringArrays, key);
}

void Dictionary::setDecimalArray(const std::string& key, const std::vector<long double>& value) {
    eraseOriginalValue(key);
    _decimalArrays[key] = value;
}

std::vector<long double> Dictionary::getDecimalArray(const std::string& key) const {
    return lookup(_decimalArrays, key);
}

void Dictionary::setBooleanArray(const std::string& key, const std::vector<bool>& value) {
    eraseOriginalValue(key);
    _booleanArrays[key] = value;
}

std::vector<bool> Dictionary::getBooleanArray(const std::string& key) const {
    return lookup(_booleanArrays, key);
}

void Dictionary::setObjectArray(const std::string& key, const std::vector<Dictionary>& value) {
    eraseOriginalValue(key);
    _objectArrays[key] = value;
}

std::vector<Dictionary> Dictionary::getObjectArray(const std::string& key) const {
    return lookup(_objectArrays, key);
}

void Dictionary::eraseOriginalValue(const std::string& key) {
    _strings.erase(key);
    _integers.erase(key);
    _decimals.erase(key);
    _booleans.erase(key);
    _objects.erase(key);
    _stringArrays.erase(key);
    _integerArrays.erase(key);
    _decimalArrays.erase(key);
    _booleanArrays.erase(key);
    _objectArrays.erase(key);
}

void Dictionary::erase(const std::string& key) {
    eraseOriginalValue(key);
}

void Dictionary::clear() {
    _strings.clear();
    _integers.clear();
    _decimals.clear();
    _booleans.clear();
    _objects.clear();
    _stringArrays.clear();
    _integerArrays.clear();
    _decimalArrays.clear();
    _booleanArrays.clear();
    _objectArrays.clear();
}

}  // namespace VOLUT
