#pragma once

#include <string>

namespace uvc_host {

// The complete --help text of the tool ("") or of one sub-command.
std::string helpText(const std::string& command);

}  // namespace uvc_host
