#include "base/LogServer.h"

#include <android/log.h>

#include <cstring>

#include "base/AutoLock.h"
#include "base/Log.h"

namespace VOLUT {

namespace {

constexpr size_t kLineBufferSize = 10240;
constexpr size_t kMaxField = 63;
constexpr unsigned int kGetTimeoutMs = 100;
constexpr unsigned int kMaxLogFiles = 10;

std::atomic<bool> gDefaultServerGone{false};

// Copies the text between the bracket at `open` and the first "]" after it;
// returns that "]" or null when there is none.
const char* bracketText(const char* open, std::string& out) {
    const char* close = std::strchr(open + 1, ']');
    if (close == nullptr) {
        return nullptr;
    }
    size_t len = static_cast<size_t>(close - open - 1);
    out.assign(open + 1, len < kMaxField ? len : kMaxField);
    return close;
}

int androidPriority(const std::string& level) {
    if (level == "E")
        return ANDROID_LOG_ERROR;
    if (level == "W")
        return ANDROID_LOG_WARN;
    if (level == "I")
        return ANDROID_LOG_INFO;
    if (level == "D")
        return ANDROID_LOG_DEBUG;
    return ANDROID_LOG_ERROR;
}

}  // namespace

template <>
std::string Functor0<LogServer, void (LogServer::*)()>::dump() {
    return "virtual std::string VOLUT::Functor0<VOLUT::LogServer, void (VOLUT::LogServer::*)()>"
           "::dump() [TClass = VOLUT::LogServer, Func = void (VOLUT::LogServer::*)()]";
}

LogServer::LogServer() : out_(kLineBufferSize, '\0') {}

LogServer::~LogServer() {
    stop();
}

LogServer* LogServer::defaultLogServer() {
    // The holder marks the server gone before destroying it, so lines logged
    // during process exit (including by its own stop) are dropped instead of
    // reaching a destroyed object.
    struct Holder {
        LogServer server;
        ~Holder() { gDefaultServerGone.store(true); }
    };
    if (gDefaultServerGone.load()) {
        return nullptr;
    }
    static Holder holder;
    return &holder.server;
}

void LogServer::start(const std::string&, unsigned int, unsigned int) {
    AutoLock lifecycle(lifecycleMutex_);
    {
        AutoLock lock(mutex_);
        if (queue_) {
            return;
        }
        queue_ = std::make_unique<BlockingQueue<std::string>>();
    }
    // The thread owns and deletes the functor.
    if (!thread_.start(
            new Functor0<LogServer, void (LogServer::*)()>(this, &LogServer::logServerProc),
            "UDP logger server", Thread::PRIORITY_NORMAL)) {
        AutoLock lock(mutex_);
        queue_.reset();
    }
}

void LogServer::stop() {
    AutoLock lifecycle(lifecycleMutex_);
    if (!thread_.isStarted()) {
        return;
    }
    thread_.stop();
    thread_.waitForStop();
    std::unique_ptr<BlockingQueue<std::string>> dropped;
    AutoLock lock(mutex_);
    dropped = std::move(queue_);
    if (file_ != nullptr) {
        std::fclose(file_);
        file_ = nullptr;
    }
}

void LogServer::setLogEcho(bool echo) {
    echo_.store(echo, std::memory_order_relaxed);
}

void LogServer::pushLog(const std::string& line) {
    AutoLock lock(mutex_);
    if (queue_) {
        queue_->put(line);
    }
}

void LogServer::logServerProc() {
    // queue_ is set before this thread starts and reset only after it has
    // been joined, so reading it here needs no lock.
    std::string line;
    while (!thread_.isStopping()) {
        // A line that cannot be taken or written (memory ran out) is lost;
        // the writer goes on with the next one.
        try {
            if (queue_->get(kGetTimeoutMs, line)) {
                writeLog(line.c_str());
            }
        } catch (...) {
            __android_log_write(ANDROID_LOG_ERROR, "VOLUT", "log writer: a line was lost");
        }
    }
}

void LogServer::handleLog(const char* line, char* out) const {
    // 10238 characters of the line, a newline and the NUL fill the buffer.
    std::snprintf(out, kLineBufferSize - 1, "%s", line ? line : "");
    std::strcat(out, "\n");
}

void LogServer::writeLog(const char* line) {
    char* out = out_.data();
    handleLog(line, out);

    // "[level][tag]" is the first two bracket pairs; a line without both
    // pairs gets an empty level and tag.
    std::string level;
    std::string tag;
    const char* open = std::strchr(out, '[');
    const char* close = open ? bracketText(open, level) : nullptr;
    const char* open2 = close ? std::strchr(close + 1, '[') : nullptr;
    if (open2 == nullptr || bracketText(open2, tag) == nullptr) {
        level.clear();
        tag.clear();
    }

    __android_log_write(androidPriority(level), tag.c_str(), out);
    if (echo_.load(std::memory_order_relaxed)) {
        std::printf("%s", out);
        std::fflush(stdout);
    }
}

const char* LogServer::nextWord(const char* text) {
    if (text == nullptr) {
        return nullptr;
    }
    while (*text == ' ') {
        ++text;
    }
    return text;
}

bool LogServer::checkExist(const std::string& path) {
    FILE* f = std::fopen(path.c_str(), "r");
    if (f == nullptr) {
        return false;
    }
    std::fclose(f);
    return true;
}

std::string LogServer::getLogFile(const std::string& name, unsigned int index) {
    if (index == 0) {
        return name;
    }
    return name + "." + static_cast<char>((48 + index) % 256);
}

void LogServer::setLogFiles(const std::string& baseName, unsigned int fileCount) {
    AutoLock lock(mutex_);
    fileName_ = baseName;
    // Numbers stay single digits ("name.9" at most).
    fileCount_ = fileCount < kMaxLogFiles ? fileCount : kMaxLogFiles;
}

void LogServer::nextLog() {
    {
        AutoLock lock(mutex_);
        if (fileCount_ != 0 && !fileName_.empty()) {
            rotateLocked();
            return;
        }
    }
    // Logged outside the lock: pushLog takes it too.
    Log::log("VOLUT", LOG_WARNING, "[%s] %d \"log rotation refused: no log files configured\"",
             "void VOLUT::LogServer::nextLog()", __LINE__);
}

void LogServer::rotateLocked() {
    if (file_ != nullptr) {
        std::fclose(file_);
        file_ = nullptr;
    }
    const std::string last = getLogFile(fileName_, fileCount_ - 1);
    if (checkExist(last)) {
        std::remove(last.c_str());
    }
    for (unsigned int i = fileCount_ - 1; i-- > 0;) {
        const std::string from = getLogFile(fileName_, i);
        if (checkExist(from)) {
            std::rename(from.c_str(), getLogFile(fileName_, i + 1).c_str());
        }
    }
    file_ = std::fopen(fileName_.c_str(), "a+");
}

}  // namespace VOLUT
