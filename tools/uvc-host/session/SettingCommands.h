#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cli/CommandOptions.h"
#include "cli/HostIo.h"
#include "link/UvcLink.h"

namespace uvc_host {

// `uvc-host control get|set|list`: camera settings by name. Names are checked
// against the library's table before anything is sent; values travel as the
// host sends them, in report messages, and are read back from the replies.
class SettingCommands {
public:
    SettingCommands(const ControlOptions& options, HostIo io);

    // Before the link starts: kExitFailed (with a line per unknown name and
    // the names close to it) when a name is not in the table.
    int check(const UvcLink& link);
    // On a started link; the exit status.
    int run(UvcLink& link);

private:
    struct Value {
        std::string name;
        int64_t value = 0;
    };

    bool read(UvcLink& link, const std::string& name, int64_t* value);
    bool send(UvcLink& link, const std::string& message);
    const SettingInfo* row(const std::string& name) const;  // nullptr: not in the table
    void print(const std::vector<Value>& values);
    void printTable(const std::vector<int64_t>& current);

    ControlOptions options_;
    HostIo io_;
    std::vector<SettingInfo> table_;
    std::vector<std::pair<std::string, std::string>> writes_;  // set: name, value
};

// Names of `known` that `name` may have meant: the same apart from case and
// underscores, containing it, or a few letters away; closest first.
std::vector<std::string> closeNames(const std::string& name, const std::vector<std::string>& known);

}  // namespace uvc_host
