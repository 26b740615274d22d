#include "base/Mutex.h"

namespace VOLUT {

Mutex::Mutex() {
    pthread_mutex_init(&mutex_, nullptr);
}

Mutex::~Mutex() {
    pthread_mutex_destroy(&mutex_);
}

bool Mutex::lock() {
    return pthread_mutex_lock(&mutex_) == 0;
}

bool Mutex::trylock() {
    return pthread_mutex_trylock(&mutex_) == 0;
}

bool Mutex::unlock() {
    return pthread_mutex_unlock(&mutex_) == 0;
}

}  // namespace VOLUT
