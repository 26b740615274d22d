#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace uvc_host {

// Like mkdir -p; the error names the directory that could not be made.
bool makeDirectories(const std::string& path, std::string* error);
bool writeFile(const std::string& path, const uint8_t* data, size_t length, std::string* error);
bool readFile(const std::string& path, std::vector<uint8_t>* out, std::string* error);
bool readTextLines(const std::string& path, std::vector<std::string>* lines, std::string* error);
// readTextLines, but "-" reads `standardInput` to its end.
bool readTextInput(const std::string& path, FILE* standardInput, std::vector<std::string>* lines,
                   std::string* error);
// What to call `path` in messages: "standard input" for "-".
std::string inputName(const std::string& path);
// The first executable file called `name` in the directories of $PATH, or "".
std::string findOnPath(const std::string& name);

}  // namespace uvc_host
