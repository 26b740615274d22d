#include "session/Scenario.h"

#include <json-c/json.h>

#include <memory>
#include <set>

#include "session/JsonText.h"

namespace uvc_host {

namespace {

// Reads the members of one JSON object, rejecting members it was not asked
// about, so that a misspelt key fails loudly instead of being ignored.
class Members {
public:
    Members(json_object* obj, std::string where) : obj_(obj), where_(std::move(where)) {}

    json_object* get(const char* key) {
        used_.insert(key);
        json_object* v = nullptr;
        return json_object_object_get_ex(obj_, key, &v) ? v : nullptr;
    }
    bool has(const char* key) const { return json_object_object_get_ex(obj_, key, nullptr); }

    bool unsignedValue(const char* key, uint64_t max, uint64_t* out, std::string* error) {
        json_object* v = get(key);
        if (!v) {
            return true;
        }
        int64_t n = json_object_get_int64(v);
        if (json_object_get_type(v) != json_type_int || n < 0 || uint64_t(n) > max) {
            *error =
                where_ + "\"" + key + "\" must be a whole number from 0 to " + std::to_string(max);
            return false;
        }
        *out = uint64_t(n);
        return true;
    }

    bool stringValue(const char* key, std::string* out, std::string* error) {
        json_object* v = get(key);
        if (!v) {
            return true;
        }
        if (json_object_get_type(v) != json_type_string) {
            *error = where_ + "\"" + key + "\" must be a string";
            return false;
        }
        *out = json_object_get_string(v);
        return true;
    }

