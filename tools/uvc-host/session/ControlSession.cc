#include "session/ControlSession.h"

#include <chrono>

#include "cli/Interrupt.h"
#include "media/FileUtil.h"
#include "session/JsonText.h"

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
    if (!readTextLines(options_.file, &lines, &error)) {
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
            std::fprintf(io_.err, "uvc-host control: %s:%zu: not valid JSON: %s\n",
                         options_.file.c_str(), i + 1, why.c_str());
            return kExitUsage;
        }
        options_.messages.push_back(line);
    }
    if (options_.messages.empty()) {
        std::fprintf(io_.err, "uvc-host control: %s holds no message\n", options_.file.c_str());
        return kExitUsage;
    }
    return kExitOk;
}

int ControlSession::run() {
    int loaded = loadMessages();
    if (loaded != kExitOk) {
        return loaded;
    }
    LinkSettings settings;
    settings.verbose = options_.verbose;
    std::unique_ptr<UvcLink> link = factory_(settings);
    std::string error;
    if (!link->start(&error)) {
        std::fprintf(io_.err, "uvc-host control: %s\n", error.c_str());
        return kExitFailed;
    }
    auto timeout = std::chrono::milliseconds(int64_t(options_.waitSec * 1000));
    int status = kExitOk;
    size_t seen = link->replies().size();
    for (size_t i = 0; i < options_.messages.size() && !interruptRequested(); ++i) {
        if (options_.verbose) {
            std::fprintf(io_.err, "> %s\n", options_.messages[i].c_str());
        }
        // The library answers on the delivering thread, so once a message
        // is delivered all of its replies are there.
        if (!link->control(options_.messages[i], options_.stream, timeout)) {
            std::fprintf(io_.err, "uvc-host control: message %zu was not handled within %.1f s\n",
                         i + 1, options_.waitSec);
            status = kExitFailed;
            break;
        }
        std::vector<std::string> replies = link->replies();
        for (; seen < replies.size(); ++seen) {
            std::fprintf(io_.out, "%s\n", replies[seen].c_str());
        }
        std::fflush(io_.out);
    }
    link->stop();
    return interruptRequested() ? interruptExitStatus() : status;
}

}  // namespace uvc_host
