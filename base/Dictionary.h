#pragma once

#include <map>
#include <string>
#include <vector>

#include "uvc_export.h"

namespace VOLUT {

// Typed key/value record: every key holds exactly one value of one of ten
// kinds. It is the in-memory form of the JSON messages exchanged with the host.
// Getters never convert between kinds; a missing key or a key of another kind
// yields the getter's default.
class UVC_EXPORT Dictionary {
public:
    // The numbering is part of the wire contract with the serializer and does
    // not follow the order in which the maps are declared below.
    enum ValueType {
        None = 0,
        Integer = 1,
        String = 2,
        Decimal = 3,
        Boolean = 4,
        Object = 5,
        IntegerArray = 6,
        StringArray = 7,
        DecimalArray = 8,
        BooleanArray = 9,
        ObjectArray = 10,
    };

    Dictionary();
    Dictionary(const Dictionary& other);
    Dictionary& operator=(const Dictionary& other);
    virtual ~Dictionary();

    size_t size() const;
    // Keys grouped by kind in map declaration order, each group sorted.
    std::vector<std::string> allKeys() const;
    bool hasKey(const std::string& key) const;
    // A ValueType; None when the key is absent.
    int getType(const std::string& key) const;

    void setInteger(const std::string& key, long long value);
    long long getInteger(const std::string& key) const;
    void setString(const std::string& key, const std::string& value);
    std::string getString(const std::string& key) const;
    void setDecimal(const std::string& key, long double value);
    long double getDecimal(const std::string& key) const;
    void setBoolean(const std::string& key, bool value);
    bool getBoolean(const std::string& key) const;
    void setObject(const std::string& key, const Dictionary& value);
    Dictionary getObject(const std::string& key) const;

    void setIntegerArray(const std::string& key, const std::vector<long long>& value);
    std::vector<long long> getIntegerArray(const std::string& key) const;
    void setStringArray(const std::string& key, const std::vector<std::string>& value);
    std::vector<std::string> getStringArray(const std::string& key) const;
    void setDecimalArray(const std::string& key, const std::vector<long double>& value);
    std::vector<long double> getDecimalArray(const std::string& key) const;
    void setBooleanArray(const std::string& key, const std::vector<bool>& value);
    std::vector<bool> getBooleanArray(const std::string& key) const;
    void setObjectArray(const std::string& key, const std::vector<Dictionary>& value);
    std::vector<Dictionary> getObjectArray(const std::string& key) const;

    // Removes the key from whichever map holds it; every setter calls this
    // first so that a key never lives in two maps.
    void eraseOriginalValue(const std::string& key);
    void erase(const std::string& key);
    void clear();

private:
    std::map<std::string, std::string> _strings;
    std::map<std::string, long long> _integers;
    std::map<std::string, long double> _decimals;
    std::map<std::string, bool> _booleans;
    std::map<std::string, Dictionary> _objects;
    std::map<std::string, std::vector<std::string>> _stringArrays;
    std::map<std::string, std::vector<long long>> _integerArrays;
    std::map<std::string, std::vector<long double>> _decimalArrays;
    std::map<std::string, std::vector<bool>> _booleanArrays;
    std::map<std::string, std::vector<Dictionary>> _objectArrays;
};

}  // namespace VOLUT
