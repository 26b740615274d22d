#pragma once

#include "base/Log.h"
#include "uvc_export.h"

namespace VOLUT {

class LogServer;

// Turns one formatted message into a stamped line:
// "(monotonic ms) thread-id [level letter][tag] - message".
class UVC_EXPORT Logger {
public:
    // Constant-initialised, so the library's static Logger is usable before
    // any dynamic initialisation runs.
    constexpr Logger() = default;
    virtual ~Logger() = default;
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    // Pushes the line to `server`, or to the default server when null.
    virtual void log(const char* tag, LogLevel level, const char* message, long threadId,
                     LogServer* server);
};

}  // namespace VOLUT
