#include "session/SettingCommands.h"

#include <json-c/json.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdlib>

#include "session/JsonText.h"

namespace uvc_host {

namespace {

// {"msg_type":"uvc_report","content":{NAME:VALUE}}: VALUE "get" reads the
// setting, anything else writes it.
std::string reportMessage(const std::string& name, const std::string& value) {
    JsonPtr root(json_object_new_object());
    json_object* content = json_object_new_object();
    json_object_object_add(content, name.c_str(), json_object_new_string(value.c_str()));
    json_object_object_add(root.get(), "msg_type", json_object_new_string("uvc_report"));
    json_object_object_add(root.get(), "content", content);
    return json_object_to_json_string_ext(root.get(), JSON_C_TO_STRING_PLAIN);
}

bool parseInteger(const std::string& text, int64_t* out) {
    if (text.empty()) {
        return false;
    }
    char* end = nullptr;
    long long v = std::strtoll(text.c_str(), &end, 10);
    if (*end != '\0') {
        return false;
    }
    *out = int64_t(v);
    return true;
}

// The value of `name` in a report reply: {"source":"app","response":{NAME:"40"}}.
bool replyValue(const std::string& reply, const std::string& name, int64_t* out) {
    JsonPtr root(json_tokener_parse(reply.c_str()));
    json_object* response = nullptr;
    json_object* value = nullptr;
    return root && json_object_object_get_ex(root.get(), "response", &response) &&
           json_object_object_get_ex(response, name.c_str(), &value) &&
           json_object_get_type(value) == json_type_string &&
           parseInteger(json_object_get_string(value), out);
}

std::string normalised(const std::string& name) {
    std::string out;
    for (char c : name) {
        if (c != '_' && c != '.' && c != '-') {
            out += char(std::tolower(static_cast<unsigned char>(c)));
        }
    }
    return out;
}

size_t editDistance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) {
        row[j] = j;
    }
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] != b[j - 1])});
            diagonal = above;
        }
    }
    return row[b.size()];
}

// Menu entries of the controls that have them, as the USB video class
// defines them; the library's table holds numbers only.
struct MenuItem {
    int value;
    const char* name;
};

std::vector<MenuItem> menuItems(const SettingInfo& s) {
    static const MenuItem kPowerLine[] = {{0, "disabled"}, {1, "50 Hz"}, {2, "60 Hz"}, {3, "auto"}};
    static const MenuItem kAeMode[] = {
        {1, "manual"}, {2, "auto"}, {4, "shutter priority"}, {8, "aperture priority"}};
    std::vector<MenuItem> items;
    if (s.name == "powerLineFrequency") {
        for (const MenuItem& m : kPowerLine) {
            if (m.value >= s.min && m.value <= s.max) {
                items.push_back(m);
            }
        }
    } else if (s.name == "aeMode") {
        // The step of the AE mode holds the modes offered, one bit each.
        for (const MenuItem& m : kAeMode) {
            if ((s.step & m.value) != 0) {
                items.push_back(m);
            }
        }
    }
    return items;
}

const char* typeName(const SettingInfo& s) {
    if (!menuItems(s).empty()) {
        return "menu";
    }
    return s.min == 0 && s.max == 1 ? "bool" : "int";
}

// "40", "2 (60 Hz)" or "not set".
std::string valueText(const SettingInfo* s, int64_t value) {
    if (value == kSettingNotSet) {
        return "not set";
    }
    std::string text = std::to_string(value);
    for (const MenuItem& m : s ? menuItems(*s) : std::vector<MenuItem>()) {
        if (m.value == value) {
            text += std::string(" (") + m.name + ")";
        }
    }
    return text;
}

json_object* jsonValue(int64_t value) {
    return value == kSettingNotSet ? nullptr : json_object_new_int64(value);
}

std::string json(json_object* o) {
    std::string text =
        json_object_to_json_string_ext(o, JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE);
    json_object_put(o);
    return text;
}

}  // namespace

