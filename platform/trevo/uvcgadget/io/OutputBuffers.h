#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "io/VideoNode.h"

namespace uvc_gadget {

// The memory-mapped output buffers of a gadget node while a stream runs. A
// buffer is either free (the bridge may fill it) or queued (the gadget owns
// it until it completes and is dequeued). Not thread-safe: the stream that
// owns it serialises the calls.
class OutputBuffers {
public:
    // Requests `count` buffers and maps them; on failure unmaps and releases
    // what it made, in reverse order, and returns nullptr with a reason.
    static std::unique_ptr<OutputBuffers> allocate(VideoNode& node, uint32_t count,
                                                   std::string& error);
    // Unmaps every buffer, then releases them (REQBUFS 0). The stream must be
    // off: a streaming node still owns queued buffers.
    ~OutputBuffers();
    OutputBuffers(const OutputBuffers&) = delete;
    OutputBuffers& operator=(const OutputBuffers&) = delete;

    // A free buffer's index, marked queued; -1 when every buffer is queued.
    int take();
    // Marks buffer `index` free again (after dequeueing it, or when queueing
    // it failed).
    void release(uint32_t index);
    uint8_t* data(uint32_t index) const { return mappings_[index].address; }
    size_t length(uint32_t index) const { return mappings_[index].length; }
    size_t count() const { return mappings_.size(); }

private:
    struct Mapping {
        uint8_t* address;
        size_t length;
        bool queued;
    };

    explicit OutputBuffers(VideoNode& node) : node_(node) {}
    void unmapAll();

    VideoNode& node_;
    std::vector<Mapping> mappings_;
};

}  // namespace uvc_gadget
