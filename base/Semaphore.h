#pragma once

#include <pthread.h>

#include <cstdint>

#include "uvc_export.h"

namespace VOLUT {

// Counting semaphore. Timed waits run against CLOCK_MONOTONIC, so setting the
// wall clock neither shortens nor lengthens them.
class UVC_EXPORT Semaphore {
public:
    Semaphore();
    virtual ~Semaphore();
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

    // 0 after taking one unit, -1 when locking or waiting fails.
    int wait();
    // 0 after taking one unit, 1 when `ms` passed without one (wait(0) only
    // polls), -1 on any other failure.
    int wait(unsigned int ms);
    // Adds one unit and wakes one waiter; 0 on success, else the pthread error.
    int notify();

private:
    pthread_mutex_t mutex_;
    pthread_cond_t cond_;
    uint32_t count_ = 0;
};

}  // namespace VOLUT
