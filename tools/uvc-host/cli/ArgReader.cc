#include "cli/ArgReader.h"

#include <utility>

namespace uvc_host {

ArgReader::ArgReader(std::vector<std::string> args) : args_(std::move(args)) {}

std::string ArgReader::next(bool* isOption) {
    std::string arg = args_[pos_++];
    hasInline_ = false;
    inline_.clear();
    *isOption = arg.size() > 2 && arg.compare(0, 2, "--") == 0;
    if (*isOption) {
        size_t eq = arg.find('=');
        if (eq != std::string::npos) {
            hasInline_ = true;
            inline_ = arg.substr(eq + 1);
            arg.resize(eq);
        }
    }
    return arg;
}

bool ArgReader::value(const std::string& option, std::string* out) {
    if (hasInline_) {
        *out = inline_;
        hasInline_ = false;
        return true;
    }
    if (pos_ >= args_.size()) {
        error_ = "option " + option + " needs a value";
        return false;
    }
    *out = args_[pos_++];
    return true;
}

}  // namespace uvc_host
