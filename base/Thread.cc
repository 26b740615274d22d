#include "base/Thread.h"

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <exception>

#include "base/AutoLock.h"
#include "base/Log.h"

namespace VOLUT {

namespace {

const char kStartSignature[] =
    "bool VOLUT::Thread::start(VOLUT::Runnable *, const std::string &, "
    "VOLUT::Thread::ThreadPriority)";
const char kThreadProcSignature[] = "static void *VOLUT::Thread::threadProc(void *)";

int niceValue(Thread::ThreadPriority priority) {
    switch (priority) {
        case Thread::PRIORITY_HIGH:
            return -16;
        case Thread::PRIORITY_LOW:
            return 10;
        default:
            return 0;
    }
}

}  // namespace

Thread::Thread() = default;

Thread::~Thread() {
    waitForStop();
}

bool Thread::start(Runnable* task, const std::string& name, ThreadPriority priority) {
    std::unique_ptr<Runnable> owned(task);
    if (!owned) {
        Log::log("VOLUT", LOG_WARNING, "[%s] %d \"starting thread %s failed: no task\"",
                 kStartSignature, __LINE__, name.c_str());
        return false;
    }
    {
        AutoLock lock(mutex_);
        if (started_) {
            Log::log("VOLUT", LOG_WARNING,
                     "[%s] %d \"starting thread %s failed: thread already started as %s\"",
                     kStartSignature, __LINE__, name.c_str(), name_.c_str());
            return false;
        }
        if (handle_ != 0) {
            // The previous task has ended (started is false) but nobody joined
            // it yet; reap it so its handle is not lost. It no longer needs
            // the mutex, so joining here cannot deadlock.
            pthread_join(handle_, nullptr);
            handle_ = 0;
        }
        runnable_ = std::move(owned);
        stopping_ = false;
        name_ = name;
        started_ = true;
        priority_ = priority;
        // The new thread's first step locks the mutex, so it sees everything
        // stored above.
        int err = pthread_create(&handle_, nullptr, &Thread::threadProc, this);
        if (err != 0) {
            Log::log("VOLUT", LOG_ERROR, "[%s] %d \"creating thread failed: err=%d\"",
                     kStartSignature, __LINE__, err);
            handle_ = 0;
            clear();
            return false;
        }
    }
    startSemaphore_.wait();
    return true;
}

void* Thread::threadProc(void* arg) {
    Thread* self = static_cast<Thread*>(arg);
    ThreadPriority priority;
    Runnable* task;
    {
        AutoLock lock(self->mutex_);
        self->threadId_ = getCurrentThreadID();
        self->setThreadName(self->name_);
        priority = self->priority_;
        task = self->runnable_.get();
    }
    self->setPriority(priority);
    self->startSemaphore_.notify();
    // The task stays owned by the Thread and is only replaced after this
    // thread has cleared the started flag below. An exception ends the task,
    // not the process; the Thread is left idle as after a normal end.
    try {
        task->run();
    } catch (const std::exception& e) {
        Log::log("VOLUT", LOG_ERROR, "[%s] %d \"task of thread %d ended by an exception: %s\"",
                 kThreadProcSignature, __LINE__, getCurrentThreadID(), e.what());
    } catch (...) {
        Log::log("VOLUT", LOG_ERROR, "[%s] %d \"task of thread %d ended by an exception\"",
                 kThreadProcSignature, __LINE__, getCurrentThreadID());
    }
    {
        AutoLock lock(self->mutex_);
        self->clear();
    }
    return nullptr;
}

void Thread::stop() {
    AutoLock lock(mutex_);
    if (started_) {
        stopping_ = true;
    }
}

bool Thread::isStopping() const {
    AutoLock lock(mutex_);
    return stopping_;
}

bool Thread::isStarted() const {
    AutoLock lock(mutex_);
    return started_;
}

void Thread::waitForStop() {
    pthread_t handle;
    {
        AutoLock lock(mutex_);
        handle = handle_;
        // Claimed under the lock so that no other caller joins it twice.
        handle_ = 0;
    }
    if (handle == 0) {
        return;
    }
    int err = pthread_join(handle, nullptr);
    if (err != 0) {
        Log::log("VOLUT", LOG_ERROR, "[%s] %d \"thread_join() failed: err=%d\"",
                 "void VOLUT::Thread::waitForStop()", __LINE__, err);
    }
}

std::string Thread::getName() const {
    AutoLock lock(mutex_);
    return name_;
}

int Thread::getCurrentThreadID() {
    return static_cast<int>(syscall(SYS_gettid));
}

void Thread::setThreadName(const std::string& name) {
    if (started_) {
        prctl(PR_SET_NAME, name.c_str(), 0, 0, 0);
    }
}

void Thread::setPriority(ThreadPriority priority) {
    if (setpriority(PRIO_PROCESS, 0, niceValue(priority)) != 0) {
        // The number is errno; the requested nice value follows from the
        // priority and is not worth a second field.
        int err = errno;
        std::string name;
        {
            AutoLock lock(mutex_);
            name = name_;
        }
        Log::log("VOLUT", LOG_WARNING, "[%s] %d \"Change the thread priority failed: %s, err=%d\"",
                 "void VOLUT::Thread::setPriority(VOLUT::Thread::ThreadPriority)", __LINE__,
                 name.c_str(), err);
    }
}

bool Thread::clear() {
    stopping_ = false;
    runnable_.reset();
    name_.clear();
    started_ = false;
    threadId_ = INVALID_THREAD_ID;
    priority_ = PRIORITY_NORMAL;
    return true;
}

}  // namespace VOLUT
