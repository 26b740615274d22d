#include "session/ScenarioRunner.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "cli/Interrupt.h"
#include "media/FileUtil.h"
#include "session/JsonText.h"

namespace uvc_host {

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kDeliveryTimeout = std::chrono::seconds(5);
constexpr auto kPollPeriod = std::chrono::milliseconds(10);

// Sleeps until `until`, in short steps so that a signal ends the wait.
void sleepUntil(Clock::time_point until) {
    while (!interruptRequested() && Clock::now() < until) {
        std::this_thread::sleep_until(std::min(until, Clock::now() + kPollPeriod));
    }
}

std::string range(const ScenarioEvent& e) {
    std::string text = "at least " + std::to_string(e.min);
    if (e.max != std::numeric_limits<uint64_t>::max()) {
        text += " and at most " + std::to_string(e.max);
    }
    return text;
}

}  // namespace

ScenarioRunner::ScenarioRunner(const ScenarioOptions& options, UvcLinkFactory factory, HostIo io)
    : options_(options), factory_(std::move(factory)), io_(io) {}

uint64_t ScenarioRunner::framesOf(StreamKey key) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = frames_.find(key);
    return it == frames_.end() ? 0 : it->second;
}

bool ScenarioRunner::evaluate(UvcLink& link, const ScenarioEvent& e, bool* reached,
                              std::string* detail) {
    uint64_t count = 0;
    std::string what;
    switch (e.subject) {
        case ScenarioEvent::Subject::ReplyContains: {
            std::vector<std::string> replies = link.replies();
            for (size_t i = repliesMark_; i < replies.size(); ++i) {
                if (replies[i].find(e.text) != std::string::npos) {
                    *reached = true;
                    *detail = "reply contains \"" + e.text + "\": " + replies[i];
                    return true;
                }
            }
            *reached = false;
            size_t n = replies.size() > repliesMark_ ? replies.size() - repliesMark_ : 0;
            *detail = "no reply to the last event contains \"" + e.text + "\" (" +
                      std::to_string(n) + " replies)";
            return false;
        }
        case ScenarioEvent::Subject::Frames:
            count = framesOf(e.stream);
            what = "stream " + e.stream.text() + " received " + std::to_string(count) + " frames";
            break;
        case ScenarioEvent::Subject::Replies: {
            size_t total = link.replies().size();
            count = total > repliesMark_ ? total - repliesMark_ : 0;
            what = std::to_string(count) + " replies to the last event";
            break;
        }
        case ScenarioEvent::Subject::Recoveries:
            count = link.recoveries();
            what = std::to_string(count) + " recoveries";
            break;
    }
    *reached = count >= e.min;
    bool ok = count >= e.min && count <= e.max;
    *detail = what + (ok ? "" : ", expected " + range(e));
    return ok;
}

bool ScenarioRunner::expect(UvcLink& link, const ScenarioEvent& e, std::string* detail) {
    Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(e.withinMs);
    for (;;) {
        bool reached = false;
        bool ok = evaluate(link, e, &reached, detail);
        if (reached || Clock::now() >= deadline || interruptRequested()) {
            return ok;
        }
        std::this_thread::sleep_for(kPollPeriod);
    }
}

