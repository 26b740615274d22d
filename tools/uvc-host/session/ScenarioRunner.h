#pragma once

#include <map>
#include <mutex>
#include <vector>

#include "cli/CommandOptions.h"
#include "cli/HostIo.h"
#include "link/UvcLink.h"
#include "session/JsonText.h"
#include "session/Scenario.h"

namespace uvc_host {

// `uvc-host scenario`: plays a scenario file against the library and checks
// its expectations. Every expectation is checked even after one failed.
class ScenarioRunner {
public:
    ScenarioRunner(const ScenarioOptions& options, UvcLinkFactory factory, HostIo io);

    // kExitUsage for a file that does not parse (nothing runs), kExitFailed
    // when an action could not be delivered or an expectation failed.
    int run();

private:
    bool perform(UvcLink& link, const ScenarioEvent& e);
    bool expect(UvcLink& link, const ScenarioEvent& e, std::string* detail);
    // Whether the expectation holds now; `reached` once waiting cannot help.
    bool evaluate(UvcLink& link, const ScenarioEvent& e, bool* reached, std::string* detail);
    uint64_t framesOf(StreamKey key);

    ScenarioOptions options_;
    UvcLinkFactory factory_;
    HostIo io_;
    std::mutex mutex_;
    std::map<StreamKey, uint64_t> frames_;
    size_t repliesMark_ = 0;                    // replies before the last control or hot-plug event
    JsonPtr results_{json_object_new_array()};  // expectations, for --json
};

}  // namespace uvc_host