std::vector<std::string> closeNames(const std::string& name,
                                    const std::vector<std::string>& known) {
    constexpr size_t kMaxNames = 5;
    std::string wanted = normalised(name);
    size_t allowed = std::max<size_t>(2, wanted.size() / 3);
    std::vector<std::pair<size_t, std::string>> close;
    for (const std::string& k : known) {
        std::string candidate = normalised(k);
        size_t distance = editDistance(wanted, candidate);
        bool contains = wanted.size() >= 3 && candidate.find(wanted) != std::string::npos;
        if (distance <= allowed || contains) {
            close.emplace_back(contains ? 0 : distance, k);
        }
    }
    std::sort(close.begin(), close.end());
    std::vector<std::string> names;
    for (size_t i = 0; i < close.size() && i < kMaxNames; ++i) {
        names.push_back(close[i].second);
    }
    return names;
}

SettingCommands::SettingCommands(const ControlOptions& options, HostIo io)
    : options_(options), io_(io) {}

int SettingCommands::check(const UvcLink& link) {
    table_ = link.settings();
    std::vector<std::string> known;
    for (const SettingInfo& s : table_) {
        known.push_back(s.name);
    }
    std::vector<std::string> names = options_.names;
    if (options_.action == ControlOptions::Action::Set) {
        names.clear();
        for (const std::string& assignment : options_.names) {
            size_t eq = assignment.find('=');
            writes_.emplace_back(assignment.substr(0, eq), assignment.substr(eq + 1));
            names.push_back(writes_.back().first);
        }
    }
    int status = kExitOk;
    for (size_t i = 0; i < names.size(); ++i) {
        auto row = std::find_if(table_.begin(), table_.end(),
                                [&](const SettingInfo& s) { return s.name == names[i]; });
        if (row == table_.end()) {
            std::vector<std::string> close = closeNames(names[i], known);
            std::string hint = "uvc-host control list shows every name";
            if (!close.empty()) {
                hint = "did you mean " + close[0];
                for (size_t c = 1; c < close.size(); ++c) {
                    hint += (c + 1 == close.size() ? " or " : ", ") + close[c];
                }
                hint += "?";
            }
            std::fprintf(io_.err, "uvc-host control: no setting named '%s' (%s)\n",
                         names[i].c_str(), hint.c_str());
            status = kExitFailed;
            continue;
        }
        int64_t value = 0;
        if (i < writes_.size() && parseInteger(writes_[i].second, &value) &&
            (value < row->min || value > row->max)) {
            std::fprintf(io_.err,
                         "uvc-host control: warning: %s is outside the range of %s (%d to %d); "
                         "sent as it is\n",
                         writes_[i].second.c_str(), row->name.c_str(), row->min, row->max);
        }
    }
    return status;
}

bool SettingCommands::send(UvcLink& link, const std::string& message) {
    if (options_.verbose) {
        std::fprintf(io_.err, "> %s\n", message.c_str());
    }
    if (!link.control(message, options_.stream,
                      std::chrono::milliseconds(int64_t(options_.waitSec * 1000)))) {
        std::fprintf(io_.err, "uvc-host control: a message was not handled within %.1f s\n",
                     options_.waitSec);
        return false;
    }
    return true;
}

bool SettingCommands::read(UvcLink& link, const std::string& name, int64_t* value) {
    size_t seen = link.replies().size();
    if (!send(link, reportMessage(name, "get"))) {
        return false;
    }
    // The library answers on the delivering thread: the reply is there.
    std::vector<std::string> replies = link.replies();
    for (size_t i = seen; i < replies.size(); ++i) {
        if (replyValue(replies[i], name, value)) {
            return true;
        }
    }
    std::fprintf(io_.err, "uvc-host control: no reply with the value of %s\n", name.c_str());
    return false;
}

