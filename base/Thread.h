#pragma once

#include <pthread.h>

#include <memory>
#include <string>

#include "base/Mutex.h"
#include "base/Runnable.h"
#include "base/Semaphore.h"
#include "uvc_export.h"

namespace VOLUT {

// Runs one Runnable on a named POSIX thread of a chosen priority. Stopping is
// cooperative: stop() only raises a flag that the task polls with
// isStopping(). The thread is never detached; waitForStop() (or the
// destructor) joins it.
class UVC_EXPORT Thread {
public:
    enum ThreadPriority : int {
        PRIORITY_HIGH = 0,    // nice -16
        PRIORITY_NORMAL = 1,  // nice 0
        PRIORITY_LOW = 2,     // nice 10
    };
    static constexpr int INVALID_THREAD_ID = -1;

    Thread();
    // Joins a running thread but does not ask it to stop: call stop() first
    // when the task runs until isStopping().
    virtual ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    // Takes ownership of `task` in every case (it is deleted when the start
    // fails). Returns once the new thread has named itself and set its
    // priority.
    bool start(Runnable* task, const std::string& name, ThreadPriority priority);
    void stop();
    bool isStopping() const;
    bool isStarted() const;
    void waitForStop();
    std::string getName() const;

    static int getCurrentThreadID();
    // Names the calling thread (the kernel keeps 15 characters) while started.
    void setThreadName(const std::string& name);
    // Applies the priority's nice value to the calling thread.
    void setPriority(ThreadPriority priority);
    // Resets the fields to idle without locking; the caller holds the mutex.
    bool clear();

private:
    static void* threadProc(void* thread);

    mutable Mutex mutex_;
    bool started_ = false;
    bool stopping_ = false;
    std::unique_ptr<Runnable> runnable_;
    std::string name_;
    int threadId_ = INVALID_THREAD_ID;
    Semaphore startSemaphore_;
    pthread_t handle_ = 0;
    ThreadPriority priority_ = PRIORITY_NORMAL;
};

}  // namespace VOLUT