bool ScenarioRunner::perform(UvcLink& link, const ScenarioEvent& e) {
    std::string where = inputName(options_.file) + ":" + std::to_string(e.line) + ": ";
    switch (e.kind) {
        case ScenarioEvent::Kind::Configure: {
            LinkConfig c{e.size, e.fps, e.format->fourcc, e.streaming};
            link.configure(e.stream, c);
            return true;
        }
        case ScenarioEvent::Kind::Hotplug: {
            uint8_t id = e.allStreams ? 255 : e.stream.id;
            // Both events are handled synchronously on delivery, so what
            // arrives after this one is its answer, not the last control's.
            repliesMark_ = link.replies().size();
            if (!link.hotplug(e.status, id, e.stream.idx, kDeliveryTimeout)) {
                std::fprintf(io_.err, "%shot-plug event not handled within 5 s\n", where.c_str());
                return false;
            }
            return true;
        }
        case ScenarioEvent::Kind::Control:
            repliesMark_ = link.replies().size();
            if (!link.control(e.message, e.stream, kDeliveryTimeout)) {
                std::fprintf(io_.err, "%scontrol message not handled within 5 s\n", where.c_str());
                return false;
            }
            return true;
        case ScenarioEvent::Kind::Wait:
            sleepUntil(Clock::now() + std::chrono::milliseconds(e.waitMs));
            return true;
        case ScenarioEvent::Kind::FailSends:
            link.failSends(e.failCount);
            return true;
        case ScenarioEvent::Kind::HostDelay:
            link.setHostDelay(e.stream, std::chrono::milliseconds(e.delayMs));
            return true;
        case ScenarioEvent::Kind::Expect: {
            std::string detail;
            bool ok = expect(link, e, &detail);
            if (options_.json) {
                json_object* result = json_object_new_object();
                json_object_object_add(result, "line", json_object_new_int(e.line));
                json_object_object_add(result, "ok", json_object_new_boolean(ok));
                json_object_object_add(result, "detail", json_object_new_string(detail.c_str()));
                json_object_array_add(results_.get(), result);
            } else {
                std::fprintf(io_.out, "line %d: %s: %s\n", e.line, ok ? "ok" : "FAILED",
                             detail.c_str());
                std::fflush(io_.out);
            }
            if (!ok) {
                std::fprintf(io_.err, "%sexpectation failed: %s\n", where.c_str(), detail.c_str());
            }
            return ok;
        }
    }
    return false;
}

int ScenarioRunner::run() {
    std::vector<std::string> lines;
    std::string error;
    const std::string name = inputName(options_.file);
    if (!readTextInput(options_.file, io_.in, &lines, &error)) {
        std::fprintf(io_.err, "uvc-host scenario: %s\n", error.c_str());
        return kExitFailed;
    }
    std::vector<ScenarioEvent> events;
    if (!parseScenario(lines, &events, &error)) {
        std::fprintf(io_.err, "uvc-host scenario: %s:%s\n", name.c_str(), error.c_str());
        return kExitUsage;
    }
    LinkSettings settings;
    settings.framesRoot = options_.framesDir;
    settings.verbose = options_.verbose;
    settings.synthesiseJpeg = options_.jpeg;
    settings.copyFrameBytes = false;
    std::unique_ptr<UvcLink> link = factory_(settings);
    link->setFrameSink([this](const FrameEvent& f) {
        std::lock_guard<std::mutex> lock(mutex_);
        ++frames_[f.key];
    });
    if (!link->start(&error)) {
        std::fprintf(io_.err, "uvc-host scenario: %s\n", error.c_str());
        return kExitFailed;
    }
    Clock::time_point start = Clock::now();
    int failures = 0;
    int expectations = 0;
    for (const ScenarioEvent& e : events) {
        if (e.atMs >= 0) {
            sleepUntil(start + std::chrono::milliseconds(e.atMs));
        }
        if (interruptRequested()) {
            break;
        }
        expectations += e.kind == ScenarioEvent::Kind::Expect ? 1 : 0;
        failures += perform(*link, e) ? 0 : 1;
    }
    link->stop();
    if (options_.json) {
        JsonPtr root(json_object_new_object());
        json_object_object_add(root.get(), "file", json_object_new_string(name.c_str()));
        json_object_object_add(root.get(), "events", json_object_new_int(int(events.size())));
        json_object_object_add(root.get(), "expectations", json_object_new_int(expectations));
        json_object_object_add(root.get(), "failed", json_object_new_int(failures));
        json_object_object_add(root.get(), "interrupted",
                               json_object_new_boolean(interruptRequested()));
        json_object_object_add(root.get(), "ok", json_object_new_boolean(failures == 0));
        json_object_object_add(root.get(), "results", results_.release());
        std::fprintf(io_.out, "%s\n",
                     json_object_to_json_string_ext(
                         root.get(), JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE));
    } else {
        std::fprintf(io_.out, "scenario %s: %d events, %d expectations, %d failed%s\n",
                     name.c_str(), int(events.size()), expectations, failures,
                     interruptRequested() ? " (interrupted)" : "");
    }
    std::fflush(io_.out);
    if (interruptRequested()) {
        return interruptExitStatus();
    }
    return failures == 0 ? kExitOk : kExitFailed;
}

}  // namespace uvc_host