int SettingCommands::run(UvcLink& link) {
    for (const auto& [name, value] : writes_) {
        if (!send(link, reportMessage(name, value))) {
            return kExitFailed;
        }
    }
    if (options_.action == ControlOptions::Action::List) {
        std::vector<int64_t> current(table_.size());
        for (size_t i = 0; i < table_.size(); ++i) {
            if (!read(link, table_[i].name, &current[i])) {
                return kExitFailed;
            }
        }
        printTable(current);
        return kExitOk;
    }
    std::vector<Value> values;
    for (const std::string& name : options_.names) {
        Value v{name.substr(0, name.find('=')), 0};
        if (!read(link, v.name, &v.value)) {
            return kExitFailed;
        }
        values.push_back(v);
    }
    print(values);
    return kExitOk;
}

const SettingInfo* SettingCommands::row(const std::string& name) const {
    for (const SettingInfo& s : table_) {
        if (s.name == name) {
            return &s;
        }
    }
    return nullptr;
}

void SettingCommands::print(const std::vector<Value>& values) {
    if (options_.json) {
        json_object* root = json_object_new_object();
        for (const Value& v : values) {
            json_object_object_add(root, v.name.c_str(), jsonValue(v.value));
        }
        std::fprintf(io_.out, "%s\n", json(root).c_str());
    } else {
        for (const Value& v : values) {
            std::fprintf(io_.out, "%s: %s\n", v.name.c_str(), valueText(row(v.name), v.value).c_str());
        }
    }
    std::fflush(io_.out);
}

void SettingCommands::printTable(const std::vector<int64_t>& current) {
    if (options_.json) {
        json_object* rows = json_object_new_array();
        for (size_t i = 0; i < table_.size(); ++i) {
            const SettingInfo& s = table_[i];
            json_object* row = json_object_new_object();
            json_object_object_add(row, "name", json_object_new_string(s.name.c_str()));
            json_object_object_add(row, "type", json_object_new_string(typeName(s)));
            json_object_object_add(row, "min", json_object_new_int64(s.min));
            json_object_object_add(row, "max", json_object_new_int64(s.max));
            json_object_object_add(row, "step", json_object_new_int64(s.step));
            json_object_object_add(row, "default", json_object_new_int64(s.defaultValue));
            json_object_object_add(row, "current", jsonValue(current[i]));
            std::vector<MenuItem> items = menuItems(s);
            if (!items.empty()) {
                json_object* menu = json_object_new_array();
                for (const MenuItem& m : items) {
                    json_object* item = json_object_new_object();
                    json_object_object_add(item, "value", json_object_new_int(m.value));
                    json_object_object_add(item, "name", json_object_new_string(m.name));
                    json_object_array_add(menu, item);
                }
                json_object_object_add(row, "menu", menu);
            }
            json_object_array_add(rows, row);
        }
        json_object* root = json_object_new_object();
        json_object_object_add(root, "settings", rows);
        std::fprintf(io_.out, "%s\n", json(root).c_str());
        std::fflush(io_.out);
        return;
    }
    int width = 4;
    for (const SettingInfo& s : table_) {
        width = std::max(width, int(s.name.size()));
    }
    std::fprintf(io_.out, "%-*s %-4s %8s %8s %6s %8s %8s  %s\n", width, "name", "type", "min", "max",
                 "step", "default", "current", "menu");
    for (size_t i = 0; i < table_.size(); ++i) {
        const SettingInfo& s = table_[i];
        std::string menu;
        for (const MenuItem& m : menuItems(s)) {
            menu += (menu.empty() ? "  " : ", ") + std::to_string(m.value) + " " + m.name;
        }
        std::string value =
            current[i] == kSettingNotSet ? "not set" : std::to_string(current[i]);
        std::fprintf(io_.out, "%-*s %-4s %8d %8d %6d %8d %8s%s\n", width, s.name.c_str(),
                     typeName(s), s.min, s.max, s.step, s.defaultValue, value.c_str(),
                     menu.c_str());
    }
    std::fprintf(io_.out,
                 "(not set: never written; each uvc-host command starts a fresh library, so\n"
                 " only what the same command wrote reads back)\n");
    std::fflush(io_.out);
}

}  // namespace uvc_host
