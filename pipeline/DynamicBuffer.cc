#include "pipeline/DynamicBuffer.h"

namespace hidl_uvc_client {

DynamicBuffer::DynamicBuffer(unsigned size) {
    if (size == 0)
        return;
    data = static_cast<uint8_t*>(std::malloc(size));
    if (data == nullptr) {
        std::puts("cannot allocate memory: Bad");
        return;
    }
    capacity = size;
}

DynamicBuffer::~DynamicBuffer() {
    std::free(data);
}

}  // namespace hidl_uvc_client
