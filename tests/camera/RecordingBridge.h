#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "trevo/CompositorBridge.h"

namespace camera_test {

// A bridge that keeps the replies instead of sending them, and marks each one
// in standard output so that tests see where it was sent among the printed
// lines.
class RecordingBridge : public trevo::CompositorBridge {
public:
    RecordingBridge() : trevo::CompositorBridge(trevo::BRIDGE_CONTEXT_UVC) {}
    int onAppMessage(const std::string& message) override {
        printf("<sent %zu>\n", replies.size());
        replies.push_back(message);
        return 0;
    }
    int onAppMessage(const char* message) override {
        // Replies must use the std::string overload.
        wrongOverload.push_back(message != nullptr ? message : "");
        return 0;
    }
    std::vector<std::string> replies;
    std::vector<std::string> wrongOverload;
};

}  // namespace camera_test
