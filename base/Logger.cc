#include "base/Logger.h"

#include <cstdio>
#include <string>

#include "base/LogServer.h"
#include "base/SystemUtil.h"

namespace VOLUT {

namespace {

constexpr size_t kLineBufferSize = 10240;

const char* levelLetter(LogLevel level) {
    switch (static_cast<unsigned int>(level)) {
        case LOG_ERROR:
            return "E";
        case LOG_WARNING:
            return "W";
        case LOG_INFO:
            return "I";
        case LOG_DEBUG:
            return "D";
        default:
            return "?";
    }
}

}  // namespace

void Logger::log(const char* tag, LogLevel level, const char* message, long threadId,
                 LogServer* server) {
    if (server == nullptr) {
        server = LogServer::defaultLogServer();
        if (server == nullptr) {
            return;  // process exit: the default server is already gone
        }
    }
    char line[kLineBufferSize] = {};
    // One byte short of the buffer: a line keeps at most 10238 characters.
    std::snprintf(line, kLineBufferSize - 1, "(%llu) %lu [%s][%s] - %s",
                  static_cast<unsigned long long>(SystemUtil::getCPUTime()),
                  static_cast<unsigned long>(threadId), levelLetter(level), tag ? tag : "",
                  message ? message : "");
    server->pushLog(std::string(line));
}

}  // namespace VOLUT
