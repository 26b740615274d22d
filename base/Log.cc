#include "base/Log.h"

#include <cstdarg>
#include <cstdio>

namespace VOLUT {

std::atomic<int> Log::_kCurrentLevel{LOG_DEBUG};

void Log::log(const char*, LogLevel, const char*, ...) {}
void Log::log2(const char*, LogLevel, const char*, ...) {}
void Log::setLogLevel(LogLevel level) {
    _kCurrentLevel.store(level, std::memory_order_relaxed);
}
LogLevel Log::getLogLevel() {
    return static_cast<LogLevel>(_kCurrentLevel.load(std::memory_order_relaxed));
}
void LOG_MPC(const char*, LogLevel, const char*, ...) {}

}  // namespace VOLUT