    bool noOthers(std::string* error) const {
        json_object_object_foreach(obj_, key, value) {
            (void)value;
            if (!used_.count(key)) {
                *error = where_ + "unknown key \"" + key + "\"";
                return false;
            }
        }
        return true;
    }

private:
    json_object* obj_;
    std::string where_;
    std::set<std::string> used_;
};

bool streamValue(Members& m, ScenarioEvent* e, bool allowAll, std::string* error) {
    std::string text;
    if (!m.stringValue("stream", &text, error)) {
        return false;
    }
    if (text.empty()) {
        return true;  // 0:0
    }
    if (allowAll && text == "all") {
        e->allStreams = true;
        return true;
    }
    if (!StreamKey::parse(text, &e->stream)) {
        *error = "bad stream \"" + text + "\"";
        return false;
    }
    return true;
}

json_object* requireObject(json_object* v, const std::string& name, std::string* error) {
    if (!v || json_object_get_type(v) != json_type_object) {
        *error = "\"" + name + "\" must be a JSON object";
        return nullptr;
    }
    return v;
}

bool parseConfigure(json_object* v, ScenarioEvent* e, std::string* error) {
    if (!requireObject(v, "configure", error)) {
        return false;
    }
    Members m(v, "configure: ");
    e->kind = ScenarioEvent::Kind::Configure;
    std::string size;
    std::string format;
    uint64_t fps = 0;
    if (!streamValue(m, e, false, error) || !m.stringValue("size", &size, error) ||
        !m.stringValue("format", &format, error) || !m.unsignedValue("fps", 240, &fps, error)) {
        return false;
    }
    // A host may announce a stream that is not configured: 0x0 is allowed.
    if (size == "0x0") {
        e->size = {0, 0};
    } else if (!FrameSize::parse(size, &e->size)) {
        *error = "configure: bad or missing \"size\" (use \"WIDTHxHEIGHT\")";
        return false;
    }
    e->format = findFormat(format);
    if (!e->format) {
        *error = "configure: bad or missing \"format\" (use " + formatNames() + ")";
        return false;
    }
    e->fps = uint32_t(fps);
    if (json_object* s = m.get("streaming")) {
        json_type t = json_object_get_type(s);
        if (t != json_type_boolean && t != json_type_int) {
            *error = "configure: \"streaming\" must be true, false, 1 or 0";
            return false;
        }
        e->streaming = json_object_get_boolean(s);
    }
    return m.noOthers(error);
}

bool parseHotplug(json_object* v, ScenarioEvent* e, std::string* error) {
    if (!requireObject(v, "hotplug", error)) {
        return false;
    }
    Members m(v, "hotplug: ");
    e->kind = ScenarioEvent::Kind::Hotplug;
    uint64_t status = 4;
    if (!streamValue(m, e, true, error) || !m.unsignedValue("status", 255, &status, error)) {
        return false;
    }
    e->status = int(status);
    return m.noOthers(error);
}

bool parseRange(json_object* v, const std::string& name, ScenarioEvent* e, bool withStream,
                std::string* error) {
    if (!requireObject(v, name, error)) {
        return false;
    }
    Members m(v, name + ": ");
    const uint64_t kMax = uint64_t(1) << 53;
    if ((withStream && !streamValue(m, e, false, error)) ||
        !m.unsignedValue("min", kMax, &e->min, error) ||
        !m.unsignedValue("max", kMax, &e->max, error)) {
        return false;
    }
    if (e->min > e->max) {
        *error = name + ": \"min\" is above \"max\"";
        return false;
    }
    return m.noOthers(error);
}

bool parseExpect(json_object* v, ScenarioEvent* e, std::string* error) {
    if (!requireObject(v, "expect", error)) {
        return false;
    }
    Members m(v, "expect: ");
    e->kind = ScenarioEvent::Kind::Expect;
    if (!m.unsignedValue("within_ms", 3600000, &e->withinMs, error)) {
        return false;
    }
    int subjects = 0;
    if (json_object* f = m.get("frames")) {
        ++subjects;
        e->subject = ScenarioEvent::Subject::Frames;
        if (!parseRange(f, "frames", e, true, error)) {
            return false;
        }
    }
    if (m.has("reply_contains")) {
        ++subjects;
        e->subject = ScenarioEvent::Subject::ReplyContains;
        if (!m.stringValue("reply_contains", &e->text, error)) {
            return false;
        }
    }
    if (json_object* r = m.get("replies")) {
        ++subjects;
        e->subject = ScenarioEvent::Subject::Replies;
        if (!parseRange(r, "replies", e, false, error)) {
            return false;
        }
    }
    if (json_object* r = m.get("recoveries")) {
        ++subjects;
        e->subject = ScenarioEvent::Subject::Recoveries;
        if (!parseRange(r, "recoveries", e, false, error)) {
            return false;
        }
    }
    if (subjects != 1) {
        *error = "expect: give exactly one of frames, reply_contains, replies, recoveries";
        return false;
    }
    return m.noOthers(error);
}

bool parseLine(const std::string& text, ScenarioEvent* e, std::string* error) {
    std::string why;
    if (!isJsonObject(text, &why)) {
        *error = "not a JSON object: " + why;
        return false;
    }
    JsonPtr root(json_tokener_parse(text.c_str()));
    Members m(root.get(), "");
    uint64_t at = 0;
    if (m.has("at_ms")) {
        if (!m.unsignedValue("at_ms", 86400000, &at, error)) {
            return false;
        }
        e->atMs = int64_t(at);
    }
    static const char* const kActions[] = {"configure", "hotplug",    "control",
                                           "wait_ms",   "fail_sends", "expect"};
    int actions = 0;
    for (const char* a : kActions) {
        actions += m.has(a) ? 1 : 0;
    }
    if (actions != 1) {
        *error = "give exactly one of configure, hotplug, control, wait_ms, fail_sends, expect";
        return false;
    }
    bool ok = true;
    if (json_object* v = m.get("configure")) {
        ok = parseConfigure(v, e, error);
    } else if (json_object* v = m.get("hotplug")) {
        ok = parseHotplug(v, e, error);
    } else if (json_object* v = m.get("control")) {
        e->kind = ScenarioEvent::Kind::Control;
        json_type t = json_object_get_type(v);
        if (t == json_type_string) {
            // Sent as it stands: a scenario may test how the library takes
            // text that is not JSON.
            e->message = json_object_get_string(v);
        } else if (t == json_type_object) {
            e->message = json_object_to_json_string_ext(v, JSON_C_TO_STRING_PLAIN);
        } else {
            *error = "\"control\" must be a message text or a JSON object";
            return false;
        }
        ok = streamValue(m, e, false, error);
    } else if (m.has("wait_ms")) {
        e->kind = ScenarioEvent::Kind::Wait;
        ok = m.unsignedValue("wait_ms", 3600000, &e->waitMs, error);
    } else if (m.has("fail_sends")) {
        e->kind = ScenarioEvent::Kind::FailSends;
        uint64_t n = 0;
        ok = m.unsignedValue("fail_sends", 1000000, &n, error);
        e->failCount = int(n);
    } else {
        ok = parseExpect(m.get("expect"), e, error);
    }
    return ok && m.noOthers(error);
}

}  // namespace

bool parseScenario(const std::vector<std::string>& lines, std::vector<ScenarioEvent>* events,
                   std::string* error) {
    for (size_t i = 0; i < lines.size(); ++i) {
        const std::string& line = lines[i];
        size_t first = line.find_first_not_of(" \t");
        if (first == std::string::npos || line[first] == '#') {
            continue;
        }
        ScenarioEvent e;
        e.line = int(i + 1);
        std::string why;
        if (!parseLine(line, &e, &why)) {
            *error = std::to_string(i + 1) + ": " + why;
            return false;
        }
        events->push_back(std::move(e));
    }
    if (events->empty()) {
        *error = "0: no events";
        return false;
    }
    return true;
}

}  // namespace uvc_host
