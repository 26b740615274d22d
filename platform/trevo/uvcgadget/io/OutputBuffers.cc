#include "io/OutputBuffers.h"

#include <sys/mman.h>

#include <cstring>

namespace uvc_gadget {

std::unique_ptr<OutputBuffers> OutputBuffers::allocate(VideoNode& node, uint32_t count,
                                                       std::string& error) {
    uint32_t made = count;
    int result = node.requestBuffers(made);
    if (result != 0 || made == 0) {
        error =
            "requesting buffers failed: " + std::string(strerror(result != 0 ? -result : ENOMEM));
        return nullptr;
    }
    // From here on the destructor undoes the set-up: unmapping what was
    // mapped, then releasing the buffers.
    std::unique_ptr<OutputBuffers> buffers(new OutputBuffers(node));
    buffers->mappings_.reserve(made);
    for (uint32_t i = 0; i < made; ++i) {
        v4l2_buffer buffer;
        result = node.queryBuffer(i, buffer);
        if (result != 0) {
            error = "querying buffer " + std::to_string(i) + " failed: " + strerror(-result);
            return nullptr;
        }
        void* address = mmap(nullptr, buffer.length, PROT_READ | PROT_WRITE, MAP_SHARED, node.fd(),
                             buffer.m.offset);
        if (address == MAP_FAILED) {
            error = "mapping buffer " + std::to_string(i) + " failed: " + strerror(errno);
            return nullptr;
        }
        buffers->mappings_.push_back({static_cast<uint8_t*>(address), buffer.length, false});
    }
    return buffers;
}

void OutputBuffers::unmapAll() {
    while (!mappings_.empty()) {
        munmap(mappings_.back().address, mappings_.back().length);
        mappings_.pop_back();
    }
}

OutputBuffers::~OutputBuffers() {
    unmapAll();
    uint32_t none = 0;
    node_.requestBuffers(none);
}

int OutputBuffers::take() {
    for (size_t i = 0; i < mappings_.size(); ++i) {
        if (!mappings_[i].queued) {
            mappings_[i].queued = true;
            return static_cast<int>(i);
        }
    }
    return -1;
}

void OutputBuffers::release(uint32_t index) {
    if (index < mappings_.size())
        mappings_[index].queued = false;
}

}  // namespace uvc_gadget
