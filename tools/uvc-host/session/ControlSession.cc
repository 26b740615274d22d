#include "session/ControlSession.h"

#include <chrono>

#include "cli/Interrupt.h"
#include "media/FileUtil.h"
#include "session/JsonText.h"
#include "session/SettingCommands.h"

namespace uvc_host {

ControlSession::ControlSession(const ControlOptions& options, UvcLinkFactory factory, HostIo io)
    : options_(options), factory_(std::move(factory)), io_(io) {}

int ControlSession::loadMessages() {
    for (size_t i = 0; i < options_.messages.size(); ++i) {
        std::string why;
        if (!isJsonObject(options_.messages[i], &why)) {
            std::fprintf(io_.err, "uvc-host control: message %zu is not valid JSON: %s\n", i + 1,
                         why.c_str());
            return kExitUsage;
        }
    }
    if (options_.file.empty()) {
        return kExitOk;
    }
    std::vector<std::string> lines;
    std::string error;
    const std::string name = inputName(options_.file);
    if (!readTextInput(options_.file, io_.in, &lines, &error)) {
        std::fprintf(io_.err, "uvc-host control: %s\n", error.c_str());
        return kExitFailed;
    }
    for (size_t i = 0; i < lines.size(); ++i) {
        const std::string& line = lines[i];
        size_t first = line.find_first_not_of(" \t");
        // Blank lines and # comments make a file of messages readable.
        if (first == std::string::npos || line[first] == '#') {
            continue;
        }
        std::string why;
        if (!isJsonObject(line, &why)) {
            std::fprintf(io_.err, "uvc-host control: %s:%zu: not valid JSON: %s\n", name.c_str(),
                         i + 1, why.c_str());
            return kExitUsage;
        }
        options_.messages.push_back(line);
    }
    if (options_.messages.empty()) {
        std::fprintf(io_.err, "uvc-host control: %s holds no message\n", name.c_str());
        return kExitUsage;
    }
    return kExitOk;
}

int ControlSession::run() {
    LinkSettings settings;
    settings.verbose = options_.verbose;
    std::unique_ptr<UvcLink> link;
    std::unique_ptr<SettingCommands> named;
    if (options_.action == ControlOptions::Action::Messages) {
        int loaded = loadMessages();
        if (loaded != kExitOk) {
            return loaded;
        }
        link = factory_(settings);
    } else {
        link = factory_(settings);
        named = std::make_unique<SettingCommands>(options_, io_);
        int checked = named->check(*link);
        if (checked != kExitOk) {
            return checked;
        }
    }
    std::string error;
    if (!link->start(&error)) {
        std::fprintf(io_.err, "uvc-host control: %s\n", error.c_str());
        return kExitFailed;
    }
    int status = named ? named->run(*link) : sendMessages(*link);
    link->stop();
    return interruptRequested() ? interruptExitStatus() : status;
}

int ControlSession::sendMessages(UvcLink& link) {
    auto timeout = std::chrono::milliseconds(int64_t(options_.waitSec * 1000));
    int status = kExitOk;
    size_t seen = link.replies().size();
    JsonPtr all(json_object_new_array());
    for (size_t i = 0; i < options_.messages.size() && !interruptRequested(); ++i) {
        if (options_.verbose) {
            std::fprintf(io_.err, "> %s\n", options_.messages[i].c_str());
        }
        // The library answers on the delivering thread, so once a message
        // is delivered all of its replies are there.
        if (!link.control(options_.messages[i], options_.stream, timeout)) {
            std::fprintf(io_.err, "uvc-host control: message %zu was not handled within %.1f s\n",
                         i + 1, options_.waitSec);
            status = kExitFailed;
            break;
        }
        std::vector<std::string> replies = link.replies();
        for (; seen < replies.size(); ++seen) {
            if (options_.json) {
                json_object* reply = json_tokener_parse(replies[seen].c_str());
                json_object_array_add(
                    all.get(), reply ? reply : json_object_new_string(replies[seen].c_str()));
            } else {
                std::fprintf(io_.out, "%s\n", replies[seen].c_str());
            }
        }
        std::fflush(io_.out);
    }
    if (options_.json) {
        json_object* root = json_object_new_object();
        json_object_object_add(root, "replies", all.release());
        std::fprintf(io_.out, "%s\n",
                     json_object_to_json_string_ext(
                         root, JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE));
        json_object_put(root);
        std::fflush(io_.out);
    }
    return status;
}

}  // namespace uvc_host
