#include "base/Log.h"

#include <cstdarg>
#include <cstdio>

#include "base/Logger.h"
#include "base/Thread.h"

namespace VOLUT {

namespace {

constexpr size_t kMessageBufferSize = 10240;

}  // namespace

std::atomic<int> Log::_kCurrentLevel{LOG_DEBUG};
Logger Log::_kLogger;

void Log::logV(const char* tag, LogLevel level, const char* format, va_list args) {
    // Signed compare: a negative current level silences everything. The
    // message is dropped before any formatting.
    if (_kCurrentLevel.load(std::memory_order_relaxed) < static_cast<int>(level)) {
        return;
    }
    char message[kMessageBufferSize] = {};
    std::vsnprintf(message, kMessageBufferSize, format ? format : "", args);
    message[kMessageBufferSize - 1] = '\0';
    // Logging is called from every failure path, often because memory ran
    // out; it must never throw into its caller. A line that cannot be queued
    // is lost.
    try {
        _kLogger.log(tag, level, message, Thread::getCurrentThreadID(), nullptr);
    } catch (...) {
    }
}

void Log::log(const char* tag, LogLevel level, const char* format, ...) {
    va_list args;
    va_start(args, format);
    logV(tag, level, format, args);
    va_end(args);
}

void Log::log2(const char* tag, LogLevel level, const char* format, ...) {
    va_list args;
    va_start(args, format);
    logV(tag, level, format, args);
    va_end(args);
}

void Log::setLogLevel(LogLevel level) {
    _kCurrentLevel.store(level, std::memory_order_relaxed);
}

LogLevel Log::getLogLevel() {
    return static_cast<LogLevel>(_kCurrentLevel.load(std::memory_order_relaxed));
}

void LOG_MPC(const char* tag, LogLevel level, const char* format, ...) {
    va_list args;
    va_start(args, format);
    Log::logV(tag, level, format, args);
    va_end(args);
}

}  // namespace VOLUT
