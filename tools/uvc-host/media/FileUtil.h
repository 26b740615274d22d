#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace uvc_host {

// Like mkdir -p; the error names the directory that could not be made.
bool makeDirectories(const std::string& path, std::string* error);
bool writeFile(const std::string& path, const uint8_t* data, size_t length, std::string* error);
bool readFile(const std::string& path, std::vector<uint8_t>* out, std::string* error);
bool readTextLines(const std::string& path, std::vector<std::string>* lines, std::string* error);
// The first executable file called `name` in the directories of $PATH, or "".
std::string findOnPath(const std::string& name);

}  // namespace uvc_host
