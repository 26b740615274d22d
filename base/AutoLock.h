#pragma once

#include "base/Mutex.h"

namespace VOLUT {

// Holds a Mutex for the lifetime of the guard.
class AutoLock {
public:
    explicit AutoLock(Mutex& mutex);
    virtual ~AutoLock();
    AutoLock(const AutoLock&) = delete;
    AutoLock& operator=(const AutoLock&) = delete;

private:
    Mutex& mutex_;
};

}  // namespace VOLUT
