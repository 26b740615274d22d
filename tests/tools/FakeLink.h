#pragma once

// A stand-in for the library behind UvcLink: a hot-plug event for a
// streaming stream delivers `framesPerHotplug` frames at once, spaced one
// frame period apart (or with periods left out, see skipEvery) and a reply
// "stream changed". Control messages act on
// a small settings table as the library's does: "get" entries are answered
// one reply each, other entries write the value.

#include <json-c/json.h>

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "ToolTestSupport.h"
#include "cli/HostMain.h"
#include "link/UvcLink.h"

namespace uvc_host_test {

struct FakeState {
    std::mutex mutex;
    std::map<uvc_host::StreamKey, uvc_host::LinkConfig> configs;
    std::vector<std::string> sent;
    std::vector<std::string> replies;
    std::vector<std::string> hotplugs;
    std::map<std::string, std::string> values;  // settings written, as text
    uvc_host::LinkSettings settings;
    uint64_t framesPerHotplug = 10;
    int64_t frameSize = -1;  // -1: the configured YUYV size, else this many bytes
    uint32_t pacingFps = 0;  // 0: the configured rate
    uint64_t skipEvery = 0;  // every skipEvery-th frame period passes without a frame
    uint64_t recoveries = 0;
    std::map<uvc_host::StreamKey, uint64_t> hostBusyDrops;
    bool failStart = false;
    bool started = false;
    bool stopped = false;
};

class FakeLink : public uvc_host::UvcLink {
public:
    explicit FakeLink(FakeState* state) : s_(state) {}
    void setFrameSink(std::function<void(const uvc_host::FrameEvent&)> sink) override {
        sink_ = std::move(sink);
    }
    bool start(std::string* error) override {
        if (s_->failStart) {
            *error = "fake start failure";
            return false;
        }
        s_->started = true;
        return true;
    }
    void stop() override { s_->stopped = true; }
    void configure(uvc_host::StreamKey key, const uvc_host::LinkConfig& c) override {
        s_->configs[key] = c;
    }
    bool hotplug(int status, uint8_t id, uint8_t idx, std::chrono::milliseconds) override {
        s_->hotplugs.push_back(std::to_string(status) + "@" + std::to_string(id) + ":" +
                               std::to_string(idx));
        // The library answers every stream change with a message of its own.
        s_->replies.push_back("stream changed");
        for (auto& [key, c] : s_->configs) {
            if ((id != 255 && !(key == uvc_host::StreamKey{id, idx})) || !c.streaming ||
                status != 4) {
                continue;
            }
            uint32_t size =
                s_->frameSize >= 0 ? uint32_t(s_->frameSize) : c.size.width * c.size.height * 2;
            uint32_t fps = s_->pacingFps ? s_->pacingFps : c.fps;
            std::vector<uint8_t> bytes(size, 0x80);
            uint64_t period = 0;
            for (uint64_t i = 0; i < s_->framesPerHotplug; ++i, ++period) {
                if (s_->skipEvery > 0 && (period + 1) % s_->skipEvery == 0) {
                    ++period;
                }
                uvc_host::FrameEvent e;
                e.key = key;
                e.monotonicNs = 1000000000ull + period * (1000000000ull / fps);
                e.size = size;
                e.data = s_->settings.copyFrameBytes && size ? bytes.data() : nullptr;
                if (sink_) {
                    sink_(e);
                }
            }
        }
        return true;
    }
    bool control(const std::string& message, uvc_host::StreamKey,
                 std::chrono::milliseconds) override {
        s_->sent.push_back(message);
        json_object* root = json_tokener_parse(message.c_str());
        json_object* content = nullptr;
        if (root && json_object_object_get_ex(root, "content", &content) &&
            json_object_get_type(content) == json_type_object) {
            json_object_object_foreach(content, key, value) {
                std::string text = json_object_get_string(value);
                if (text == "get") {
                    auto it = s_->values.find(key);
                    std::string v = it != s_->values.end() ? it->second : "-255";
                    json_object* response = json_object_new_object();
                    json_object_object_add(response, key, json_object_new_string(v.c_str()));
                    json_object* reply = json_object_new_object();
                    json_object_object_add(reply, "source", json_object_new_string("app"));
                    json_object_object_add(reply, "response", response);
                    s_->replies.push_back(json_object_to_json_string_ext(reply, JSON_C_TO_STRING_PLAIN));
                    json_object_put(reply);
                } else {
                    s_->values[key] = text;
                }
            }
        }
        json_object_put(root);
        return true;
    }
    std::vector<std::string> replies() const override { return s_->replies; }
    uint64_t recoveries() const override { return s_->recoveries; }
    void failSends(int n) override { s_->recoveries += n > 0 ? 1 : 0; }
    void setHostDelay(uvc_host::StreamKey, std::chrono::milliseconds) override {}
    uvc_host::SourceLimits sourceLimits() const override { return {240, 0x7FFFFFFF, 8294400}; }
    uint64_t hostBusyDrops(uvc_host::StreamKey key) const override {
        auto it = s_->hostBusyDrops.find(key);
        return it == s_->hostBusyDrops.end() ? 0 : it->second;
    }
    std::vector<uvc_host::SettingInfo> settings() const override {
        return {{"brightness", 0, 255, 1, 128},
                {"hue", 0, 270, 1, 90},
                {"whiteBalanceTemp", 2000, 7500, 100, 4500},
                {"whiteBalanceTempAuto", 0, 1, 1, 1}};
    }

private:
    FakeState* s_;
    std::function<void(const uvc_host::FrameEvent&)> sink_;
};

inline uvc_host::UvcLinkFactory fakeFactory(FakeState* state) {
    return [state](const uvc_host::LinkSettings& s) -> std::unique_ptr<uvc_host::UvcLink> {
        state->settings = s;
        return std::make_unique<FakeLink>(state);
    };
}

// Runs the whole tool in-process against the fake library (a fresh one when
// `state` is null); results and help go to `out`, usage errors to `err`, and
// a file named "-" reads `standardInput`.
inline Outcome runTool(std::vector<std::string> args, FakeState* state = nullptr,
                       const std::string& standardInput = "") {
    FakeState local;
    FILE* in = std::tmpfile();
    std::fputs(standardInput.c_str(), in);
    std::rewind(in);
    Outcome r = captured([&](FILE* out, FILE* err) {
        uvc_host::HostEnvironment env;
        env.link = fakeFactory(state ? state : &local);
        env.io = [&](bool) { return uvc_host::HostIo{out, err, false, in}; };
        env.helpOut = out;
        env.usageErr = err;
        return uvc_host::runHost(args, env);
    });
    std::fclose(in);
    return r;
}

}  // namespace uvc_host_test
