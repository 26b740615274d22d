#include <sys/system_properties.h>

#include <cstring>
#include <map>
#include <mutex>

#include "testing/android_testing.h"

namespace {

std::mutex gMutex;
std::map<std::string, std::string>& table() {
    static std::map<std::string, std::string> props;
    return props;
}

}  // namespace

extern "C" int __system_property_get(const char* name, char* value) {
    if (!value)
        return 0;
    value[0] = '\0';
    if (!name)
        return 0;
    std::lock_guard<std::mutex> lock(gMutex);
    auto it = table().find(name);
    if (it == table().end())
        return 0;
    size_t len = std::min(it->second.size(), size_t(PROP_VALUE_MAX - 1));
    std::memcpy(value, it->second.data(), len);
    value[len] = '\0';
    return static_cast<int>(len);
}

namespace android_standin {

void setSystemProperty(const std::string& name, const std::string& value) {
    std::lock_guard<std::mutex> lock(gMutex);
    if (value.empty()) {
        table().erase(name);
    } else {
        table()[name] = value;
    }
}

void clearSystemProperties() {
    std::lock_guard<std::mutex> lock(gMutex);
    table().clear();
}

}  // namespace android_standin
