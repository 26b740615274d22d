#include "base/Semaphore.h"

#include <cerrno>
#include <ctime>

namespace VOLUT {

namespace {

constexpr long kNanosPerSecond = 1000000000L;

timespec monotonicNow() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts;
}

timespec addMilliseconds(timespec ts, unsigned int ms) {
    ts.tv_sec += ms / 1000;
    ts.tv_nsec += static_cast<long>(ms % 1000) * 1000000L;
    if (ts.tv_nsec >= kNanosPerSecond) {
        ts.tv_sec += 1;
        ts.tv_nsec -= kNanosPerSecond;
    }
    return ts;
}

bool reached(const timespec& now, const timespec& deadline) {
    return now.tv_sec > deadline.tv_sec ||
           (now.tv_sec == deadline.tv_sec && now.tv_nsec >= deadline.tv_nsec);
}

}  // namespace

Semaphore::Semaphore() {
    pthread_mutex_init(&mutex_, nullptr);
    pthread_condattr_t attr;
    pthread_condattr_init(&attr);
    pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
    pthread_cond_init(&cond_, &attr);
    pthread_condattr_destroy(&attr);
}

Semaphore::~Semaphore() {
    pthread_cond_destroy(&cond_);
    pthread_mutex_destroy(&mutex_);
}

int Semaphore::wait() {
    if (pthread_mutex_lock(&mutex_) != 0) {
        return -1;
    }
    while (count_ == 0) {
        if (pthread_cond_wait(&cond_, &mutex_) != 0) {
            pthread_mutex_unlock(&mutex_);
            return -1;
        }
    }
    --count_;
    pthread_mutex_unlock(&mutex_);
    return 0;
}

int Semaphore::wait(unsigned int ms) {
    const timespec deadline = addMilliseconds(monotonicNow(), ms);
    if (pthread_mutex_lock(&mutex_) != 0) {
        return -1;
    }
    for (;;) {
        if (count_ > 0) {
            --count_;
            pthread_mutex_unlock(&mutex_);
            return 0;
        }
        if (reached(monotonicNow(), deadline)) {
            pthread_mutex_unlock(&mutex_);
            return 1;
        }
        // A wake-up that finds the count taken again waits for the rest of
        // the time; the deadline is absolute, so nothing needs recomputing.
        int rc = pthread_cond_timedwait(&cond_, &mutex_, &deadline);
        if (rc != 0 && rc != ETIMEDOUT) {
            pthread_mutex_unlock(&mutex_);
            return -1;
        }
    }
}

int Semaphore::notify() {
    int rc = pthread_mutex_lock(&mutex_);
    if (rc != 0) {
        return rc;
    }
    ++count_;
    pthread_cond_signal(&cond_);
    return pthread_mutex_unlock(&mutex_);
}

}  // namespace VOLUT
