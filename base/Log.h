#pragma once

#include <atomic>
#include <cstdarg>

#include "uvc_export.h"

namespace VOLUT {

class Logger;

// Severity of a base-library log line; a fixed underlying type so that any int
// (for example 7, which carries the letter '?') is a valid value.
enum LogLevel : int {
    LOG_ERROR = 0,
    LOG_WARNING = 1,
    LOG_INFO = 2,
    LOG_DEBUG = 3,
};

// Same as Log::log.
UVC_EXPORT void LOG_MPC(const char* tag, LogLevel level, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// Front end of the base library's log pipeline: filters by level, formats the
// message and hands it to the single Logger, which stamps it and queues it on
// the default LogServer.
class UVC_EXPORT Log {
public:
    // Drops the message unless level <= current level (signed compare).
    static void log(const char* tag, LogLevel level, const char* format, ...)
        __attribute__((format(printf, 3, 4)));
    static void log2(const char* tag, LogLevel level, const char* format, ...)
        __attribute__((format(printf, 3, 4)));

    static void setLogLevel(LogLevel level);
    static LogLevel getLogLevel();

private:
    friend void LOG_MPC(const char* tag, LogLevel level, const char* format, ...);
    static void logV(const char* tag, LogLevel level, const char* format, va_list args);

    // Read on every call from any thread; atomic so that a concurrent
    // setLogLevel is not a data race.
    static std::atomic<int> _kCurrentLevel;
    static Logger _kLogger;
};

}  // namespace VOLUT
