#pragma once

#include <cstddef>

namespace util {

// A process-wide store of recently freed small blocks, keyed by exact size.
// Queues that cycle a handful of elements free and re-allocate the same few
// chunks over and over; recycling them keeps the steady frame path off the
// heap. Blocks beyond the store's room go back to the heap.
class BlockCache {
public:
    static void* take(size_t bytes);
    static void give(void* block, size_t bytes) noexcept;

    // Largest block kept, and how many of one size.
    static constexpr size_t kMaxBlockBytes = 4096;
    static constexpr int kBlocksPerSize = 8;
};

}  // namespace util
