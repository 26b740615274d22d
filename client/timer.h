#pragma once

#include <functional>

#include "client/event_loop_utils.h"

namespace util {
namespace hidl_uvc_client {

// Periodic wake alarm on a timerfd, dispatched by the event loop: each time
// the descriptor becomes readable the loop thread calls `callback` once.
// Created registered and unarmed; armed and disarmed through set_interval.
class timer {
public:
    explicit timer(std::function<void()> callback);
    // Disarms, unregisters and closes the descriptor, so that the loop never
    // reaches the record of a destroyed timer. Must not run while the loop
    // thread may be dispatching this timer's event (owners destroy their
    // timers on the loop thread or after the loop has ended).
    virtual ~timer();

    timer(const timer&) = delete;
    timer& operator=(const timer&) = delete;

    // Creates and registers the descriptor: 0, -1 (no descriptor) or
    // -2 (descriptor open but not registered). Called once by the constructor.
    int initialize_wakealarm();

    // disarm false: first expiry after initial_delay_ms, then every
    // interval_s seconds; an interval under 1 ns (0 included) arms that one
    // expiry and no repetition. An interval that intervalNs refuses is logged
    // and leaves the previous setting. disarm true: stops it.
    void set_interval(bool disarm, float interval_s);

    // Repeat interval in nanoseconds that set_interval uses for `interval_s`:
    // truncated in single precision, plus 1 when not a multiple of 10; 0
    // (no repetition) for anything under 1 ns. -1 when the value is not
    // finite, negative or does not fit 32 bits.
    static int intervalNs(float interval_s);

    // True once the descriptor is registered with the event loop.
    bool registered() const { return registered_; }

    // The loop's callback; `context` is the timer.
    static void wakealarm_event(void* context);

    int wakealarm_fd;
    event_loop_handler event;
    int initial_delay_ms;
    std::function<void()> callback;

private:
    bool registered_;
};

}  // namespace hidl_uvc_client
}  // namespace util
