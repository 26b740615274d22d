#include "base/AutoLock.h"

namespace VOLUT {

AutoLock::AutoLock(Mutex& mutex) : mutex_(mutex) {
    mutex_.lock();
}

AutoLock::~AutoLock() {
    mutex_.unlock();
}

}  // namespace VOLUT
