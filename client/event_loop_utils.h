#pragma once

// One epoll instance for the whole process. Timers register their descriptors
// here and the loop thread calls each ready descriptor's callback. The
// functions keep plain C names because other components link them by name.

#include <cstdint>

#include "uvc_export.h"

extern "C" {

// Registration record. The epoll entry points at it, so it must stay alive
// and must not move while its descriptor is registered.
struct event_loop_handler {
    void (*callback)(void* context);  // may be null: the event is then ignored
    void* context;
};

// Creates the epoll instance, and nothing else: it holds no entry and the
// registered count is not touched. 0 on success, -1 on failure (logged).
UVC_EXPORT int event_loop_init(void);

// Adds `fd` with the epoll mask `events`; `wakeup` 1 also sets EPOLLWAKEUP.
// 0 on success, -1 on failure (logged; the descriptor is not counted).
UVC_EXPORT int event_loop_register(int fd, event_loop_handler* handler, uint32_t events,
                                   int wakeup);

// Removes `fd`. 0 on success, -1 on failure (logged). The caller must not free
// the record while the loop may still be dispatching an event for it.
UVC_EXPORT int event_loop_unregister(int fd);

// Runs the loop on the calling thread. Returns when a wait fails with anything
// other than an interrupted call while descriptors are registered, or after
// event_loop_utils::stop(). `timeout_provider` gives each wait's limit in ms; null
// waits without limit.
UVC_EXPORT void event_loop_run(int (*timeout_provider)(void));

// Sleeps `ms` milliseconds; returns the result of nanosleep.
UVC_EXPORT int nsleep(int ms);

}  // extern "C"

namespace event_loop_utils {

// Makes the running loop (or the next one to run after the current
// initialisation) return. To wake a running wait it registers one eventfd
// through event_loop_register (so it is counted like any other descriptor);
// the loop unregisters and closes it when it returns. Thread-safe; used by
// tools and tests only.
void stop();

// The epoll mask event_loop_register asks for: `events`, plus EPOLLWAKEUP
// when `wakeup` is exactly 1. (The kernel drops EPOLLWAKEUP without suspend
// support, so the registered mask cannot show it everywhere.)
uint32_t epollMask(uint32_t events, int wakeup);

// Number of descriptors currently registered through event_loop_register.
int registeredCount();

// The epoll instance of the last event_loop_init, -1 before (for inspection).
int epollDescriptor();

// Number of times a wait of the loop has returned since the process started:
// with events, at a time-out, or failed (a failed wait retried after 33 ms
// counts too). Lets tests check that an idle library does not wake.
unsigned wakeUps();

}  // namespace event_loop_utils
