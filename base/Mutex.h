#pragma once

#include <pthread.h>

#include "uvc_export.h"

namespace VOLUT {

// Plain (non-recursive) POSIX mutex: a thread that locks it twice blocks.
class UVC_EXPORT Mutex {
public:
    Mutex();
    virtual ~Mutex();
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    bool lock();
    bool trylock();
    bool unlock();

private:
    pthread_mutex_t mutex_;
};

}  // namespace VOLUT
