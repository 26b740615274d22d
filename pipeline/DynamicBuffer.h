#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace hidl_uvc_client {

// One frame as produced by the frame source: a malloc'ed block, its usable
// size and the number of payload bytes written.
class DynamicBuffer {
public:
    explicit DynamicBuffer(unsigned size);
    virtual ~DynamicBuffer();
    DynamicBuffer(const DynamicBuffer&) = delete;
    DynamicBuffer& operator=(const DynamicBuffer&) = delete;

    // A failed reallocation keeps the old block but reports no capacity, so
    // that the next taker resizes again.
    void resize(unsigned size) {
        if (size == 0) {
            capacity = 0;
            std::free(data);
            data = nullptr;
            return;
        }
        void* grown = std::realloc(data, size);
        if (grown == nullptr) {
            std::puts("cannot allocate memory: Bad");
            capacity = 0;
            return;
        }
        data = static_cast<uint8_t*>(grown);
        capacity = size;
    }

    uint8_t* data = nullptr;
    uint32_t capacity = 0;
    uint32_t length = 0;
};

}  // namespace hidl_uvc_client
