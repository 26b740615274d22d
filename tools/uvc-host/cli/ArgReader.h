#pragma once

#include <string>
#include <vector>

namespace uvc_host {

// Walks the arguments of one sub-command. Options are "--name value" or
// "--name=value"; everything not starting with "--" is positional.
class ArgReader {
public:
    explicit ArgReader(std::vector<std::string> args);

    bool done() const { return pos_ >= args_.size(); }
    // The next argument; sets isOption and splits an inline "=value".
    std::string next(bool* isOption);
    // The value of the option just read: its inline value or the next
    // argument. False (with error set) when there is none.
    bool value(const std::string& option, std::string* out);
    // True when the option just read carried an inline value it does not take.
    bool hasInlineValue() const { return hasInline_; }

    const std::string& error() const { return error_; }

private:
    std::vector<std::string> args_;
    size_t pos_ = 0;
    bool hasInline_ = false;
    std::string inline_;
    std::string error_;
};

}  // namespace uvc_host
