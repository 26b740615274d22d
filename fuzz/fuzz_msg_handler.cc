// Any text given to the camera message handler is handled to its end, and
// the host gets exactly one reply per "get" entry of a report message, in key
// order, each a well-formed report. The expected entries are worked out from
// json-c's own parse of the text, independently of the handler's reader.
// A text the message limits let through holds no more objects, arrays,
// members and elements, once json-c has parsed it, than the limits counted.
#include <json-c/json.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "camera/MessageLimits.h"
#include "camera/UvcCamMsgHandler.h"
#include "trevo/CompositorBridge.h"
#include "trevo_host.h"

namespace {

// Members of a parsed object as a record holds them: a name counts up to its
// first NUL, the last member of a name wins, and members no record kind can
// hold (null, empty arrays, arrays starting with null or an array) are left
// out without hiding an earlier member of that name.
std::map<std::string, json_object*> recordMembers(json_object* object) {
    std::map<std::string, json_object*> members;
    if (json_object_get_type(object) != json_type_object) {
        return members;
    }
    json_object_object_foreach(object, key, value) {
        const json_type type = json_object_get_type(value);
        if (type == json_type_null) {
            continue;
        }
        if (type == json_type_array) {
            json_object* first =
                json_object_array_length(value) > 0 ? json_object_array_get_idx(value, 0) : nullptr;
            const json_type firstType = json_object_get_type(first);
            if (first == nullptr || firstType == json_type_null || firstType == json_type_array) {
                continue;
            }
        }
        members[key] = value;
    }
    return members;
}

// A string member's text up to its first NUL; "" for any other kind.
std::string textOf(const std::map<std::string, json_object*>& members, const char* name) {
    auto it = members.find(name);
    if (it == members.end() || json_object_get_type(it->second) != json_type_string) {
        return std::string();
    }
    return json_object_get_string(it->second);
}

// Objects and arrays in a parsed tree, and the members and elements they hold.
struct TreeShape {
    size_t containers = 0;
    size_t values = 0;
};

void addShape(json_object* value, TreeShape& tree) {
    if (json_object_get_type(value) == json_type_object) {
        ++tree.containers;
        json_object_object_foreach(value, key, member) {
            (void)key;
            ++tree.values;
            addShape(member, tree);
        }
    } else if (json_object_get_type(value) == json_type_array) {
        ++tree.containers;
        for (size_t i = 0; i < json_object_array_length(value); ++i) {
            ++tree.values;
            addShape(json_object_array_get_idx(value, i), tree);
        }
    }
}

// Each object or array json-c builds was counted, and so was a separator for
// every member (its colon) and every element but an array's first (a comma),
// so the limits bound the tree. Checked against the counts as well as the
// limits, so that one uncounted object in a short text already shows.
void checkWithinLimits(const std::string& message, json_object* root) {
    using uvc_client::MessageLimits;
    TreeShape tree;
    addShape(root, tree);
    const uvc_client::MessageShape counted = uvc_client::messageShape(message);
    FUZZ_CHECK(tree.containers <= MessageLimits::kMaxContainers &&
                   tree.values <= MessageLimits::kMaxSeparators + MessageLimits::kMaxContainers,
               "%zu objects and arrays holding %zu values got through the limits", tree.containers,
               tree.values);
    FUZZ_CHECK(tree.containers <= counted.containers &&
                   tree.values <= counted.separators + counted.containers,
               "parsed %zu objects and arrays holding %zu values; counted %zu and %zu separators",
               tree.containers, tree.values, counted.containers, counted.separators);
}

// Names of the "get" entries of a report message, in the order the replies
// must come (the entries are string members, answered in byte order).
std::vector<std::string> expectedGets(const std::string& message) {
    std::vector<std::string> gets;
    // A message beyond the size or nesting limits is refused unanswered.
    if (!uvc_client::messageRefusal(message).empty()) {
        return gets;
    }
    json_tokener_error error = json_tokener_success;
    json_object* root = json_tokener_parse_verbose(message.c_str(), &error);
    checkWithinLimits(message, root);
    const auto top = recordMembers(root);
    auto content = top.find("content");
    if (top.count("msg_type") && textOf(top, "msg_type") == "uvc_report" && content != top.end()) {
        const auto entries = recordMembers(content->second);
        for (const auto& entry : entries) {
            if (textOf(entries, entry.first.c_str()) == "get") {
                gets.push_back(entry.first);
            }
        }
    }
    json_object_put(root);
    return gets;
}

// The one member name of "response" when `reply` is exactly one well-formed
// report object ({"source":"app","response":{<name>:<string>}}); otherwise
// why not, after a "!".
std::string replyName(const std::string& reply) {
    json_tokener* tokener = json_tokener_new();
    json_object* root =
        json_tokener_parse_ex(tokener, reply.c_str(), static_cast<int>(reply.size()));
    const bool whole = root != nullptr && json_tokener_get_error(tokener) == json_tokener_success &&
                       static_cast<size_t>(json_tokener_get_parse_end(tokener)) == reply.size() &&
                       std::strlen(reply.c_str()) == reply.size();
    json_tokener_free(tokener);
    std::string name = whole ? "!not a report object" : "!not one JSON text";
    json_object* source = nullptr;
    json_object* response = nullptr;
    if (whole && json_object_get_type(root) == json_type_object &&
        json_object_object_length(root) == 2 &&
        json_object_object_get_ex(root, "source", &source) &&
        json_object_get_type(source) == json_type_string &&
        std::strcmp(json_object_get_string(source), "app") == 0 &&
        json_object_object_get_ex(root, "response", &response) &&
        json_object_get_type(response) == json_type_object &&
        json_object_object_length(response) == 1) {
        json_object_object_foreach(response, key, value) {
            name = json_object_get_type(value) == json_type_string ? key : "!value not a string";
        }
    }
    json_object_put(root);
    return name;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::silenceStandardOutput();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > fuzz::kMaxInputBytes) {
        return 0;
    }
    const std::string message(reinterpret_cast<const char*>(data), size);
    auto& host = trevo_standin::Host::instance();
    host.reset();
    {
        trevo::CompositorBridge bridge(trevo::BridgeContext(1));
        uvc_client::UvcCamMsgHandler handler;
        handler.handleMessage(message, bridge);
    }
    const std::vector<std::string> replies = host.appMessages();
    const std::vector<std::string> gets = expectedGets(message);
    FUZZ_CHECK(replies.size() == gets.size(), "%zu replies for %zu get entries", replies.size(),
               gets.size());
    for (size_t i = 0; i < replies.size(); ++i) {
        const std::string name = replyName(replies[i]);
        FUZZ_CHECK(name == gets[i], "reply %zu answers [%s], expected [%s]: %s", i, name.c_str(),
                   gets[i].c_str(), replies[i].c_str());
    }
    return 0;
}
