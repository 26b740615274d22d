#pragma once

// Test hooks of the Android log and system-property stand-ins. Product code
// never includes this header.

#include <string>
#include <vector>

namespace android_standin {

struct LogRecord {
    int priority;
    std::string tag;
    std::string text;
};

// While an instance lives, log calls are recorded instead of printed to
// standard error. Instances do not nest.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogRecord> records() const;
    // Records whose tag equals `tag`.
    std::vector<LogRecord> withTag(const std::string& tag) const;
    void clear();
    // records() and clear() in one step: nothing logged in between is lost.
    std::vector<LogRecord> take();
};

// Replaces or adds one property; an empty value removes it.
void setSystemProperty(const std::string& name, const std::string& value);
void clearSystemProperties();

}  // namespace android_standin
