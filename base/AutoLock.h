#pragma once

#include "base/Mutex.h"
#include "uvc_export.h"

namespace VOLUT {

// Holds a Mutex for the lifetime of the guard.
class UVC_EXPORT AutoLock {
public:
    explicit AutoLock(Mutex& mutex);
    virtual ~AutoLock();
    AutoLock(const AutoLock&) = delete;
    AutoLock& operator=(const AutoLock&) = delete;

private:
    Mutex& mutex_;
};

}  // namespace VOLUT
