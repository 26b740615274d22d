#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "base/BlockingQueue.h"
#include "base/Functor0.h"
#include "base/Mutex.h"
#include "base/Thread.h"
#include "uvc_export.h"

namespace VOLUT {

// Queues finished log lines and writes them to the Android log (and, with
// echo on, to standard output) on its own writer thread "UDP logger server".
// While idle (never started, or stopped) pushed lines are discarded.
class UVC_EXPORT LogServer {
public:
    LogServer();
    virtual ~LogServer();
    LogServer(const LogServer&) = delete;
    LogServer& operator=(const LogServer&) = delete;

    // The process-wide server, created on first use and stopped at process
    // exit; null once exit has destroyed it.
    static LogServer* defaultLogServer();

    // Starts the writer unless running. The arguments are accepted for
    // compatibility and not used: lines go to the Android log only.
    void start(const std::string& fileName, unsigned int fileSize, unsigned int fileCount);
    // Stops and joins the writer; lines still queued are discarded.
    void stop();
    void setLogEcho(bool echo);
    void pushLog(const std::string& line);

    // Numbered log files "name", "name.1" ... "name.(count-1)". The writer
    // does not write them; a caller that keeps its own log files sets the
    // base name and count (at most 10) and rotates with nextLog(). The
    // current file stays open until the next rotation or stop().
    void setLogFiles(const std::string& baseName, unsigned int fileCount);
    // Shifts every file up by one number (dropping the last) and opens a new
    // base file. Refused while no base name or a count of 0 is set.
    void nextLog();
    static bool checkExist(const std::string& path);
    static std::string getLogFile(const std::string& name, unsigned int index);
    static const char* nextWord(const char* text);

    // Writer side; public so that a line's handling can be checked without a
    // running thread. Only one thread may write at a time.
    void logServerProc();
    void writeLog(const char* line);
    void handleLog(const char* line, char* out) const;

private:
    void rotateLocked();

    // Serialises start and stop; taken before mutex_.
    Mutex lifecycleMutex_;
    // Guards queue_ for pushers, and the log file fields.
    Mutex mutex_;
    std::unique_ptr<BlockingQueue<std::string>> queue_;
    Thread thread_;
    FILE* file_ = nullptr;
    std::string fileName_;
    uint32_t fileCount_ = 0;
    std::atomic<bool> echo_{false};
    // The writer's line buffer (10240 bytes), used only by writeLog.
    std::vector<char> out_;
};

template <>
std::string Functor0<LogServer, void (LogServer::*)()>::dump();

}  // namespace VOLUT
